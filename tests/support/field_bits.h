// Comparison of record fields bit by bit.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <type_traits>

namespace tests
{

/// The element type of a field of any dimensions.
template <typename Field>
using ElementOf = std::remove_all_extents_t<std::remove_cvref_t<Field>>;

/// Whether two fields of 32-bit numbers or pointers have the same bytes. Uses wmemcmp, because libFuzzer takes hints
/// from memcmp.
template <typename Field>
bool sameMemory(const Field& a, const Field& b)
{
    static_assert(sizeof(wchar_t) == 4 && sizeof(Field) % 4 == 0 && alignof(Field) % 4 == 0);
    return std::wmemcmp(reinterpret_cast<const wchar_t*>(&a), reinterpret_cast<const wchar_t*>(&b),
                        sizeof(Field) / 4) == 0;
}

/// The first element in which two fields of numbers differ in a bit, or -1. All NaNs are equal: sign and payload depend
/// on the order of the operands, which compilers may change.
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

/// The first element in which two fields of pointers differ as offsets, or -1. Host pointers are offsets into the host
/// buffer, output rows offsets into outputBlock.
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
