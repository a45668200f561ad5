// Processes hours of audio and checks that bytes and memory stay the same.
// SPDX-License-Identifier: MIT
#include "filterbank/cos_mod.h"
#include "tests/reference/reference_filterbank.h"
#include "tests/reference/reference_processor.h"
#include "tests/support/host_session.h"

#include <malloc.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Every round runs the same host sessions, one per thread, which must give the same bytes and leave the same memory in
// use. One endless session runs at the same time and is compared with the reference engine.

namespace
{

constexpr int kSessions = 3;
constexpr int kCallsOfSession = 100000;
constexpr int kCallsOfRound = 100000; ///< of the endless session

/// Bytes allocated with new and not freed, by all threads.
std::atomic<std::int64_t> bytesInUse = 0;

/// The result of a session.
struct Outcome
{
    std::uint64_t checksum = 0xcbf29ce484222325u; ///< FNV-1a of all output bytes
    double seconds = 0.0;                         ///< of audio

    void add(const tests::HostCall& call)
    {
        for (std::size_t i = 0; i < call.buffer.size(); ++i)
            checksum = (checksum ^ call.buffer.data()[i]) * 0x100000001b3u;
        if (call.sampleRate >= 32000) seconds += static_cast<double>(call.frames) / call.sampleRate;
    }
};

Outcome runSession(std::uint64_t seed)
{
    zrk_tarn_processor_t processor;
    tests::HostSession session(seed);
    Outcome outcome;
    for (int number = 0; number < kCallsOfSession; ++number) {
        tests::HostCall call = session.nextCall();
        runCall(call, processor);
        outcome.add(call);
    }
    return outcome;
}

/// A session without end, compared with the reference.
class EndlessSession
{
public:
    /// Runs some calls. Returns whether library and reference gave the same bytes.
    bool runRound()
    {
        for (int number = 0; number < kCallsOfRound; ++number) {
            tests::HostCall call = session.nextCall();
            tests::GuardedBuffer expected = call.buffer;
            runCall(call, processor);
            runCall(call, expected, referenceProcessor);
            outcome.add(call);
            if (call.buffer != expected) return false;
        }
        return true;
    }

    double seconds() const { return outcome.seconds; }

private:
    tests::HostSession session{1000};
    zrk_tarn_processor_t processor;
    reference::Processor referenceProcessor;
    Outcome outcome;
};

struct Memory
{
    std::int64_t heapBytes;  ///< allocated and not freed
    std::size_t residentKiB; ///< of the whole process
};

Memory memoryInUse()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::size_t residentKiB = 0;
        if (word == "VmRSS:" && status >> residentKiB) return {bytesInUse, residentKiB};
    }
    return {bytesInUse, 0};
}

int fail(const char* what)
{
    std::fprintf(stderr, "soak: %s\n", what);
    return EXIT_FAILURE;
}

int soak(std::chrono::minutes length)
{
    constexpr std::size_t kResidentMarginKiB = 4096; // memory of threads and the allocator varies
    const auto start = std::chrono::steady_clock::now();
    EndlessSession endless;
    Outcome first[kSessions];
    Memory firstMemory{};
    double hours = 0.0;
    for (int round = 0; round < 2 || std::chrono::steady_clock::now() - start < length; ++round) {
        Outcome outcomes[kSessions];
        bool sameAsReference = false;
        {
            std::vector<std::jthread> threads;
            for (std::uint64_t session = 0; session < kSessions; ++session)
                threads.emplace_back([&outcomes, session] { outcomes[session] = runSession(session + 1); });
            threads.emplace_back([&] { sameAsReference = endless.runRound(); });
        }
        const Memory memory = memoryInUse();
        for (const Outcome& outcome : outcomes) hours += outcome.seconds / 3600.0;
        const auto minutes = std::chrono::duration<double, std::ratio<60>>(std::chrono::steady_clock::now() - start);
        std::printf("%6.1f min: round %d, %.1f h of audio and %.1f h beside the reference, heap %lld bytes, resident "
                    "%zu KiB\n",
                    minutes.count(), round + 1, hours, endless.seconds() / 3600.0,
                    static_cast<long long>(memory.heapBytes), memory.residentKiB);
        std::fflush(stdout);

        if (!sameAsReference) return fail("the endless session differs from the reference");
        if (round == 0) {
            std::memcpy(first, outcomes, sizeof first);
            firstMemory = memory;
            continue;
        }
        for (int session = 0; session < kSessions; ++session)
            if (outcomes[session].checksum != first[session].checksum)
                return fail("a session gave other bytes than in the first round");
        if (memory.heapBytes != firstMemory.heapBytes) return fail("the size of the heap has changed");
        if (memory.residentKiB > firstMemory.residentKiB + kResidentMarginKiB) return fail("resident memory has grown");
    }
    std::puts("soak: all rounds gave the same bytes and used the same memory");
    return EXIT_SUCCESS;
}

} // namespace

void* operator new(std::size_t size)
{
    void* const memory = std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    bytesInUse += static_cast<std::int64_t>(malloc_usable_size(memory));
    return memory;
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    void* memory = nullptr;
    if (posix_memalign(&memory, static_cast<std::size_t>(alignment), size) != 0) throw std::bad_alloc();
    bytesInUse += static_cast<std::int64_t>(malloc_usable_size(memory));
    return memory;
}

void operator delete(void* memory) noexcept
{
    bytesInUse -= static_cast<std::int64_t>(malloc_usable_size(memory));
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept
{
    operator delete(memory);
}

void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept
{
    operator delete(memory);
}

int main(int count, char** arguments)
{
    int minutes = 0;
    const std::string_view text = count == 2 ? arguments[1] : "";
    const auto [end, error] = std::from_chars(text.begin(), text.end(), minutes);
    if (error != std::errc() || end != text.end() || minutes < 0) {
        std::fputs("usage: tarn_soak MINUTES\n", stderr);
        return 64;
    }
    cosModTablesInit();
    reference::cosModTablesInit();
    return soak(std::chrono::minutes(minutes));
}
