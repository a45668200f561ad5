// GoogleTest comparisons of engine records.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/field_bits.h"
#include "tests/support/record_fields.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tests
{

/// Whether two fields of numbers have the same bits (firstDifference in field_bits.h).
template <typename Field>
testing::AssertionResult sameBits(const char* name, const Field& a, const Field& b)
{
    const std::ptrdiff_t i = firstDifference(a, b);
    if (i < 0) return testing::AssertionSuccess();
    const auto elementOf = [i](const Field& field) {
        return testing::PrintToString(reinterpret_cast<const ElementOf<Field>*>(&field)[i]);
    };
    return testing::AssertionFailure() << name << ", element " << i << ": " << elementOf(a) << " and " << elementOf(b);
}

/// Whether two engine records have the same bits in every field.
///
/// Compares pointers as offsets: outputPtr in the record's outputBlock, channelPtr in its host buffer.
template <typename A, typename B>
testing::AssertionResult sameRecord(const A& a, const std::uint8_t* bufferOfA, const B& b,
                                    const std::uint8_t* bufferOfB)
{
    testing::AssertionResult result = testing::AssertionSuccess();
    forEachField(a, b, [&](const char* name, const auto& fieldA, const auto& fieldB) {
        if (!result) return;
        static_assert(sizeof(fieldA) == sizeof(fieldB));
        if constexpr (!std::is_pointer_v<ElementOf<decltype(fieldA)>>) {
            result = sameBits(name, fieldA, fieldB);
        } else if (const std::ptrdiff_t i = firstDifference(fieldA, a, bufferOfA, fieldB, b, bufferOfB); i >= 0) {
            result = testing::AssertionFailure() << name << ", element " << i;
        }
    });
    return result;
}

} // namespace tests
