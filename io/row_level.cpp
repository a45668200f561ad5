// Measures a row.
// SPDX-License-Identifier: MIT
#include "io/row_level.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

RowLevel measureRow(const std::int32_t (&row)[64]) noexcept
{
    std::int32_t highest = row[0];
    std::int32_t lowest = row[0];
    for (const std::int32_t sample : row) {
        highest = sample > highest ? sample : highest;
        lowest = sample < lowest ? sample : lowest;
    }
    double sums[8]{}; // side by side, for vectors
    for (int i = 0; i < 64; i += 8) {
        for (int k = 0; k < 8; ++k) {
            const auto sample = static_cast<double>(row[i + k]);
            sums[k] += sample * sample;
        }
    }
    const double squares = ((sums[0] + sums[4]) + (sums[1] + sums[5])) + ((sums[2] + sums[6]) + (sums[3] + sums[7]));
    return {highest, lowest, squares};
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
