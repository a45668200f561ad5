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

/// Filters side by side, one per lane: a vector for the first and one for the second section of all of them.
template <int kCount>
class Group
{
public:
    using Values = Doubles<kCount>;

    /// first  number of the first filter
    [[gnu::always_inline]] Group(BassFilters& allFilters, UnroundedRow* const* rows, std::size_t first) noexcept
        : filters(allFilters), place(first), row(rows + first)
    {
        for (std::size_t number = 0; number < 2; ++number)
            section[number] = {load<kCount>(filters.b0 + place),
                               load<kCount>(filters.b1 + place),
                               load<kCount>(filters.a1 + place),
                               load<kCount>(filters.a2 + place),
                               load<kCount>(filters.first[number] + place),
                               load<kCount>(filters.second[number] + place)};
    }

    [[gnu::always_inline]] void filterFrame(std::size_t i) noexcept
    {
        const Values y = section[1].filter(section[0].filter(frame(i, typename Values::Parts{})));
        for (std::size_t lane = 0; lane < kCount; ++lane)
            (*row[lane])[i] = y.part[lane / Values::kWidth][lane % Values::kWidth];
    }

    [[gnu::always_inline]] void finish() noexcept
    {
        for (std::size_t number = 0; number < 2; ++number) {
            store(filters.first[number] + place, withoutTraces(section[number].s1));
            store(filters.second[number] + place, withoutTraces(section[number].s2));
        }
    }

private:
    template <int... kPart>
    [[gnu::always_inline]] Values frame(std::size_t i, std::integer_sequence<int, kPart...> /*parts*/) const noexcept
    {
        return {{framePart<kPart * Values::kWidth>(i, std::make_integer_sequence<int, Values::kWidth>{})...}};
    }

    template <int kFirst, int... kLane>
    [[gnu::always_inline]] typename Values::Part
    framePart(std::size_t i, std::integer_sequence<int, kLane...> /*lanes*/) const noexcept
    {
        return typename Values::Part{(*row[kFirst + kLane])[i]...};
    }

    Sections<kCount> section[2];
    BassFilters& filters;
    std::size_t place; ///< of the first filter
    UnroundedRow* const* row;
};

/// One filter, with both sections in a vector: the second one is a frame behind.
class Cascade
{
public:
    using Values = Doubles<2>;

    [[gnu::always_inline]] Cascade(BassFilters& allFilters, UnroundedRow* const* rows, std::size_t number) noexcept
        : sections{broadcast<2>(allFilters.b0[number]),
                   broadcast<2>(allFilters.b1[number]),
                   broadcast<2>(allFilters.a1[number]),
                   broadcast<2>(allFilters.a2[number]),
                   pair(allFilters.first[0][number], allFilters.first[1][number]),
                   pair(allFilters.second[0][number], allFilters.second[1][number])},
          filters(allFilters),
          place(number),
          row(*rows[number])
    {}

    [[gnu::always_inline]] void filterFrame(std::size_t i) noexcept
    {
        const Values s1 = sections.s1;
        const Values s2 = sections.s2;
        filterBoth(row[i]);
        if (i == 0) {
            sections.s1 = firstOf(sections.s1, s1);
            sections.s2 = firstOf(sections.s2, s2);
        } else {
            row[i - 1] = y.part[0][1];
        }
    }

    [[gnu::always_inline]] void finish() noexcept
    {
        const Values s1 = sections.s1;
        const Values s2 = sections.s2;
        filterBoth(0.0);
        row[kBlockFrames - 1] = y.part[0][1];
        storeState(filters.first, firstOf(s1, sections.s1));
        storeState(filters.second, firstOf(s2, sections.s2));
    }

private:
    [[gnu::always_inline]] void filterBoth(double x) noexcept { y = sections.filter(pair(x, y.part[0][0])); }

    [[gnu::always_inline]] static Values pair(double first, double second) noexcept
    {
        return {{Values::Part{first, second}}};
    }

    /// Lane 0 of a and lane 1 of b.
    [[gnu::always_inline]] static Values firstOf(const Values& a, const Values& b) noexcept
    {
        return pair(a.part[0][0], b.part[0][1]);
    }

    [[gnu::always_inline]] void storeState(double (&state)[2][BassFilters::kMaxFilters],
                                           const Values& values) const noexcept
    {
        const Values stored = withoutTraces(values);
        state[0][place] = stored.part[0][0];
        state[1][place] = stored.part[0][1];
    }

    Sections<2> sections;
    Values y = broadcast<2>(0.0);
    BassFilters& filters;
    std::size_t place; ///< of the filter
    UnroundedRow& row;
};

/// Filters a block. The groups stay in registers.
template <typename... Groups>
[[gnu::always_inline]] inline void filterBlock(Groups... groups) noexcept
{
    (groups.filterFrame(0), ...); // apart, so that the loop has no branch for the first frame
    for (std::size_t i = 1; i < kBlockFrames; ++i) (groups.filterFrame(i), ...);
    (groups.finish(), ...);
}

} // namespace

void filterRows(BassFilters& filters, UnroundedRow* const* rows, std::size_t count) noexcept
{
    if (count == 1) {
        filterBlock(Cascade(filters, rows, 0));
    } else if (count == 2) {
        filterBlock(Group<2>(filters, rows, 0));
    } else if (count == 4) {
        filterBlock(Group<4>(filters, rows, 0));
    } else {
        filterBlock(Group<4>(filters, rows, 0), Cascade(filters, rows, 4));
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
