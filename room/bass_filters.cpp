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

/// Neighbouring filters in the lanes of vectors.
template <int kCount>
class Group
{
public:
    using Values = Doubles<kCount>;

    /// first  number of the first filter
    [[gnu::always_inline]] Group(BassFilters& allFilters, UnroundedRow* const* rows, std::size_t first) noexcept
        : b0(load<kCount>(allFilters.b0 + first)),
          b1(load<kCount>(allFilters.b1 + first)),
          a1(load<kCount>(allFilters.a1 + first)),
          a2(load<kCount>(allFilters.a2 + first)),
          filters(allFilters),
          place(first),
          row(rows + first)
    {
        for (std::size_t section = 0; section < 2; ++section) {
            s1[section] = load<kCount>(filters.first[section] + place);
            s2[section] = load<kCount>(filters.second[section] + place);
        }
    }

    [[gnu::always_inline]] void filterFrame(std::size_t i) noexcept
    {
        Values x = frame(i, typename Values::Parts{});
        for (std::size_t section = 0; section < 2; ++section) {
            const Values scaled = b0 * x;
            const Values y = scaled + s1[section];
            s1[section] = b1 * x - a1 * y + s2[section];
            s2[section] = scaled - a2 * y;
            x = y;
        }
        for (std::size_t lane = 0; lane < kCount; ++lane)
            (*row[lane])[i] = x.part[lane / Values::kWidth][lane % Values::kWidth];
    }

    [[gnu::always_inline]] void storeState() const noexcept
    {
        for (std::size_t section = 0; section < 2; ++section) {
            store(filters.first[section] + place, withoutTraces(s1[section]));
            store(filters.second[section] + place, withoutTraces(s2[section]));
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

    static Values withoutTraces(const Values& state) noexcept
    {
        return select(abs(state) < broadcast<kCount>(kTrace), broadcast<kCount>(0.0), state);
    }

    Values b0, b1, a1, a2;
    Values s1[2], s2[2];
    BassFilters& filters;
    std::size_t place; ///< of the first filter
    UnroundedRow* const* row;
};

/// Filters a block. The groups stay in registers.
template <typename... Groups>
[[gnu::always_inline]] inline void filterBlock(Groups... groups) noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) (groups.filterFrame(i), ...);
    (groups.storeState(), ...);
}

} // namespace

void filterRows(BassFilters& filters, UnroundedRow* const* rows, std::size_t count) noexcept
{
    if (count == 2) {
        filterBlock(Group<2>(filters, rows, 0));
    } else if (count == 4) {
        filterBlock(Group<4>(filters, rows, 0));
    } else {
        filterBlock(Group<4>(filters, rows, 0), Group<2>(filters, rows, 4));
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
