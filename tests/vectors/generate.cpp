// Prints host-sessions.txt.
// SPDX-License-Identifier: MIT
#include "tests/vectors/vector_host.h"

#include <array>
#include <bit>
#include <cstdio>
#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>

namespace
{

using tests::SplitMix;

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
constexpr const char* kSignals[] = {"silence", "noise", "centre", "opposite", "left",   "right", "moving", "low",
                                    "mid",     "high",  "steady", "impulses", "square", "rails", "raw"};

constexpr std::uint32_t kUnity = 0x10000000;

/// Assignments. Slots without a role hold noise, which must not change.
constexpr const char* kThreeSlots = "3 2000 4000 200";
constexpr const char* kSixSlots = "6 2000 4000 200 8 10 20";
constexpr const char* kRemapSlots = "8 2000 4000 200 8 10 20 40000 80000";

/// A hexadecimal number, padded with zeros.
std::string hex(std::uint64_t value, int digits = 1)
{
    char text[17];
    std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

/// Runs lines and prints them with their checksums.
class Writer
{
public:
    /// Starts a session; the parts are concatenated to its name.
    template <typename... Parts>
    void session(const Parts&... parts)
    {
        std::stringstream name;
        (name << ... << parts);
        std::cout << '\n';
        line("session", name.str(), ++seed);
    }

    void setup(std::int32_t mode, float mixFraction = 1.0f, std::int32_t option = 0)
    {
        line("setup", mode, option, hex(std::bit_cast<std::uint32_t>(mixFraction), 8));
    }

    void gains(const std::array<std::uint32_t, 12>& matrix)
    {
        std::apply([this](auto... gain) { line("gains", hex(gain)...); }, matrix);
    }

    /// The fronts at unity; the centre to the third destination and inverted to the fourth.
    void usualGains()
    {
        gains({kUnity, 0, kUnity / 2, 0, 0, kUnity, 0, kUnity / 4, 0x0b504f33, 0, kUnity, 0 - kUnity});
    }

    void format(std::uint32_t rateHz, std::uint32_t bits) { line("format", rateHz, bits); }

    void slots(const std::string& assignment) { line("slots", assignment); }

    void buffer(std::uint32_t frames, const std::string& signal, std::uint32_t shift = 0)
    {
        line("buffer", frames, signal, shift);
    }

    void nullBuffer(std::uint32_t frames) { line("null", frames); }

private:
    template <typename... Words>
    void line(const char* command, const Words&... words)
    {
        std::stringstream text;
        text << command;
        ((text << ' ' << words), ...);
        std::cout << text.str();
        if (const auto checksums = host.runLine(text))
            std::cout << ' ' << hex(checksums->input, 16) << ' ' << hex(checksums->output, 16);
        std::cout << '\n';
    }

    tests::VectorHost host;
    int seed = 0;
};

/// Every signal at every rate in modes 0 and 1, on the plain and on the remap path.
void writeRates(Writer& writer)
{
    constexpr std::uint32_t kWidths[] = {16, 24, 32, 20};
    std::uint32_t turn = 0;
    for (const std::uint32_t rateHz : kRatesHz) {
        for (const std::int32_t mode : {0, 1}) {
            const bool remap = (turn + turn / 2) % 2 == 1; // both modes with both paths
            writer.session("rate-", rateHz, "-mode-", mode);
            writer.setup(mode);
            writer.usualGains();
            writer.format(rateHz, kWidths[turn % 4]);
            writer.slots(remap ? kRemapSlots : turn % 3 == 0 ? kSixSlots : kThreeSlots);
            for (const char* signal : kSignals) writer.buffer(1024, signal);
            writer.buffer(2560, "moving", 4);
            ++turn;
        }
    }
}

/// Every width that is processed: full scale, the least significant bits, and samples that exceed the width.
void writeWidths(Writer& writer)
{
    for (std::uint32_t bits = 9; bits <= 32; ++bits) {
        writer.session("width-", bits);
        writer.setup(static_cast<std::int32_t>(bits % 2));
        writer.usualGains();
        writer.format(kRatesHz[bits % 7], bits);
        for (const char* slots : {kThreeSlots, kRemapSlots}) {
            writer.slots(slots);
            writer.buffer(640, "moving");
            writer.buffer(320, "rails");
            writer.buffer(320, "raw");
            writer.buffer(320, "noise", bits - 3);
        }
    }
}

/// Unsupported widths: the engine processes silence and continues afterwards.
void writeUnprocessedWidths(Writer& writer)
{
    for (const std::uint32_t bits : {0u, 1u, 8u, 33u, 40u, 64u}) {
        writer.session("unprocessed-width-", bits);
        writer.usualGains();
        writer.slots(kRemapSlots);
        writer.format(48000, 16);
        writer.buffer(1024, "moving");
        writer.format(48000, bits);
        writer.buffer(320, "noise");
        writer.slots(kThreeSlots);
        writer.buffer(130, "noise");
        writer.format(48000, 24);
        writer.buffer(1024, "moving");
    }
}

/// Modes and mix fractions, also invalid ones; a change of the rate applies each.
void writeSetups(Writer& writer)
{
    constexpr float kNotANumber = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();

    for (const std::int32_t first : {-1, 0, 1, 2, 3}) {
        writer.session("setup-", first, "-first");
        writer.setup(first, 0.5f, 7);
        writer.slots(kThreeSlots);
        writer.format(44100, 24);
        writer.buffer(1536, "moving");
        writer.setup(1 - first);
        writer.buffer(640, "moving"); // not applied yet
        writer.format(96000, 24);
        writer.buffer(1536, "moving");
    }

    writer.session("mix-fractions");
    writer.slots(kThreeSlots);
    std::uint32_t turn = 0;
    for (const float mixFraction : {0.0f, 0.25f, 1.0f, -0.5f, 1.5f, kNotANumber, kInfinity, -0.0f}) {
        writer.setup(static_cast<std::int32_t>(turn % 3), mixFraction, -1);
        writer.format(turn % 2 == 0 ? 48000 : 32000, 24);
        writer.buffer(640, "moving");
        ++turn;
    }
}

/// Formats that change during a stream: mode 0 scales the smoothing again, mode 1 reloads it.
void writeFormatChanges(Writer& writer)
{
    for (const std::int32_t mode : {0, 1, 2}) {
        writer.session("formats-mode-", mode);
        writer.setup(mode);
        writer.usualGains();
        writer.slots(mode == 1 ? kRemapSlots : kThreeSlots);
        std::uint32_t bits = 16;
        for (const std::uint32_t rateHz :
             {44100u, 96000u, 44100u, 22050u, 64000u, 192000u, 176400u, 48000u, 88200u, 0u, 32000u, 88200u, 48000u}) {
            writer.format(rateHz, bits);
            writer.buffer(768, "moving");
            writer.buffer(256, "mid", 2);
            bits = bits == 32 ? 16 : bits + 8;
        }
    }
}

/// Changing assignments: any order, alternative codes, two slots of a role, missing roles.
void writeAssignments(Writer& writer)
{
    writer.session("assignments");
    writer.usualGains();
    writer.format(48000, 24);
    for (const char* slots : {kThreeSlots,
                              "3 200 4000 2000",
                              "3 8000 10000 1000",
                              "4 1 10000 2000 1000",
                              "8 8000 2000 10000 4000 1000 200 40000 40000",
                              "6 10 1000 0 8000 20 4000",
                              "2 2000 4000",
                              "3 0 4000 200",
                              "3 2000 1 200",
                              "3 2000 4000 20000",
                              kThreeSlots,
                              "8 2000 4000 40000 80000 0 0 0 0",
                              "8 80000 1 40000 4000 2 2000 3 200",
                              "8 1 4000 200 40000 80000 0 0 0",
                              "8 2000 4000 200 40000 1 2 3 4",
                              "7 2000 4000 200 40000 80000 0 0",
                              "8 2000 2000 4000 40000 80000 80000 10000 8000",
                              "0",
                              kThreeSlots,
                              "3 null",
                              kThreeSlots,
                              "9 4000 2000 200 0 0 0 0 0",
                              "12 null",
                              "1 2000",
                              kRemapSlots}) {
        writer.slots(slots);
        writer.buffer(384, "noise", 2);
        writer.nullBuffer(192);
    }
}

/// Buffers that are not multiples of 64 frames; the last block is padded with silence.
void writeLengths(Writer& writer)
{
    for (const char* slots : {kSixSlots, kRemapSlots}) {
        writer.session(slots == kRemapSlots ? "lengths-remap" : "lengths-plain");
        writer.usualGains();
        writer.format(44100, 16);
        writer.slots(slots);
        for (const std::uint32_t frames : {1u, 0u, 63u, 64u, 65u, 127u, 128u, 2u, 480u, 441u, 1000u, 1023u})
            writer.buffer(frames, "moving");
        for (const std::uint32_t frames : {480u, 480u, 33u, 31u, 1024u}) writer.buffer(frames, "mid");
    }
}

/// Full scale, then silence until the engine's state is subnormal and then zero, then sound.
void writeSilenceAfterLoud(Writer& writer)
{
    struct Row
    {
        std::int32_t mode;
        std::uint32_t rateHz;
        std::uint32_t bits;
        const char* slots;
        const char* loud;
        int silentBuffers;
    };
    for (const Row& row : {Row{0, 48000, 16, kThreeSlots, "rails", 8}, Row{1, 192000, 24, kThreeSlots, "square", 1},
                           Row{0, 96000, 32, kRemapSlots, "opposite", 8}, Row{1, 44100, 16, kRemapSlots, "left", 1}}) {
        writer.session("silence-after-", row.loud);
        writer.setup(row.mode);
        // With gains above unity, sums wrap.
        writer.gains({kUnity, kUnity, 0x7fffffff, 0, kUnity, 0 - kUnity, 0x7fffffff, 0, kUnity, 0, 0x80000000, 0});
        writer.format(row.rateHz, row.bits);
        writer.slots(row.slots);
        writer.buffer(4096, row.loud);
        for (int i = 0; i < row.silentBuffers; ++i) writer.buffer(24000, "silence");
        writer.buffer(2048, "moving", 3);
    }
}

/// Steady tones, whose groups are stationary, from loud to a few bits.
void writeTones(Writer& writer)
{
    for (const char* tone : {"steady", "low", "mid", "high"}) {
        writer.session("tone-", tone);
        writer.format(tone[0] == 'm' ? 88200 : 48000, 24);
        writer.slots(kThreeSlots);
        for (const std::uint32_t shift : {0u, 1u, 4u, 8u, 14u, 18u, 20u, 2u}) writer.buffer(2048, tone, shift);
    }
}

/// Random sessions.
void writeRandomSessions(Writer& writer)
{
    constexpr std::uint32_t kWidths[] = {16, 24, 32, 16, 24, 32, 12, 20, 25, 8, 0, 64};
    constexpr std::uint32_t kRates[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000, 176400, 8000, 0};
    constexpr std::uint32_t kRoles[] = {0x2000, 0x4000, 0x200, 0x40000, 0x80000, 0x8000, 0x10000, 0x1000, 0, 1};
    constexpr const char* kUsual[] = {kThreeSlots, kSixSlots, kRemapSlots, "8 80000 200 4000 2000 40000 1 2 3"};

    SplitMix random(20210421);
    const auto below = [&random](std::uint32_t count) { return random.bits() % count; };
    for (int session = 1; session <= 8; ++session) {
        writer.session("random-", session);
        std::uint32_t rateHz = kRatesHz[below(7)];
        std::uint32_t bits = kWidths[below(6)];
        writer.setup(static_cast<std::int32_t>(below(3)));
        writer.format(rateHz, bits);
        writer.slots(kUsual[below(4)]);
        for (int call = 0; call < 50; ++call) {
            if (below(8) == 0) {
                const auto mode = static_cast<std::int32_t>(below(5)) - 1;
                writer.setup(mode, static_cast<float>(below(6)) / 4);
            }
            if (below(10) == 0) {
                const std::uint32_t centre = random.bits();
                const std::uint32_t right = random.bits();
                writer.gains({kUnity, 0, 0, right, 0, right, 0, kUnity, centre, centre, kUnity, 0});
            }
            if (below(6) == 0) {
                if (below(2) == 0) rateHz = kRates[below(10)];
                if (below(2) == 0) bits = kWidths[below(12)];
                writer.format(rateHz, bits);
            }
            if (below(8) == 0) {
                const std::uint32_t count = below(10);
                std::stringstream slots;
                slots << count;
                for (std::uint32_t i = 0; i < count && i < 8; ++i) slots << ' ' << hex(kRoles[below(10)]);
                writer.slots(below(4) == 0 ? slots.str() : kUsual[below(4)]);
            }
            const std::uint32_t frames = below(3) == 0 ? below(400) : 64 * (1 + below(8));
            const char* signal = kSignals[below(15)];
            writer.buffer(frames, signal, below(2) == 0 ? 0 : below(12));
        }
    }
}

} // namespace

int main()
{
    std::cout << "# Written by generate.cpp; README.md describes the format. Do not edit.\n";
    Writer writer;
    writeRates(writer);
    writeWidths(writer);
    writeUnprocessedWidths(writer);
    writeSetups(writer);
    writeFormatChanges(writer);
    writeAssignments(writer);
    writeLengths(writer);
    writeSilenceAfterLoud(writer);
    writeTones(writer);
    writeRandomSessions(writer);
}
