// A checksum of filterbank/cos_mod_tables.cpp; compiled with the C library's cosf and with that of other_cosf_test.cpp.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>

namespace
{

/// FNV-1a over the bits of floats, least significant byte first.
std::uint64_t checksum(std::initializer_list<std::span<const float>> tables)
{
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (const std::span<const float> table : tables) {
        for (const float entry : table) {
            std::uint32_t bits = 0;
            std::memcpy(&bits, &entry, sizeof bits);
            for (int j = 0; j < 4; ++j) hash = (hash ^ (bits >> (8 * j) & 0xffu)) * 0x100000001b3u;
        }
    }
    return hash;
}

} // namespace

TEST(CosModTablesChecksum, AreTheSameInEveryBuild)
{
    // The same for every compiler, optimisation level and C library. A cosine that the compiler computes changes it.
    cosModTablesInit();
    EXPECT_EQ(checksum({dct4Table64, dct4Table32, dct3Table32, dct3Table16, dct4Table16}), 0x27c89db3ee4350bu);
}
