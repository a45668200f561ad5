#include "filterbank/cos_mod.h"

#include <cmath>

float dct4Table64[2112];
float dct4Table32[544];
float dct3Table32[528];
float dct3Table16[136];
float dct4Table16[144];

namespace
{

/// Pi in single precision. Volatile, because the last bit of an entry is that of the C library's cosine at run time: a
/// compiler that knows the angle may replace the call by its own value, which differs by an ulp in places.
const volatile float kPi = 3.14159274f;

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
            *entry++ = std::cos(column * oddFactor(i) * pi * reciprocal);
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
        *entry++ = static_cast<float>(1.0 / (2.0 * std::cos(static_cast<double>(angle))));
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
        *entry++ = static_cast<float>(-1.0 / (2.0 * std::sin(static_cast<double>(angle))));
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

} // namespace

void cosModTablesInit()
{
    fillDct4Block(dct4Table64, 64);
    fillDct4Block(dct4Table32, 32);
    fillDct3Block(dct3Table32, 32);
    fillDct3Block(dct3Table16, 16);
    fillDct4Block(dct4Table16, 16);
}
