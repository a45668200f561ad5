#include "host/zrk_tarn_processor.h"
#include "tests/reference/reference_processor.h"
#include "tests/support/record_fields.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

// Lives of a host made from bytes, led by the library and by the literal reference: any difference in a byte of a
// buffer or in a field of the engine is a crash.

namespace
{

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000, 176400, 0};
constexpr std::uint32_t kWidths[] = {16, 24, 32, 12, 20, 9, 25, 8, 0, 64, 0xffffffff};
constexpr std::uint32_t kCodes[] = {0x2000, 0x4000, 0x200, 0x40000, 0x80000, 0x8000, 0x10000, 0x1000, 0};

void require(bool holds, std::string_view what)
{
    if (holds) return;
    std::fprintf(stderr, "library and reference differ: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}

void requireSameEngines(const ZRKTarn& engine, const reference::Engine& reference)
{
    tests::forEachField(engine, reference, [](std::string_view name, const auto& a, const auto& b) {
        static_assert(sizeof a == sizeof b);
        // Addresses differ by nature.
        if (name == "outputPtr" || name == "channelPtr") return;
        require(std::memcmp(&a, &b, sizeof a) == 0, name);
    });
}

/// A buffer of a frame count, its first bytes the fuzzer's and the rest repeating them.
std::vector<std::uint8_t> bufferOf(FuzzedDataProvider& data, std::size_t size)
{
    std::vector<std::uint8_t> buffer(size);
    const auto seed = data.ConsumeBytes<std::uint8_t>(data.ConsumeIntegralInRange<std::size_t>(0, 192));
    for (std::size_t i = 0; i < size && !seed.empty(); ++i) buffer[i] = seed[i % seed.size()];
    return buffer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    zrk_tarn_processor_t processor;
    reference::Processor reference;

    std::uint32_t rate = 48000;
    std::uint32_t bits = 16;
    std::uint32_t slots = 3;
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200, 0x40000, 0x80000, 0, 0, 0}};

    while (data.remaining_bytes() > 0) {
        switch (data.ConsumeIntegralInRange<int>(0, 7)) {
        case 0: {
            const auto mode = data.ConsumeIntegralInRange<std::int32_t>(-1, 4);
            const auto mixFraction = data.ConsumeFloatingPointInRange<float>(-0.5f, 1.5f);
            processor.setup(mode, 0, mixFraction);
            reference.setup(mode, 0, mixFraction);
            break;
        }
        case 1: {
            unsigned gains[3][4];
            for (auto& row : gains)
                for (unsigned& gain : row) gain = data.ConsumeBool() ? data.ConsumeIntegral<unsigned>() : 0u;
            processor.set_remap_coeff(gains);
            reference.set_remap_coeff(gains);
            break;
        }
        case 2:
            rate = data.PickValueInArray(kRatesHz);
            break;
        case 3:
            bits = data.PickValueInArray(kWidths);
            break;
        case 4:
            slots = data.ConsumeIntegralInRange<std::uint32_t>(0, 9);
            for (std::uint32_t& code : assignment.code) code = data.PickValueInArray(kCodes);
            break;
        default: {
            const auto frames = data.ConsumeIntegralInRange<std::uint32_t>(0, 320);
            const auto containerBytes = (std::uint64_t{bits} + 7) / 8;
            auto buffer = bufferOf(data, containerBytes > 8 ? 0 : std::size_t{frames} * slots * containerBytes);
            auto copy = buffer;
            processor.process(buffer.data(), frames, slots, rate, bits, &assignment);
            reference.process(copy.data(), frames, slots, rate, bits, assignment.code);
            require(buffer == copy, "bytes of the buffer");
            requireSameEngines(*processor.engine, *reference.engine);
            break;
        }
        }
    }
    return 0;
}
