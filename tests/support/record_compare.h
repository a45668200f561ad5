#pragma once

#include "tests/support/record_fields.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tests
{

/// Where two fields of plain numbers first differ in a bit. NaN is NaN: its sign and payload depend on which operand of
/// a sum comes first, which the language leaves to compilers.
template <typename Field>
testing::AssertionResult sameBits(const char* name, const Field& a, const Field& b)
{
    if (std::memcmp(&a, &b, sizeof(Field)) == 0) return testing::AssertionSuccess();

    using Element = std::remove_all_extents_t<Field>;
    Element first[sizeof(Field) / sizeof(Element)];
    Element second[sizeof(Field) / sizeof(Element)];
    std::memcpy(first, &a, sizeof(Field));
    std::memcpy(second, &b, sizeof(Field));
    for (std::size_t i = 0; i < std::size(first); ++i) {
        if (std::memcmp(&first[i], &second[i], sizeof(Element)) == 0) continue;
        if (first[i] != first[i] && second[i] != second[i]) continue;
        return testing::AssertionFailure() << name << ", element " << i << ": " << testing::PrintToString(first[i])
                                           << " and " << testing::PrintToString(second[i]);
    }
    return testing::AssertionSuccess();
}

/// Whether two engine records hold the same bits in every field.
///
/// Pointers are compared as positions: outputPtr in the record's own outputBlock, channelPtr in its host buffer.
template <typename A, typename B>
testing::AssertionResult sameRecord(const A& a, const std::uint8_t* bufferOfA, const B& b,
                                    const std::uint8_t* bufferOfB)
{
    testing::AssertionResult result = testing::AssertionSuccess();
    forEachField(a, b, [&](const char* name, const auto& fieldA, const auto& fieldB) {
        if (!result) return;
        using Field = std::remove_cvref_t<decltype(fieldA)>;
        using Element = std::remove_all_extents_t<Field>;
        static_assert(sizeof(fieldA) == sizeof(fieldB));
        if constexpr (!std::is_pointer_v<Element>) {
            result = sameBits(name, fieldA, fieldB);
        } else {
            for (std::size_t i = 0; i < std::extent_v<Field>; ++i) {
                const auto position = [&](const auto* pointer, const auto& record, const std::uint8_t* buffer) {
                    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(pointer);
                    const auto* const block = reinterpret_cast<const std::uint8_t*>(record.outputBlock);
                    return bytes == nullptr ? std::ptrdiff_t{-1}
                                            : bytes - (std::is_same_v<Element, std::int32_t*> ? block : buffer);
                };
                if (position(fieldA[i], a, bufferOfA) != position(fieldB[i], b, bufferOfB))
                    result = testing::AssertionFailure() << name << ", element " << i;
            }
        }
    });
    return result;
}

} // namespace tests
