#include "tests/reference/reference_processor.h"
#include "tests/support/host_life.h"
#include "tests/support/record_compare.h"

// Random lives of a host: configuration, formats, assignments and buffers of every shape, against the literal host
// object. After every call both objects, their engines and all bytes must agree.

namespace tests
{

namespace
{

/// Both host objects.
struct Lives
{
    zrk_tarn_processor_t processor;
    reference::Processor reference;
};

void expectSameObjects(const Lives& lives, const std::uint8_t* buffer, const std::uint8_t* referenceBuffer)
{
    const zrk_tarn_processor_t& a = lives.processor;
    const reference::Processor& b = lives.reference;
    forEachHostField(a, b, [](const char* name, const auto& fieldA, const auto& fieldB) {
        EXPECT_TRUE(sameBits(name, fieldA, fieldB));
    });
    ASSERT_EQ(a.engine == nullptr, b.engine == nullptr);
    if (a.engine != nullptr) {
        EXPECT_TRUE(sameRecord(*a.engine, buffer, *b.engine, referenceBuffer));
    }
}

void makeToBoth(HostCall& call, Lives& lives)
{
    GuardedBuffer referenceBuffer = call.buffer;
    EXPECT_EQ(make(call, lives.processor), 0u);
    EXPECT_EQ(make(call, referenceBuffer, lives.reference), 0u);

    EXPECT_TRUE(call.buffer.guardsIntact());
    EXPECT_EQ(call.buffer, referenceBuffer);

    // The channel pointers are compared as positions in these buffers; they must not outlive them.
    expectSameObjects(lives, call.buffer.data(), referenceBuffer.data());
    if (lives.processor.engine != nullptr && lives.reference.engine != nullptr) {
        lives.processor.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
        lives.reference.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
    }
}

} // namespace

class HostAgainstReference : public testing::TestWithParam<int>
{};

TEST_P(HostAgainstReference, GivesItsBytesAndState)
{
    HostLife life(static_cast<std::uint64_t>(GetParam()));
    Lives lives;
    for (int number = 0; number < 600 && !HasFailure(); ++number) {
        HostCall call = life.nextCall();
        SCOPED_TRACE(testing::Message() << "seed " << GetParam() << ", call " << number << ": " << call);
        makeToBoth(call, lives);
    }
}

INSTANTIATE_TEST_SUITE_P(Seed, HostAgainstReference, testing::Range(1, 25));

} // namespace tests
