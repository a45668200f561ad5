// The engine and the reference engine, compared after every step.
// SPDX-License-Identifier: MIT
#include "tests/reference/engine_pair.h"

namespace tests
{

EnginePair::EnginePair()
{
    ownEngine->Open();
    ownReference->Open();
    expectSame(nullptr, nullptr);
}

void EnginePair::initialize(Tarn_Parameters parameters)
{
    reference::Parameters same;
    forEachParameter(parameters, same, [](const char*, const auto& from, auto& to) { to = from; });
    EXPECT_EQ(ownEngine->Initialize(parameters), ownReference->Initialize(same));

    std::uint8_t* const none = nullptr;
    ownEngine->SetChannelPtrs(none, none, none, none);
    ownReference->SetChannelPtrs(none, none, none, none);
    expectSame(none, none);
}

void EnginePair::setRemapCoeff(int (&coeff)[3][4])
{
    ownEngine->SetRemapCoeff(coeff);
    ownReference->SetRemapCoeff(coeff);
}

void EnginePair::runBlock(Path path, Signal signal, std::uint32_t frames, std::uint32_t slots, Random& random)
{
    const auto bits = static_cast<std::uint32_t>(ownEngine->bitsPerSample);
    GuardedBuffer buffer(frames, slots, bits);
    for (std::uint32_t i = 0; i < frames; ++i) {
        const Frame frame = frameOf(signal, time++, random);
        buffer.set(i, 0, sampleOf(frame.left, bits));
        buffer.set(i, 1, sampleOf(frame.right, bits));
        for (std::uint32_t slot = 2; slot < slots; ++slot) buffer.set(i, slot, sampleOf(random.uniform(), bits));
    }
    GuardedBuffer referenceBuffer = buffer;

    const std::uint32_t bytes = (bits + 7) / 8;
    const auto run = [&](auto& engine, std::uint8_t* data) {
        engine.SetChannelPtrs(data, data + bytes, data + 2 * bytes, data + 3 * bytes);
        if (path == Path::Plain) {
            EXPECT_EQ(engine.ProcessCine3InterLeave(frames, slots), 0u);
        } else {
            EXPECT_EQ(engine.ProcessCine3InterLeaveRemap(frames, slots), 0u);
        }
    };
    run(*ownEngine, buffer.data());
    run(*ownReference, referenceBuffer.data());

    EXPECT_TRUE(buffer.guardsIntact());
    EXPECT_EQ(buffer, referenceBuffer);
    expectSame(buffer.data(), referenceBuffer.data());
}

void EnginePair::expectSame(const std::uint8_t* buffer, const std::uint8_t* referenceBuffer) const
{
    ASSERT_TRUE(sameRecord(*ownEngine, buffer, *ownReference, referenceBuffer)) << "engine, reference";
}

} // namespace tests
