// The filters and sums of the stereo analysis, vectorised over bands.
// SPDX-License-Identifier: MIT
#include "cli/stereo_record.h"
#include "lanes/lanes.h"

// Compiled once per instruction set, like the stages of the engine; see lanes/lanes.h.

namespace tarn::TARN_INSTRUCTION_SET
{

namespace
{

using namespace zrk_tarn::TARN_INSTRUCTION_SET;

/// Filters and sums of neighbouring bands. The lower half of the lanes is left, the upper half right.
template <int kWidth>
class Bands
{
public:
    [[gnu::always_inline]] Bands(const StereoRecord& record, int firstBand) noexcept
        : band(firstBand),
          first(record, 0, firstBand),
          second(record, 1, firstBand),
          third(record, 2, firstBand),
          squares(loadSides(record.bandSums[0] + firstBand, record.bandSums[1] + firstBand)),
          sum(load<kWidth>(record.bandSums[2] + firstBand)),
          difference(load<kWidth>(record.bandSums[3] + firstBand))
    {}

    [[gnu::always_inline]] void processFrame(const double* frame) noexcept
    {
        const Both in = joined(broadcast<kWidth>(frame[0]), broadcast<kWidth>(frame[1]));
        const Both out = third.filtered(second.filtered(first.filtered(in)));
        const Doubles<kWidth> left = lowHalf(out);
        const Doubles<kWidth> right = highHalf(out);
        squares = squares + out * out;
        sum = sum + (left + right) * (left + right);
        difference = difference + (left - right) * (left - right);
    }

    [[gnu::always_inline]] void storeTo(StereoRecord& record) const noexcept
    {
        first.storeTo(record, 0, band);
        second.storeTo(record, 1, band);
        third.storeTo(record, 2, band);
        store(record.bandSums[0] + band, lowHalf(squares));
        store(record.bandSums[1] + band, highHalf(squares));
        store(record.bandSums[2] + band, sum);
        store(record.bandSums[3] + band, difference);
    }

private:
    using Both = Doubles<2 * kWidth>;

    /// A second-order filter section. Its states are negated, which saves a negation per sample.
    struct Section
    {
        [[gnu::always_inline]] Section(const StereoRecord& record, int section, int band) noexcept
            : gain(loadBoth(record.gain[section] + band)),
              a1(loadBoth(record.a1[section] + band)),
              a2(loadBoth(record.a2[section] + band)),
              state1(loadSides(record.state1[0][section] + band, record.state1[1][section] + band)),
              state2(loadSides(record.state2[0][section] + band, record.state2[1][section] + band))
        {}

        [[gnu::always_inline]] Both filtered(const Both& x) noexcept
        {
            const Both in = gain * x;
            const Both out = in - state1;
            state1 = state2 + a1 * out;
            state2 = in + a2 * out;
            return out;
        }

        // cppcheck-suppress constParameter ; it is written to
        [[gnu::always_inline]] void storeTo(StereoRecord& record, int section, int place) const noexcept
        {
            store(record.state1[0][section] + place, lowHalf(state1));
            store(record.state1[1][section] + place, highHalf(state1));
            store(record.state2[0][section] + place, lowHalf(state2));
            store(record.state2[1][section] + place, highHalf(state2));
        }

        Both gain;
        Both a1;
        Both a2;
        Both state1;
        Both state2;
    };

    [[gnu::always_inline]] static Both loadSides(const double* left, const double* right) noexcept
    {
        return joined(load<kWidth>(left), load<kWidth>(right));
    }

    [[gnu::always_inline]] static Both loadBoth(const double* values) noexcept { return loadSides(values, values); }

    int band;
    Section first;
    Section second;
    Section third;
    Both squares;
    Doubles<kWidth> sum;
    Doubles<kWidth> difference;
};

/// Sums of the whole signal after the high-pass, and the peak. Lanes are left and right.
class Overall
{
public:
    [[gnu::always_inline]] explicit Overall(const StereoRecord& record) noexcept
        : highPassPole(broadcast<2>(record.highPassPole)),
          previous(load<2>(record.previous)),
          highPass(load<2>(record.highPass)),
          squares(load<2>(record.totalSums)),
          mixedSquares(load<2>(record.totalSums + 2)),
          largest(broadcast<2>(record.largest))
    {}

    [[gnu::always_inline]] void processFrame(const double* frame) noexcept
    {
        constexpr double kSigns[2] = {1.0, -1.0};
        const Doubles<2> now = load<2>(frame);
        highPass = highPassPole * highPass + now - previous;
        previous = now;
        squares = squares + highPass * highPass;
        // left + right, right - left
        const Doubles<2> mixed = highPass + reversed(highPass) * load<2>(kSigns);
        mixedSquares = mixedSquares + mixed * mixed;
        const Doubles<2> magnitude = abs(now);
        largest = select(largest < magnitude, magnitude, largest);
    }

    [[gnu::always_inline]] void storeTo(StereoRecord& record) const noexcept
    {
        store(record.previous, previous);
        store(record.highPass, highPass);
        store(record.totalSums, squares);
        store(record.totalSums + 2, mixedSquares);
        double sides[2];
        store(sides, largest);
        record.largest = sides[0] < sides[1] ? sides[1] : sides[0];
    }

private:
    Doubles<2> highPassPole;
    Doubles<2> previous;
    Doubles<2> highPass;
    Doubles<2> squares;
    Doubles<2> mixedSquares;
    Doubles<2> largest;
};

/// Processes all frames with parts of the record in registers.
template <typename... Part>
[[gnu::always_inline]] inline void processAll(StereoRecord& record, const double* stereo, std::size_t frames,
                                              Part... part) noexcept
{
    for (std::size_t i = 0; i < frames; ++i) (part.processFrame(stereo + 2 * i), ...);
    (part.storeTo(record), ...);
}

} // namespace

extern const MeasureStereo kMeasureStereo = [](StereoRecord& record, const double* stereo,
                                               std::size_t frames) noexcept {
    constexpr int kMaxWidth = kVectorBytes / static_cast<int>(sizeof(double));
    constexpr int kLast = StereoRecord::kBands - 2;
    for (int band = 0; band < kLast; band += kMaxWidth)
        processAll(record, stereo, frames, Bands<kMaxWidth>(record, band));
    // The two parts with long dependency chains run together.
    processAll(record, stereo, frames, Bands<2>(record, kLast), Overall(record));
};

} // namespace tarn::TARN_INSTRUCTION_SET
