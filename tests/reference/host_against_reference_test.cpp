// Compares random sessions of the host object with those of the reference.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_processor.h"
#include "tests/support/host_session.h"
#include "tests/support/record_compare.h"

namespace tests
{

namespace
{

/// Both host objects.
struct HostPair
{
    zrk_tarn_processor_t processor;
    reference::Processor reference;
};

void expectSameObjects(const HostPair& hosts, const std::uint8_t* buffer, const std::uint8_t* referenceBuffer)
{
    const zrk_tarn_processor_t& a = hosts.processor;
    const reference::Processor& b = hosts.reference;
    forEachHostField(a, b, [](const char* name, const auto& fieldA, const auto& fieldB) {
        EXPECT_TRUE(sameBits(name, fieldA, fieldB));
    });
    ASSERT_EQ(a.engine == nullptr, b.engine == nullptr);
    if (a.engine != nullptr) {
        EXPECT_TRUE(sameRecord(*a.engine, buffer, *b.engine, referenceBuffer));
    }
}

void runOnBoth(HostCall& call, HostPair& hosts)
{
    GuardedBuffer referenceBuffer = call.buffer;
    EXPECT_EQ(runCall(call, hosts.processor), 0u);
    EXPECT_EQ(runCall(call, referenceBuffer, hosts.reference), 0u);

    EXPECT_TRUE(call.buffer.guardsIntact());
    EXPECT_EQ(call.buffer, referenceBuffer);

    // Channel pointers are compared as offsets into these buffers, and must not outlive them.
    expectSameObjects(hosts, call.buffer.data(), referenceBuffer.data());
    if (hosts.processor.engine != nullptr && hosts.reference.engine != nullptr) {
        hosts.processor.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
        hosts.reference.engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
    }
}

} // namespace

class HostAgainstReference : public testing::TestWithParam<int>
{};

TEST_P(HostAgainstReference, MatchesBytesAndState)
{
    HostSession session(static_cast<std::uint64_t>(GetParam()));
    HostPair hosts;
    for (int number = 0; number < 600 && !HasFailure(); ++number) {
        HostCall call = session.nextCall();
        SCOPED_TRACE(testing::Message() << "seed " << GetParam() << ", call " << number << ": " << call);
        runOnBoth(call, hosts);
    }
}

INSTANTIATE_TEST_SUITE_P(Seed, HostAgainstReference, testing::Range(1, 25));

} // namespace tests
