// Fuzz target: host sessions from bytes, with the library and the reference engine.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/byte_signals.h"
#include "tests/fuzz/field_writer.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/host_pair.h"
#include "tests/fuzz/transforms.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace
{

using namespace fuzz;

constexpr std::array<std::uint32_t, 7> kRatesHz{48000, 44100, 32000, 64000, 88200, 96000, 192000};
constexpr std::array<std::uint32_t, 4> kOtherRatesHz{176400, 0, 48001, 0xffffffff};
constexpr std::array<std::uint32_t, 3> kWidths{16, 24, 32};
constexpr std::array<std::uint32_t, 12> kOtherWidths{12, 20, 9,  25,         8,          0,
                                                     1,  33, 64, 0x7fffffff, 0x80000000, 0xffffffff};
constexpr std::array<std::uint32_t, 12> kCodes{0x2000,  0x8000,  0x4000,  0x10000, 0x200,      0x1000,
                                               0x40000, 0x80000, 0x20000, 0,       0x80000000, 1};

/// Bytes of a sample in a host buffer; 0 for unsupported widths.
std::size_t processedBytes(std::int64_t bitsPerSample)
{
    const std::int64_t bytes = (bitsPerSample + 7) / 8;
    return bytes >= 2 && bytes <= 4 ? static_cast<std::size_t>(bytes) : 0;
}

std::uint32_t callProcess(zrk_tarn_processor_t& host, std::uint8_t* buffer, std::uint32_t frames, std::uint32_t slots,
                          std::uint32_t rateHz, std::uint32_t bits, audio_channel_assignment_t* assignment)
{
    return host.process(buffer, frames, slots, rateHz, bits, assignment);
}

std::uint32_t callProcess(reference::Processor& host, std::uint8_t* buffer, std::uint32_t frames, std::uint32_t slots,
                          std::uint32_t rateHz, std::uint32_t bits, audio_channel_assignment_t* assignment)
{
    return host.process(buffer, frames, slots, rateHz, bits, assignment == nullptr ? nullptr : assignment->code);
}

std::uint32_t initialize(ZRKTarn& engine, const Tarn_Parameters& parameters)
{
    return engine.Initialize(parameters);
}

std::uint32_t initialize(reference::Engine& engine, const Tarn_Parameters& p)
{
    return engine.Initialize(
        {p.spare, p.outputChannels, p.bitsPerSample, p.sampleRate, p.mode, p.option, p.mixFraction});
}

/// The state of a stream that a host keeps.
struct Stream
{
    std::uint32_t rateHz = 48000;
    std::uint32_t bits = 16;
    std::uint32_t slots = 3;
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200, 0, 0, 0, 0, 0}};
    std::uint64_t time = 0;
};

/// A stream and its host objects.
struct Host
{
    Stream stream;
    HostPair pair;

    void setup(std::int32_t mode, std::int32_t option, float mixFraction)
    {
        pair.runStep("setup", HostBuffer{},
                     [&](AnyHost auto& host, std::uint8_t* /*none*/) { return host.setup(mode, option, mixFraction); });
    }

    /// Processes a buffer of the signal, or null, with the stream's assignment, or null.
    void process(const ByteSignal& signal, std::uint32_t frames, bool withBuffer, bool withAssignment)
    {
        // Buffers of unsupported widths are not accessed, unless an earlier step has given the engine another width;
        // then a buffer of the right size is not possible.
        const auto bytes = static_cast<std::uint32_t>(std::uint64_t{stream.bits} + 7) / 8; // modulo 2^32
        const std::size_t bytesOfEngine = keepsFormat() ? processedBytes(pair.reference().engine->bitsPerSample) : 0;
        if (bytes > 8 && bytesOfEngine > 0) return;
        const std::size_t beyond = bytesOfEngine > bytes ? 65 * stream.slots * bytesOfEngine : 0;
        HostBuffer buffer(bytes > 8 ? 0 : std::size_t{frames} * stream.slots * bytes + beyond);
        if (bytes <= 8) signal.write(buffer, stream.time, frames, stream.slots, stream.bits);
        stream.time += frames;
        pair.runStep("process", buffer, [&](AnyHost auto& host, std::uint8_t* data) {
            return callProcess(host, withBuffer ? data : nullptr, frames, stream.slots, stream.rateHz, stream.bits,
                               withAssignment ? &stream.assignment : nullptr);
        });
    }

private:
    /// Whether the next call has the format of the previous one.
    bool keepsFormat() const
    {
        const reference::Processor& host = pair.reference();
        return host.engine != nullptr && host.sampleRate == stream.rateHz && host.bitsPerSample == stream.bits;
    }
};

/// States in which sessions start: without an engine, every format in both modes, and long histories.
std::vector<Host> makeStarts()
{
    const auto soundOf = [](std::array<std::uint8_t, 4> description) {
        ByteReader bytes(description.data(), description.size());
        return ByteSignal(bytes);
    };
    const ByteSignal silence = soundOf({0});
    const ByteSignal noise = soundOf({2, 0, 1, 2});
    const ByteSignal tone = soundOf({5, 0x30, 26, 26});

    std::vector<Host> starts(1);
    for (const std::uint32_t rateHz : kRatesHz) {
        for (const std::uint32_t bits : kWidths) {
            for (const std::int32_t mode : {0, 1}) {
                Host& host = starts.emplace_back();
                host.stream.rateHz = rateHz;
                host.stream.bits = bits;
                host.setup(mode, 0, 1.0f);
                host.process(silence, 0, true, true);
            }
        }
    }
    // After sounds, and in silence after them: with empty histories, with subnormal means and with constant means.
    for (const ByteSignal& sound : {noise, tone}) {
        Host host = starts[1];
        host.process(sound, 1920, true, true);
        starts.push_back(host);
        for (const std::uint32_t blocks : {20u, 300u, 900u, 900u}) {
            host.process(silence, 64 * blocks, true, true);
            starts.push_back(host);
        }
    }
    return starts;
}

const std::vector<Host>& starts()
{
    static const std::vector<Host> kStarts = makeStarts();
    return kStarts;
}

/// One session, decided by bytes.
class HostSession
{
public:
    explicit HostSession(ByteReader reader)
        : decisions(reader), state(starts()[decisions.below(static_cast<std::uint32_t>(starts().size()))])
    {}

    void run()
    {
        while (!decisions.empty() && framesLeft > 0) step();
    }

private:
    /// A change of the format fills the tables again and takes as long as this number of frames.
    static constexpr std::uint32_t kFramesOfTables = 1024;

    /// Counts frames of the limit of a session; the step that exceeds it is the last.
    void spend(std::uint32_t frames) { framesLeft -= std::min(frames, framesLeft); }

    void step()
    {
        const std::uint32_t kind = decisions.below(32);
        if (kind < 15) {
            process(kind != 0, kind != 1);
        } else if (kind < 20) {
            processBlock(kind % 2 == 0);
        } else if (kind < 24) {
            writeField();
        } else {
            constexpr void (HostSession::*kSteps[])() = {&HostSession::changeFormat, &HostSession::changeAssignment,
                                                         &HostSession::permuteRoles, &HostSession::setup,
                                                         &HostSession::setRemap,     &HostSession::initialize,
                                                         &HostSession::runPart,      &HostSession::callOthers};
            (this->*kSteps[kind - 24])();
        }
    }

    /// Mostly a block or a few; sometimes up to 5000 frames.
    std::uint32_t readFrameCount()
    {
        const std::uint32_t choice = decisions.byte();
        std::uint32_t frames = choice % 65;
        if (choice >= 160) frames = 64 * (1 + (choice - 160) / 22);
        if (choice >= 248) frames = choice < 253 ? decisions.word() % 400 : decisions.word() % 5001;
        spend(frames);
        return frames;
    }

    void process(bool withBuffer, bool withAssignment)
    {
        const std::uint32_t frames = readFrameCount();
        state.process(ByteSignal(decisions), frames, withBuffer, withAssignment);
    }

    /// Mostly a supported rate and width.
    void changeFormat()
    {
        spend(kFramesOfTables);
        const std::uint8_t choice = decisions.byte();
        if (choice % 2 == 0)
            state.stream.rateHz = choice < 224 ? decisions.oneOf(kRatesHz) : decisions.oneOf(kOtherRatesHz);
        if (choice % 3 == 0)
            state.stream.bits = choice < 160 ? decisions.oneOf(kWidths) : decisions.oneOf(kOtherWidths);
    }

    /// Any codes in 0 to 12 slots.
    void changeAssignment()
    {
        state.stream.slots = decisions.below(13);
        for (std::uint32_t& code : state.stream.assignment.code) code = decisions.oneOf(kCodes);
    }

    /// All roles in any order in the first of up to 8 slots, 5 of them for both paths.
    void permuteRoles()
    {
        state.stream.slots = decisions.below(3) == 0 ? decisions.below(9) : 8;
        std::uint32_t roles[] = {0x2000, 0x4000, 0x200, 0x40000, 0x80000};
        for (std::uint32_t i = 0; i < 5; ++i) {
            std::swap(roles[i], roles[i + decisions.below(5 - i)]);
            state.stream.assignment.code[i] = roles[i];
        }
    }

    void setup()
    {
        const auto mode = static_cast<std::int32_t>(decisions.below(5)) - 1;
        state.setup(mode, static_cast<std::int32_t>(decisions.byte()), readFraction());
    }

    void setRemap()
    {
        unsigned gains[3][4];
        readGains(gains);
        state.pair.runStep("set_remap_coeff", HostBuffer{},
                           [&](AnyHost auto& host, std::uint8_t* /*none*/) { return host.set_remap_coeff(gains); });
    }

    float readFraction()
    {
        const std::uint8_t choice = decisions.byte();
        return choice < 240 ? static_cast<float>(choice - 20) / 200.0f : std::bit_cast<float>(decisions.word());
    }

    /// Zero, unity, negative, small and extreme gains.
    template <typename Gain>
    void readGains(Gain (&gains)[3][4])
    {
        constexpr std::array<std::uint32_t, 6> kGains{0, 0x10000000, 0xf0000000, 0x05000000, 0x80000000, 0x7fffffff};
        for (auto& row : gains) {
            for (Gain& gain : row) {
                const std::uint8_t choice = decisions.byte();
                gain = static_cast<Gain>(choice < 224 ? kGains[choice % kGains.size()] : decisions.word());
            }
        }
    }

    // --- Calls of the engine without its host ------------------------------------------------------------------------

    /// The engine of a host object; creates a missing one.
    static auto& engineOf(AnyHost auto& host)
    {
        if (host.engine == nullptr) host.engine = new std::remove_pointer_t<decltype(host.engine)>();
        return *host.engine;
    }

    /// Calls call(engine, buffer) for every engine.
    template <typename Call>
    void runOnEngines(const char* what, const HostBuffer& buffer, Call call)
    {
        state.pair.runStep(what, buffer, [&](AnyHost auto& host, std::uint8_t* data) -> std::uint32_t {
            return call(engineOf(host), data);
        });
    }

    template <typename Call>
    void runOnEngines(const char* what, Call call)
    {
        runOnEngines(what, HostBuffer{}, [&](auto& engine, std::uint8_t* /*none*/) { return call(engine); });
    }

    void initialize()
    {
        constexpr std::array<std::int32_t, 8> kOutputChannels{3, 4, 5, 6, 7, 2, 8, -1};
        const std::uint8_t choice = decisions.byte();
        const Tarn_Parameters parameters{
            .spare = choice,
            .outputChannels = decisions.oneOf(kOutputChannels),
            .bitsPerSample =
                static_cast<std::int32_t>(choice < 192 ? decisions.oneOf(kWidths) : decisions.oneOf(kOtherWidths)),
            .sampleRate = choice % 8 != 0 ? decisions.oneOf(kRatesHz) : decisions.oneOf(kOtherRatesHz),
            .mode = choice % 4 != 0 ? 1 + choice % 2 : static_cast<std::int32_t>(decisions.below(5)) - 1,
            .option = choice,
            .mixFraction = readFraction()};
        runOnEngines("Initialize", [&](auto& engine) { return ::initialize(engine, parameters); });
    }

    void writeField()
    {
        const FieldWriter writer(decisions);
        state.pair.change([&](AnyHost auto& host) { writer.write(engineOf(host)); });
    }

    void callOthers()
    {
        const std::uint8_t choice = decisions.byte();
        if (choice < 64) return compareTransforms(decisions);
        if (choice < 200) {
            int gains[3][4];
            readGains(gains);
            runOnEngines("SetRemapCoeff", [&](auto& engine) { return engine.SetRemapCoeff(gains); });
            return;
        }
        runOnEngines("a trivial call", [&](auto& engine) {
            switch (choice % 5) {
            case 0:
                return choice < 220 ? engine.Open() : 0;
            case 1:
                return engine.Close();
            case 2:
                return engine.Uninitialize();
            case 3:
                return engine.Process(nullptr, nullptr, choice);
            default:
                return engine.SetReserved();
            }
        });
    }

    /// Calls call(engine, frames, channels) on a block of 0 to 64 frames, the channels in any of its 0 to 9 slots.
    template <typename Call>
    void runOnBlock(const char* what, Call call)
    {
        const std::uint32_t frames = decisions.byte() < 160 ? 64 : decisions.below(65);
        spend(frames);
        const std::uint32_t channels = decisions.below(10);
        const std::uint32_t slots = std::max(channels, 1u);
        std::array<std::uint32_t, 4> slotOf{};
        for (std::uint32_t& slot : slotOf) slot = decisions.below(slots);

        const reference::Engine* const engine = state.pair.reference().engine;
        const std::uint32_t bits = engine == nullptr ? 0 : static_cast<std::uint32_t>(engine->bitsPerSample);
        const std::size_t bytes = processedBytes(static_cast<std::int32_t>(bits));
        // With 0 channels, all frames have the same address.
        const std::uint32_t rows = channels == 0 ? 1 : frames;
        HostBuffer buffer(std::size_t{rows} * slots * bytes);
        ByteSignal(decisions).write(buffer, state.stream.time, rows, slots, bits);
        state.stream.time += frames;
        const std::size_t step = buffer.size() > 0 ? bytes : 0;
        runOnEngines(what, buffer, [&](auto& e, std::uint8_t* data) {
            e.SetChannelPtrs(data + slotOf[0] * step, data + slotOf[1] * step, data + slotOf[2] * step,
                             data + slotOf[3] * step);
            return call(e, frames, channels);
        });
    }

    void processBlock(bool remap)
    {
        if (remap) {
            runOnBlock("ProcessCine3InterLeaveRemap", [](auto& engine, std::uint32_t frames, std::uint32_t channels) {
                return engine.ProcessCine3InterLeaveRemap(frames, channels);
            });
        } else {
            runOnBlock("ProcessCine3InterLeave", [](auto& engine, std::uint32_t frames, std::uint32_t channels) {
                return engine.ProcessCine3InterLeave(frames, channels);
            });
        }
    }

    /// Permutes the output rows.
    void permuteRows()
    {
        std::array<std::uint32_t, 3> rowOf{};
        for (std::uint32_t& row : rowOf) row = decisions.below(3);
        state.pair.change([&](AnyHost auto& host) {
            for (std::size_t k = 0; k < rowOf.size(); ++k)
                host.engine->outputPtr[k] = host.engine->outputBlock[rowOf[k]];
        });
    }

    /// Runs one part of a block operation. Output needs an earlier block.
    void runPart()
    {
        const std::uint8_t part = decisions.byte();
        const reference::Engine* const engine = state.pair.reference().engine;
        if (part % 4 < 2 && (engine == nullptr || engine->outputPtr[0] == nullptr)) return;
        if (part % 4 < 2 && part >= 128) permuteRows();
        runOnBlock("a part of a block operation", [&](auto& e, std::uint32_t frames, std::uint32_t channels) {
            switch (part % 4) {
            case 0:
                return e.WriteOutput(frames, channels);
            case 1:
                return e.RemapOutput(frames, channels);
            case 2:
                return e.ReadInputChannels(frames, channels);
            default:
                return e.ProcessCine3(frames, channels);
            }
        });
    }

    ByteReader decisions;
    Host state;
    std::uint32_t framesLeft = 2048;
};

} // namespace

int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    starts();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    HostSession(ByteReader(bytes, size)).run();
    return 0;
}
