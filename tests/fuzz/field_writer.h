// Writes of a caller to the public fields of an engine.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/numbers.h"
#include "tests/support/field_bits.h"
#include "tests/support/random.h"
#include "tests/support/record_fields.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace fuzz
{

/// Writes numbers to some neighbouring public fields between blocks, the same ones to every engine.
class FieldWriter
{
public:
    /// Reads the choice of fields, elements and numbers.
    explicit FieldWriter(ByteReader& bytes) : firstField(bytes.byte())
    {
        const std::uint8_t choice = bytes.byte();
        elementChoice = choice % 3;
        fieldCount = 1 + choice / 3 % 8;
        kind = bytes.byte();
        seed = bytes.byte();
    }

    template <typename Engine>
    void write(Engine& engine) const
    {
        tests::Random random(seed);
        int all = 0;
        tests::forEachField(engine, engine, [&](const auto&...) { ++all; });
        int index = -(firstField % all);
        tests::forEachField(engine, engine, [&](std::string_view name, auto& field, auto& /*same*/) {
            const bool chosen = index >= 0 && index < fieldCount;
            ++index;
            if (!chosen) return;
            using Field = std::remove_cvref_t<decltype(field)>;
            // Not pointers, and not the loop counters, which the reference uses in more loops.
            if (name == "groupIndex" || name == "bandIndex") return;
            if constexpr (std::is_pointer_v<tests::ElementOf<Field>>) {
                return;
            } else if (name == "bandCount") {
                writeBandCount(engine.bandCount, random);
            } else {
                writeNumbers(name, reinterpret_cast<tests::ElementOf<Field>*>(&field),
                             sizeof(Field) / sizeof(tests::ElementOf<Field>), random);
            }
        });
    }

private:
    /// One of the four groupings, or other counts of at most 63 bands in all, with empty groups and negative counts.
    void writeBandCount(std::int32_t (&bandCount)[16], tests::Random& random) const
    {
        if (kind % 2 == 0) {
            const std::array groupings{&ZRKTarn::LOOP_COUNT48, &ZRKTarn::LOOP_COUNT64, &ZRKTarn::LOOP_COUNT96,
                                       &ZRKTarn::LOOP_COUNT192};
            std::memcpy(bandCount, *groupings[kind / 2 % 4], sizeof bandCount);
            return;
        }
        std::int32_t left = 63;
        for (std::int32_t& count : bandCount) {
            count = std::min(static_cast<std::int32_t>(random.below(10)) - 1, left);
            left -= std::max(count, 0);
        }
    }

    template <typename Element>
    void writeNumbers(std::string_view name, Element* elements, std::size_t count, tests::Random& random) const
    {
        const std::size_t only = random.below(static_cast<std::uint32_t>(count));
        for (std::size_t i = 0; i < count; ++i) {
            if (elementChoice == 0 && i != only) continue;
            if (elementChoice == 1 && random.chance(2)) continue;
            if constexpr (std::is_same_v<Element, float>) {
                elements[i] = numberOf(kind, random);
            } else if (name == "remapTermSource") {
                elements[i] = static_cast<Element>(random.below(3));
            } else if (name == "remapTermCount") {
                elements[i] = static_cast<Element>(random.below(6));
            } else {
                elements[i] = static_cast<Element>(kind % 2 == 0 ? random.bits() : random.below(66));
            }
        }
    }

    int firstField;
    int fieldCount;    ///< 1 to 8
    int elementChoice; ///< 0: one of each, 1: about half, 2: all
    std::uint8_t kind;
    std::uint8_t seed;
};

} // namespace fuzz
