// Tests that process accesses only the buffer and writes only slots with a role.
// SPDX-License-Identifier: MIT
#include "host/zrk_tarn_processor.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

namespace tests
{

namespace
{

constexpr std::uint32_t kMaxFrames = 5000;
constexpr std::uint32_t kMaxSlots = 12;
constexpr std::uint32_t kMaxBytes = 8;

/// Memory between two inaccessible pages.
class GuardedPages
{
public:
    GuardedPages()
    {
        const std::size_t page = pageSize();
        size = (std::size_t{kMaxFrames} * kMaxSlots * kMaxBytes + page - 1) / page * page;
        void* const mapped = mmap(nullptr, size + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) throw std::bad_alloc();
        first = static_cast<std::uint8_t*>(mapped) + page;
        if (mprotect(first, size, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
    }

    ~GuardedPages() { munmap(first - pageSize(), size + 2 * pageSize()); }

    GuardedPages(const GuardedPages&) = delete;
    GuardedPages& operator=(const GuardedPages&) = delete;

    /// A buffer that starts after the first guard page, or ends before the second.
    std::uint8_t* atBegin() { return first; }
    std::uint8_t* atEnd(std::size_t bytes) { return first + size - bytes; }

private:
    static std::size_t pageSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

    std::uint8_t* first = nullptr;
    std::size_t size = 0;
};

/// The arguments of a call.
struct Call
{
    std::uint32_t frames;
    std::uint32_t slots;
    std::uint32_t rateHz;
    std::uint32_t bits;
    audio_channel_assignment_t assignment;

    std::size_t sampleBytes() const { return (bits + 7) / 8; }
    std::size_t bytes() const { return std::size_t{frames} * slots * sampleBytes(); }
};

Call randomCall(Random& random)
{
    constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000, 176400, 8000, 1, 0, ~0u};
    constexpr std::uint32_t kCodes[] = {0x2000,  0x4000,  0x200,   0x8000,     0x10000, 0x1000,
                                        0x40000, 0x80000, 0x20000, 0x80000000, 1,       0};
    Call call{};
    call.frames = random.chance(4) ? random.below(kMaxFrames + 1) : random.below(200);
    call.slots = random.chance(10) ? 9 + random.below(kMaxSlots - 8) : random.chance(3) ? 8 : 1 + random.below(8);
    call.rateHz = random.oneOf(kRatesHz);
    call.bits = random.chance(2) ? 9 + random.below(24) : random.below(65);
    for (std::uint32_t& code : call.assignment.code) code = random.oneOf(kCodes);
    if (random.chance(2)) {
        std::uint32_t roles[8] = {0x2000, 0x4000, 0x200, 0x40000, 0x80000, 0, 7, 0x2000};
        for (std::uint32_t i = 0; i < 8; ++i) std::swap(roles[i], roles[i + random.below(8 - i)]);
        std::memcpy(call.assignment.code, roles, sizeof roles);
    }
    return call;
}

/// The slots that a call may write; empty if it cannot be processed.
std::set<std::size_t> writableSlots(const Call& call)
{
    if (call.slots > 8 || call.sampleBytes() < 2 || call.sampleBytes() > 4) return {};
    const auto slotOf = [&](std::initializer_list<std::uint32_t> codes) {
        const auto* const end = call.assignment.code + call.slots;
        return static_cast<std::size_t>(std::find_first_of(call.assignment.code, end, codes.begin(), codes.end()) -
                                        call.assignment.code);
    };
    std::set<std::size_t> slots{slotOf({0x2000, 0x8000}), slotOf({0x4000, 0x10000})};
    const std::size_t auxA = slotOf({0x40000});
    const std::size_t auxB = slotOf({0x80000});
    if (call.slots == 8 && auxA != call.slots && auxB != call.slots) {
        slots.insert({auxA, auxB});
    } else {
        slots.insert(slotOf({0x200, 0x1000}));
    }
    return slots.contains(call.slots) ? std::set<std::size_t>{} : slots;
}

/// Whether all slots but the writable ones are unchanged.
testing::AssertionResult sameElsewhere(const Call& call, const std::uint8_t* before, const std::uint8_t* after)
{
    const std::set<std::size_t> writable = writableSlots(call);
    const std::size_t size = call.sampleBytes();
    for (std::size_t slot = 0; slot < call.slots; ++slot) {
        if (writable.contains(slot)) continue;
        for (std::size_t i = 0; i < call.frames; ++i) {
            const std::size_t at = (i * call.slots + slot) * size;
            if (std::memcmp(before + at, after + at, size) != 0)
                return testing::AssertionFailure() << "slot " << slot << ", frame " << i << " was written";
        }
    }
    return testing::AssertionSuccess();
}

} // namespace

class Borders : public testing::TestWithParam<int>
{};

TEST_P(Borders, OtherSlotsAndMemoryOutsideTheBufferStayUnchanged)
{
    Random random(static_cast<std::uint64_t>(GetParam()));
    GuardedPages pages;
    std::vector<std::uint8_t> before;
    std::uint32_t written = 0;
    std::uint32_t unprocessed = 0;
    zrk_tarn_processor_t processor;
    for (int number = 0; number < 200 && !HasFailure(); ++number) {
        const Call call = randomCall(random);
        SCOPED_TRACE(testing::Message() << "seed " << GetParam() << ", call " << number << ": " << call.frames
                                        << " frames, " << call.slots << " slots, " << call.rateHz << " Hz, "
                                        << call.bits << " bits");
        if (random.chance(5)) processor.setup(static_cast<std::int32_t>(random.below(4)), 0, 1.0f);
        unsigned gains[3][4];
        for (auto& row : gains)
            for (unsigned& gain : row) gain = random.bits();
        processor.set_remap_coeff(gains);

        std::uint8_t* const buffer = random.chance(2) ? pages.atBegin() : pages.atEnd(call.bytes());
        std::generate_n(buffer, call.bytes(), [&] { return static_cast<std::uint8_t>(random.bits()); });
        before.assign(buffer, buffer + call.bytes());
        auto assignment = call.assignment;
        processor.process(buffer, call.frames, call.slots, call.rateHz, call.bits, &assignment);

        EXPECT_TRUE(sameElsewhere(call, before.data(), buffer));
        EXPECT_EQ(0, std::memcmp(&assignment, &call.assignment, sizeof assignment)) << "the assignment was written";
        const bool same = std::equal(before.begin(), before.end(), buffer);
        if (!same) ++written;
        if (writableSlots(call).empty()) ++unprocessed;
    }
    EXPECT_GT(written, 20u);
    EXPECT_GT(unprocessed, 20u);
}

INSTANTIATE_TEST_SUITE_P(Seed, Borders, testing::Range(1, 9));

} // namespace tests
