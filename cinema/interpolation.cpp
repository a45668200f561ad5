#include "cinema/interpolation.h"

namespace zrk_tarn
{

namespace
{

/// A place between two neighbouring grid points; weight 0 is the first of them, 1 the second.
struct Span
{
    int from;
    int to;
    float weight;
};

/// Columns run left, middle, right: from the middle to the left, or from the right to the middle.
Span columnsAround(float x) noexcept
{
    return x >= 0.0f ? Span{1, 0, x} : Span{2, 1, 1.0f + x};
}

/// Rows run front, middle, back: from the middle to the front, or from the back to the middle.
Span rowsAround(float y) noexcept
{
    return y >= 0.0f ? Span{1, 0, y} : Span{2, 1, 1.0f + y};
}

} // namespace

void interpolateMatrices(ZRKTarn& engine) noexcept
{
    for (int g = 0; g < 16; ++g) {
        const Span column = columnsAround(engine.lrSlower[g]);
        const Span row = rowsAround(engine.fbSlower[g]);

        // The matrices at the four corners of the quadrant.
        const float* const nearFrom = engine.regionMatrix[3 * row.to + column.from];
        const float* const nearTo = engine.regionMatrix[3 * row.to + column.to];
        const float* const farFrom = engine.regionMatrix[3 * row.from + column.from];
        const float* const farTo = engine.regionMatrix[3 * row.from + column.to];
        for (int j = 0; j < 6; ++j) {
            const float p = nearFrom[j] - (nearFrom[j] - nearTo[j]) * column.weight;
            const float q = farFrom[j] - (farFrom[j] - farTo[j]) * column.weight;
            engine.groupMatrix[g][j] = q + (p - q) * row.weight;
        }
    }
}

} // namespace zrk_tarn
