#include "host/zrk_tarn_processor.h"
#include "tests/reference/reference_processor.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/record_compare.h"
#include "tests/support/signals.h"

// Random lives of a host: configuration, formats, assignments and buffers of every shape, against the literal host
// object. After every call both objects, their engines and all bytes must agree.

namespace tests
{

namespace
{

/// Both host objects and what a host would remember of the stream.
struct Lives
{
    zrk_tarn_processor_t processor;
    reference::Processor reference;

    std::uint32_t sampleRate = 48000;
    std::uint32_t bitsPerSample = 16;
    std::uint32_t slots = 6;
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200, 0, 0, 0, 0, 0}};
    Signal signal = Signal::DiffuseNoise;
    std::uint64_t time = 0;
};

void expectSameObjects(const Lives& lives, const std::uint8_t* buffer, const std::uint8_t* referenceBuffer)
{
    const zrk_tarn_processor_t& a = lives.processor;
    const reference::Processor& b = lives.reference;
    forEachProcessorField(a, b, [](const char* name, const auto& fieldA, const auto& fieldB) {
        using Field = std::remove_cvref_t<decltype(fieldA)>;
        if constexpr (!std::is_pointer_v<Field>) {
            static_assert(std::is_same_v<Field, std::remove_cvref_t<decltype(fieldB)>>);
            EXPECT_TRUE(sameBits(name, fieldA, fieldB));
        }
    });
    ASSERT_EQ(a.engine == nullptr, b.engine == nullptr);
    if (a.engine != nullptr) {
        EXPECT_TRUE(sameRecord(*a.engine, buffer, *b.engine, referenceBuffer));
    }
}

void changeSetup(Lives& lives, Random& random)
{
    const auto mode = static_cast<std::int32_t>(random.below(5)) - 1;
    const auto option = static_cast<std::int32_t>(random.bits());
    const float fraction = static_cast<float>(1.3 * random.uniform());
    EXPECT_EQ(lives.processor.setup(mode, option, fraction), lives.reference.setup(mode, option, fraction));
}

void changeRemap(Lives& lives, Random& random)
{
    unsigned coeff[3][4];
    for (auto& row : coeff)
        for (unsigned& gain : row) gain = random.chance(3) ? 0 : random.chance(2) ? 0x10000000u : random.bits();
    EXPECT_EQ(lives.processor.set_remap_coeff(coeff), lives.reference.set_remap_coeff(coeff));
}

void changeFormat(Lives& lives, Random& random)
{
    constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000, 176400, 8000, 0};
    constexpr std::uint32_t kWidths[] = {16, 24, 32, 16, 24, 32, 12, 20, 25, 8, 0, 64};
    if (random.chance(2)) lives.sampleRate = random.oneOf(kRatesHz);
    if (random.chance(2)) lives.bitsPerSample = random.oneOf(kWidths);
}

void changeAssignment(Lives& lives, Random& random)
{
    constexpr std::uint32_t kCodes[] = {0x2000,  0x8000,  0x4000,  0x10000, 0x200,      0x1000,
                                        0x40000, 0x80000, 0x20000, 0,       0x80000000, 1};
    lives.slots = random.chance(20) ? 9 + random.below(4) : random.chance(3) ? 8 : random.below(9);
    for (std::uint32_t& code : lives.assignment.code) code = random.oneOf(kCodes);
    if (random.chance(2)) {
        // Mostly an assignment that has all that a path needs, in any order.
        std::uint32_t roles[] = {0x2000, 0x4000, 0x200, 0x40000, 0x80000};
        for (std::uint32_t i = 0; i < 5 && i < lives.slots; ++i) {
            std::swap(roles[i], roles[i + random.below(5 - i)]);
            lives.assignment.code[i] = roles[i];
        }
    }
}

void processBuffer(Lives& lives, Random& random)
{
    if (random.chance(10)) lives.signal = kAllSignals[random.below(kAllSignals.size())];
    const std::uint32_t frames = random.chance(3) ? random.below(400) : 64 * random.below(5);
    const std::size_t slots = lives.slots;
    GuardedBuffer buffer(frames, slots, lives.bitsPerSample);
    const std::uint32_t width = std::min(std::max(lives.bitsPerSample, 2u), 32u);
    for (std::uint32_t i = 0; i < frames; ++i) {
        for (std::size_t slot = 0; slot < slots; slot += 2) {
            const Frame frame = frameOf(lives.signal, lives.time, random);
            buffer.set(i, slot, sampleOf(frame.left, width));
            if (slot + 1 < slots) buffer.set(i, slot + 1, sampleOf(frame.right, width));
        }
        ++lives.time;
    }
    GuardedBuffer referenceBuffer = buffer;

    const bool noBuffer = random.chance(40);
    const bool noAssignment = random.chance(40);
    EXPECT_EQ(lives.processor.process(noBuffer ? nullptr : buffer.data(), frames, lives.slots, lives.sampleRate,
                                      lives.bitsPerSample, noAssignment ? nullptr : &lives.assignment),
              0u);
    EXPECT_EQ(lives.reference.process(noBuffer ? nullptr : referenceBuffer.data(), frames, lives.slots,
                                      lives.sampleRate, lives.bitsPerSample,
                                      noAssignment ? nullptr : lives.assignment.code),
              0u);

    EXPECT_TRUE(buffer.guardsIntact());
    EXPECT_EQ(buffer, referenceBuffer);

    // The channel pointers are compared as positions in these buffers; they must not outlive them.
    expectSameObjects(lives, buffer.data(), referenceBuffer.data());
    if (lives.processor.engine != nullptr && lives.reference.engine != nullptr) {
        lives.processor.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
        lives.reference.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
    }
}

} // namespace

class HostLife : public testing::TestWithParam<int>
{};

TEST_P(HostLife, GivesTheReferencesBytesAndState)
{
    Random random(static_cast<std::uint64_t>(GetParam()));
    Lives lives;
    for (int call = 0; call < 600 && !HasFailure(); ++call) {
        SCOPED_TRACE(testing::Message() << "seed " << GetParam() << ", call " << call << ": " << lives.sampleRate
                                        << " Hz, " << lives.bitsPerSample << " bits, " << lives.slots << " slots, "
                                        << lives.signal);
        if (random.chance(20)) changeSetup(lives, random);
        if (random.chance(10)) changeRemap(lives, random);
        if (random.chance(25)) changeFormat(lives, random);
        if (random.chance(12)) changeAssignment(lives, random);
        processBuffer(lives, random);
    }
}

INSTANTIATE_TEST_SUITE_P(Seed, HostLife, testing::Range(1, 25));

} // namespace tests
