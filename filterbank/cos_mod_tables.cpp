// Fills the cosine tables.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "filterbank/transform_tables.h"
#include "lanes/float_environment.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

float dct4Table64[2112];
float dct4Table32[544];
float dct3Table32[528];
float dct3Table16[136];
float dct4Table16[144];
alignas(64) zrk_tarn::TransformTables zrk_tarn::transformTables;

namespace
{

/// Pi in single precision. Volatile, so that the compiler cannot evaluate cosines itself: its results may differ from
/// those of the C library in the last bit.
const volatile float kPi = 3.14159274f;

/// Writes only entries that differ, so refilling cannot race with transforms that read the tables.
void store(float& entry, float value)
{
    if (std::bit_cast<std::uint32_t>(entry) != std::bit_cast<std::uint32_t>(value)) entry = value;
}

/// An angle, in single precision, and its cosine.
struct Cosine
{
    float angle;
    float value;
};

/// The table angles at which cosf of the GNU C library is not correctly rounded, on all processors. At all other table
/// angles it is.
constexpr Cosine kIncorrectlyRounded[] = {
    {0x1.0e2d4ep+0f, 0x1.f8ba4cp-2f}, {0x1.59934p+0f, 0x1.c0b826p-3f},  {0x1.fcf022p+2f, -0x1.917a92p-4f},
    {0x1.5a5c5p+3f, -0x1.5e212ep-3f}, {0x1.b7d2bp+3f, 0x1.87ddf8p-2f},  {0x1.bfad4ep+3f, 0x1.2c80bcp-3f},
    {0x1.4dfd96p+5f, -0x1.3affap-1f}, {0x1.66243ep+5f, 0x1.6a09ccp-1f}, {0x1.4dfd96p+6f, -0x1.f19fbcp-3f},
};

/// The result of the GNU C library's cosf, also with other C libraries. Where their cosf differs from the rounded
/// double cosine, the latter is correct.
float cosine(float angle)
{
    for (const Cosine& known : kIncorrectlyRounded)
        if (known.angle == angle) return known.value;
    const float value = std::cos(angle);
    const auto nearest = static_cast<float>(std::cos(static_cast<double>(angle)));
    return value == nearest ? value : nearest;
}

/// The factor of a column's angle: j or 2j + 1.
enum class Column
{
    Whole,
    Odd
};

/// The factor 2i + 1, exact.
float oddFactor(int i)
{
    const auto value = static_cast<float>(i);
    return value + value + 1.0f;
}

/// cos(pi * column * row / denominator); the angle is computed left to right in single precision.
float* fillMatrix(float* entry, int h, Column kind, float denominator)
{
    const float pi = kPi;
    const float reciprocal = 1.0f / denominator;
    for (int i = 0; i < h; ++i) {
        for (int j = 0; j < h; ++j) {
            const float column = kind == Column::Whole ? static_cast<float>(j) : oddFactor(j);
            store(*entry++, cosine(column * oddFactor(i) * pi * reciprocal));
        }
    }
    return entry;
}

/// 1 / (2 cos(pi * row / denominator)); the angle in single precision, the rest in double, rounded once.
float* fillCosineScale(float* entry, int h, float denominator)
{
    const float pi = kPi;
    const float reciprocal = 1.0f / denominator;
    for (int i = 0; i < h; ++i) {
        const float angle = oddFactor(i) * pi * reciprocal;
        store(*entry++, static_cast<float>(1.0 / (2.0 * std::cos(static_cast<double>(angle)))));
    }
    return entry;
}

/// -1 / (2 sin(pi * row / denominator)), with the precision of the cosine scale.
float* fillSineScale(float* entry, int h, float denominator)
{
    const float pi = kPi;
    const float reciprocal = 1.0f / denominator;
    for (int i = 0; i < h; ++i) {
        const float angle = oddFactor(i) * pi * reciprocal;
        store(*entry++, static_cast<float>(-1.0 / (2.0 * std::sin(static_cast<double>(angle)))));
    }
    return entry;
}

/// C1, C2, S1, S2 of a DCT-IV of size n.
void fillDct4Block(float* block, int n)
{
    const int h = n / 2;
    const auto size = static_cast<float>(n);
    block = fillMatrix(block, h, Column::Odd, 2.0f * size);
    block = fillMatrix(block, h, Column::Whole, size);
    block = fillCosineScale(block, h, 4.0f * size);
    fillSineScale(block, h, 4.0f * size);
}

/// Me, Mo, S of a DCT-III of size n.
void fillDct3Block(float* block, int n)
{
    const int h = n / 2;
    const auto size = static_cast<float>(n);
    block = fillMatrix(block, h, Column::Whole, size);
    block = fillMatrix(block, h, Column::Whole, size);
    fillCosineScale(block, h, 2.0f * size);
}

void transpose(const float* matrix, float (&columns)[8][8])
{
    for (int i = 0; i < 8; ++i)
        for (int j = 0; j < 8; ++j) store(columns[j][i], matrix[8 * i + j]);
}

/// Splits scales into octets and reverses every second one.
template <std::size_t kOctets>
void splitScale(const float* scale, float (&octets)[kOctets][8])
{
    for (std::size_t c = 0; c < kOctets; ++c)
        for (std::size_t i = 0; i < 8; ++i) store(octets[c][i], scale[8 * c + (c % 2 == 0 ? i : 7 - i)]);
}

void copyScale(const float* scale, float (&octet)[8])
{
    for (std::size_t i = 0; i < 8; ++i) store(octet[i], scale[i]);
}

/// The scales of a block of size n, which follow its two matrices.
const float* scalesOf(const float* block, int n)
{
    return block + n * n / 2;
}

void fillTransformTables(zrk_tarn::TransformTables& tables)
{
    transpose(dct3Table16, tables.dct3Columns);
    transpose(dct4Table16, tables.dct4Columns);
    copyScale(scalesOf(dct3Table16, 16), tables.dct3Scale16);
    splitScale(scalesOf(dct3Table32, 32), tables.dct3Scale32);
    for (int s = 0; s < 2; ++s) {
        copyScale(scalesOf(dct4Table16, 16) + 8 * s, tables.dct4Scale16[s]);
        splitScale(scalesOf(dct4Table32, 32) + 16 * s, tables.dct4Scale32[s]);
        splitScale(scalesOf(dct4Table64, 64) + 32 * s, tables.dct4Scale64[s]);
    }
}

/// cosModTablesInit without the change of the floating-point environment.
[[gnu::noinline]] void fillTables()
{
    fillDct4Block(dct4Table64, 64);
    fillDct4Block(dct4Table32, 32);
    fillDct3Block(dct3Table32, 32);
    fillDct3Block(dct3Table16, 16);
    fillDct4Block(dct4Table16, 16);
    fillTransformTables(zrk_tarn::transformTables);
}

} // namespace

void cosModTablesInit()
{
    const zrk_tarn::DefaultFloatEnvironment environment;
    fillTables();
}
