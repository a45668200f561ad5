// The recursive filters of the bass crossover.
// SPDX-License-Identifier: MIT
#include "room/bass_filters.h"

#include "lanes/lanes.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

/// States below it become 0. They are inaudible and would decay to subnormal numbers, which are slow.
constexpr double kTrace = 0x1p-60;

constexpr double kHalfPower = 0.70710678118654752; ///< sqrt(1/2)

/// States below kTrace become 0.
template <int kCount>
[[gnu::always_inline]] inline Doubles<kCount> withoutTraces(const Doubles<kCount>& state) noexcept
{
    return select(abs(state) < broadcast<kCount>(kTrace), broadcast<kCount>(0.0), state);
}

/// Sections in the lanes of vectors.
template <int kCount>
struct Sections
{
    using Values = Doubles<kCount>;

    [[gnu::always_inline]] Values filter(const Values& x) noexcept
    {
        const Values scaled = b0 * x;
        const Values y = scaled + s1;
        s1 = b1 * x - a1 * y + s2;
        s2 = scaled - a2 * y;
        return y;
    }

    Values b0, b1, a1, a2;
    Values s1, s2;
};

/// Leaves filtered values as they are.
struct NoFade
{
    template <typename Values>
    [[gnu::always_inline]] Values of(std::size_t /*i*/, const double* /*plain*/, const Values& filtered) const noexcept
    {
        return filtered;
    }
};

/// Fades between a row before and after its filter.
struct Fade
{
    /// The values from frame i on.
    ///
    /// plain  frame i of the row before the filter
    template <int kCount>
    [[gnu::always_inline]] Doubles<kCount> of(std::size_t i, const double* plain,
                                              const Doubles<kCount>& filtered) const noexcept
    {
        const Doubles<kCount> before = load<kCount>(plain);
        return before + load<kCount>(share + i) * (filtered - before);
    }

    [[gnu::always_inline]] double of(std::size_t i, const double* plain, double filtered) const noexcept
    {
        return *plain + share[i] * (filtered - *plain);
    }

    const UnroundedRow& share; ///< of the filtered row
};

// The signals of a group of filters. get returns two frames of each: those of even and of odd signals, two neighbouring
// lanes per signal. put takes them filtered.

/// Left and right of the stereo, front left and front right.
template <typename RowFade>
struct FrontPair
{
    static constexpr int kCount = 4;

    [[gnu::always_inline]] LanePair<double, 4> get(std::size_t i) const noexcept
    {
        const Doubles<2> half = broadcast<2>(kHalfPower);
        return {joined(half * loadAsDoubles(left + i), load<2>(fronts[0] + i)),
                joined(half * loadAsDoubles(right + i), load<2>(fronts[1] + i))};
    }

    [[gnu::always_inline]] void put(std::size_t i, const LanePair<double, 4>& filtered) const noexcept
    {
        addBass(i, fronts[0], filtered.even);
        addBass(i, fronts[1], filtered.odd);
    }

    const Row& left;
    const Row& right;
    UnroundedRow* fronts;
    const UnroundedRow& bassShare;
    RowFade fade;

private:
    /// filtered  the bass, then the front
    [[gnu::always_inline]] void addBass(std::size_t i, UnroundedRow& front, const Doubles<4>& filtered) const noexcept
    {
        store(front + i, fade.of(i, front + i, highHalf(filtered)) + load<2>(bassShare + i) * lowHalf(filtered));
    }
};

/// A pair of surround channels.
template <typename RowFade>
struct SurroundPair
{
    static constexpr int kCount = 2;

    [[gnu::always_inline]] LanePair<double, 2> get(std::size_t i) const noexcept
    {
        return {load<2>(rows[0] + i), load<2>(rows[1] + i)};
    }

    [[gnu::always_inline]] void put(std::size_t i, const LanePair<double, 2>& filtered) const noexcept
    {
        store(rows[0] + i, fade.of(i, rows[0] + i, filtered.even));
        store(rows[1] + i, fade.of(i, rows[1] + i, filtered.odd));
    }

    UnroundedRow* rows;
    RowFade fade;
};

/// Two pairs of surround channels.
template <typename RowFade>
struct SurroundPairs
{
    static constexpr int kCount = 4;

    [[gnu::always_inline]] LanePair<double, 4> get(std::size_t i) const noexcept
    {
        const LanePair<double, 2> a = first.get(i);
        const LanePair<double, 2> b = second.get(i);
        return {joined(a.even, b.even), joined(a.odd, b.odd)};
    }

    [[gnu::always_inline]] void put(std::size_t i, const LanePair<double, 4>& filtered) const noexcept
    {
        first.put(i, {lowHalf(filtered.even), lowHalf(filtered.odd)});
        second.put(i, {highHalf(filtered.even), highHalf(filtered.odd)});
    }

    SurroundPair<RowFade> first;
    SurroundPair<RowFade> second;
};

/// Filters side by side, one per lane: a vector for the first and one for the second section of all of them.
template <typename Signals>
class Group
{
public:
    using Values = Doubles<Signals::kCount>;

    /// first  number of the first filter
    [[gnu::always_inline]] Group(BassFilters& allFilters, std::size_t first, const Signals& groupSignals) noexcept
        : filters(allFilters), place(first), signals(groupSignals)
    {
        for (std::size_t number = 0; number < 2; ++number)
            section[number] = {load<Signals::kCount>(filters.b0 + place),
                               load<Signals::kCount>(filters.b1 + place),
                               load<Signals::kCount>(filters.a1 + place),
                               load<Signals::kCount>(filters.a2 + place),
                               load<Signals::kCount>(filters.first[number] + place),
                               load<Signals::kCount>(filters.second[number] + place)};
    }

    [[gnu::always_inline]] void filterFrames(std::size_t i) noexcept
    {
        const auto given = signals.get(i);
        const auto frames = transposedPairs(given.even, given.odd);
        const Values first = filter(frames.even);
        const Values second = filter(frames.odd);
        signals.put(i, transposedPairs(first, second));
    }

    [[gnu::always_inline]] void finish() noexcept
    {
        for (std::size_t number = 0; number < 2; ++number) {
            store(filters.first[number] + place, withoutTraces(section[number].s1));
            store(filters.second[number] + place, withoutTraces(section[number].s2));
        }
    }

private:
    [[gnu::always_inline]] Values filter(const Values& frame) noexcept
    {
        return section[1].filter(section[0].filter(frame));
    }

    Sections<Signals::kCount> section[2];
    BassFilters& filters;
    std::size_t place; ///< of the first filter
    Signals signals;
};

/// One filter, with both sections in a vector: the second one is a frame behind.
template <typename RowFade>
class Cascade
{
public:
    using Values = Doubles<2>;

    [[gnu::always_inline]] Cascade(BassFilters& allFilters, std::size_t number, UnroundedRow& filteredRow,
                                   const RowFade& rowFade) noexcept
        : sections{broadcast<2>(allFilters.b0[number]),
                   broadcast<2>(allFilters.b1[number]),
                   broadcast<2>(allFilters.a1[number]),
                   broadcast<2>(allFilters.a2[number]),
                   pair(allFilters.first[0][number], allFilters.first[1][number]),
                   pair(allFilters.second[0][number], allFilters.second[1][number])},
          filters(allFilters),
          place(number),
          row(filteredRow),
          fade(rowFade)
    {}

    [[gnu::always_inline]] void filterFrames(std::size_t i) noexcept
    {
        if (i == 0) {
            const Values s1 = sections.s1;
            const Values s2 = sections.s2;
            filterBoth(row[0]);
            sections.s1 = firstOf(sections.s1, s1);
            sections.s2 = firstOf(sections.s2, s2);
        } else {
            filterBoth(row[i]);
            put(i - 1);
        }
        filterBoth(row[i + 1]);
        put(i);
    }

    [[gnu::always_inline]] void finish() noexcept
    {
        const Values s1 = sections.s1;
        const Values s2 = sections.s2;
        filterBoth(0.0);
        put(kBlockFrames - 1);
        storeState(filters.first, firstOf(s1, sections.s1));
        storeState(filters.second, firstOf(s2, sections.s2));
    }

private:
    [[gnu::always_inline]] void filterBoth(double x) noexcept
    {
        y = sections.filter({{__builtin_shufflevector(Values::Part{x, x}, y.part[0], 0, 2)}});
    }

    [[gnu::always_inline]] void put(std::size_t i) noexcept { row[i] = fade.of(i, row + i, y.part[0][1]); }

    [[gnu::always_inline]] static Values pair(double first, double second) noexcept
    {
        return {{Values::Part{first, second}}};
    }

    /// Lane 0 of a and lane 1 of b.
    [[gnu::always_inline]] static Values firstOf(const Values& a, const Values& b) noexcept
    {
        return {{__builtin_shufflevector(a.part[0], b.part[0], 0, 3)}};
    }

    [[gnu::always_inline]] void storeState(double (&state)[2][BassFilters::kMaxFilters],
                                           const Values& values) const noexcept
    {
        const Values stored = withoutTraces(values);
        state[0][place] = stored.part[0][0];
        state[1][place] = stored.part[0][1];
    }

    Sections<2> sections;
    BassFilters& filters;
    std::size_t place; ///< of the filter
    UnroundedRow& row;
    RowFade fade;
    Values y = broadcast<2>(row[0]); ///< before the first frame any value: nothing of the second lane is kept
};

/// Filters a block. The groups stay in registers.
template <typename... Groups>
[[gnu::always_inline]] inline void filterBlock(Groups... groups) noexcept
{
    (groups.filterFrames(0), ...); // apart, so that the loop has no branch for the first frame
    for (std::size_t i = 2; i < kBlockFrames; i += 2) (groups.filterFrames(i), ...);
    (groups.finish(), ...);
}

template <typename RowFade>
void moveBass(BassFilters& filters, const CrossoverBlock& block, const RowFade& fade) noexcept
{
    const Group fronts(filters, BassFilters::kFronts,
                       FrontPair<RowFade>{block.left, block.right, block.fronts, block.share, fade});
    const Cascade centre(filters, BassFilters::kCentre, block.fronts[2], fade);
    const SurroundPair<RowFade> first{block.surrounds, fade};
    if (block.count == 0) {
        filterBlock(fronts, centre);
    } else if (block.count == 2) {
        filterBlock(fronts, centre, Group(filters, BassFilters::kSurrounds, first));
    } else {
        filterBlock(
            fronts, centre,
            Group(filters, BassFilters::kSurrounds, SurroundPairs<RowFade>{first, {block.surrounds + 2, fade}}));
    }
}

} // namespace

void moveBass(BassFilters& filters, const CrossoverBlock& block) noexcept
{
    if (block.isFading) {
        moveBass(filters, block, Fade{block.share});
    } else {
        moveBass(filters, block, NoFade{});
    }
}

void filterRow(BassFilters& filters, UnroundedRow& row) noexcept
{
    filterBlock(Cascade(filters, 0, row, NoFade{}));
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
