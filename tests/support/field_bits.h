#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <type_traits>

namespace tests
{

/// The elements of a field, in one row.
template <typename Field>
using ElementOf = std::remove_all_extents_t<std::remove_cvref_t<Field>>;

/// Whether two fields of 32-bit numbers or pointers are alike. Compared by wmemcmp, because fuzzers listen to memcmp
/// for what their input might be.
template <typename Field>
bool sameMemory(const Field& a, const Field& b)
{
    static_assert(sizeof(wchar_t) == 4 && sizeof(Field) % 4 == 0 && alignof(Field) % 4 == 0);
    return std::wmemcmp(reinterpret_cast<const wchar_t*>(&a), reinterpret_cast<const wchar_t*>(&b),
                        sizeof(Field) / 4) == 0;
}

/// The first element in which two fields of plain numbers differ in a bit, or -1. NaN is NaN: its sign and payload
/// depend on which operand of a sum comes first, which the language leaves to compilers.
template <typename Field>
std::ptrdiff_t firstDifference(const Field& a, const Field& b)
{
    if (sameMemory(a, b)) return -1;

    using Element = ElementOf<Field>;
    Element first[sizeof(Field) / sizeof(Element)];
    Element second[sizeof(Field) / sizeof(Element)];
    std::memcpy(first, &a, sizeof(Field));
    std::memcpy(second, &b, sizeof(Field));
    for (std::size_t i = 0; i < std::size(first); ++i) {
        if (sameMemory(first[i], second[i])) continue;
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
