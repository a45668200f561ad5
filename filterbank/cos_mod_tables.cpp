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

/// Pi in single precision. Volatile, because the last bit of an entry is that of the C library's cosine at run time: a
/// compiler that knows the angle may replace the call by its own value, which differs by an ulp in places.
const volatile float kPi = 3.14159274f;

/// Stores an entry that is not there yet. What is right is not written again, so that filling tables that are full is
/// no race with the transforms that read them.
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

/// The angles of the tables at which cosf of the GNU C library does not give the nearest single-precision number but
/// the one beside it: the same ones on every processor. At all other angles of the tables it gives the nearest.
constexpr Cosine kNotNearest[] = {
    {0x1.0e2d4ep+0f, 0x1.f8ba4cp-2f}, {0x1.59934p+0f, 0x1.c0b826p-3f},  {0x1.fcf022p+2f, -0x1.917a92p-4f},
    {0x1.5a5c5p+3f, -0x1.5e212ep-3f}, {0x1.b7d2bp+3f, 0x1.87ddf8p-2f},  {0x1.bfad4ep+3f, 0x1.2c80bcp-3f},
    {0x1.4dfd96p+5f, -0x1.3affap-1f}, {0x1.66243ep+5f, 0x1.6a09ccp-1f}, {0x1.4dfd96p+6f, -0x1.f19fbcp-3f},
};

/// The cosine that the tables hold: that of the GNU C library's cosf, with other C libraries too. Theirs may be off in
/// the last place where that one is not, which their cosine in double precision tells.
float cosine(float angle)
{
    for (const Cosine& known : kNotNearest)
        if (known.angle == angle) return known.value;
    const float value = std::cos(angle);
    const auto nearest = static_cast<float>(std::cos(static_cast<double>(angle)));
    return value == nearest ? value : nearest;
}

/// Columns counted from 0 (j) or in odd halves (2j + 1).
enum class Column
{
    Whole,
    OddHalf
};

/// Row i of every table: 2i + 1.
float oddFactor(int i)
{
    const auto value = static_cast<float>(i);
    return value + value + 1.0f;
}

/// cos(pi * column * row / denominator), the angle formed left to right in single precision.
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

/// 1 / (2 cos(pi * row / denominator)): the angle in single precision, all else in double, rounded once.
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

/// -1 / (2 sin(pi * row / denominator)), formed as the cosine scale.
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
    block = fillMatrix(block, h, Column::OddHalf, 2.0f * size);
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

/// Cuts scales into octets, every second one backwards.
template <std::size_t kOctets>
void cutScale(const float* scale, float (&octets)[kOctets][8])
{
    for (std::size_t c = 0; c < kOctets; ++c)
        for (std::size_t i = 0; i < 8; ++i) store(octets[c][i], scale[8 * c + (c % 2 == 0 ? i : 7 - i)]);
}

void copyScale(const float* scale, float (&octet)[8])
{
    for (std::size_t i = 0; i < 8; ++i) store(octet[i], scale[i]);
}

/// The scales of a block of size n stand behind its two matrices.
const float* scalesOf(const float* block, int n)
{
    return block + n * n / 2;
}

void fillTransformTables(zrk_tarn::TransformTables& tables)
{
    transpose(dct3Table16, tables.dct3Columns);
    transpose(dct4Table16, tables.dct4Columns);
    copyScale(scalesOf(dct3Table16, 16), tables.dct3Scale16);
    cutScale(scalesOf(dct3Table32, 32), tables.dct3Scale32);
    for (int s = 0; s < 2; ++s) {
        copyScale(scalesOf(dct4Table16, 16) + 8 * s, tables.dct4Scale16[s]);
        cutScale(scalesOf(dct4Table32, 32) + 16 * s, tables.dct4Scale32[s]);
        cutScale(scalesOf(dct4Table64, 64) + 32 * s, tables.dct4Scale64[s]);
    }
}

/// cosModTablesInit in the floating-point environment that it finds.
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
