#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace tests
{

/// The elements of a field, in one row.
template <typename Field>
using ElementOf = std::remove_all_extents_t<std::remove_cvref_t<Field>>;

/// Whether two stretches of memory are alike. Not memcmp: fuzzers listen to that, and these bytes are not their
/// input's.
inline bool sameBytes(const void* a, const void* b, std::size_t size)
{
    const auto* const first = static_cast<const std::uint8_t*>(a);
    const auto* const second = static_cast<const std::uint8_t*>(b);
    std::uint8_t differing = 0;
    for (std::size_t i = 0; i < size; ++i) differing = static_cast<std::uint8_t>(differing | (first[i] ^ second[i]));
    return differing == 0;
}

/// The first element in which two fields of plain numbers differ in a bit, or -1. NaN is NaN: its sign and payload
/// depend on which operand of a sum comes first, which the language leaves to compilers.
template <typename Field>
std::ptrdiff_t firstDifference(const Field& a, const Field& b)
{
    if (sameBytes(&a, &b, sizeof(Field))) return -1;

    using Element = ElementOf<Field>;
    Element first[sizeof(Field) / sizeof(Element)];
    Element second[sizeof(Field) / sizeof(Element)];
    std::memcpy(first, &a, sizeof(Field));
    std::memcpy(second, &b, sizeof(Field));
    for (std::size_t i = 0; i < std::size(first); ++i) {
        if (sameBytes(&first[i], &second[i], sizeof(Element))) continue;
        if (first[i] != first[i] && second[i] != second[i]) continue;
        return static_cast<std::ptrdiff_t>(i);
    }
    return -1;
}

/// The first element in which two fields of pointers differ as positions, or -1: host samples in the records' buffers,
/// output rows in the records' own blocks.
template <typename Field, typename A, typename B>
std::ptrdiff_t firstDifference(const Field& a, const A& recordA, const std::uint8_t* bufferOfA, const Field& b,
                               const B& recordB, const std::uint8_t* bufferOfB)
{
    const auto positionOf = [](const auto* pointer, const auto& record, const std::uint8_t* buffer) {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(pointer);
        const auto* const block = reinterpret_cast<const std::uint8_t*>(record.outputBlock);
        return bytes == nullptr ? std::ptrdiff_t{-1}
                                : bytes - (std::is_same_v<ElementOf<Field>, std::int32_t*> ? block : buffer);
    };
    for (std::size_t i = 0; i < std::extent_v<Field>; ++i)
        if (positionOf(a[i], recordA, bufferOfA) != positionOf(b[i], recordB, bufferOfB))
            return static_cast<std::ptrdiff_t>(i);
    return -1;
}

} // namespace tests
