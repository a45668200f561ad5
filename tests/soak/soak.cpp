#include "filterbank/cos_mod.h"
#include "tests/reference/reference_filterbank.h"
#include "tests/reference/reference_processor.h"
#include "tests/support/host_life.h"

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

// Hours of audio through the library. Round after round the same lives of hosts, one on each of several threads, have
// to give the same bytes and leave the same memory behind, while one stream goes on for ever beside the reference
// engine.

namespace
{

constexpr int kLives = 3;
constexpr int kCallsOfLife = 100000;
constexpr int kCallsOfRound = 100000; ///< of the endless stream

/// What is allocated with new and not yet freed, by all threads.
std::atomic<std::int64_t> bytesInUse = 0;

/// What a life came to.
struct Outcome
{
    std::uint64_t checksum = 0xcbf29ce484222325u; ///< FNV-1a of all bytes that came out
    double seconds = 0.0;                         ///< of audio

    void add(const tests::HostCall& call)
    {
        for (std::size_t i = 0; i < call.buffer.size(); ++i)
            checksum = (checksum ^ call.buffer.data()[i]) * 0x100000001b3u;
        if (call.sampleRate >= 32000) seconds += static_cast<double>(call.frames) / call.sampleRate;
    }
};

Outcome live(std::uint64_t seed)
{
    zrk_tarn_processor_t processor;
    tests::HostLife life(seed);
    Outcome outcome;
    for (int number = 0; number < kCallsOfLife; ++number) {
        tests::HostCall call = life.nextCall();
        make(call, processor);
        outcome.add(call);
    }
    return outcome;
}

/// One stream that does not end, and the reference's beside it.
class EndlessStream
{
public:
    /// Goes on for a while. Returns whether both streams gave the same bytes.
    bool goOn()
    {
        for (int number = 0; number < kCallsOfRound; ++number) {
            tests::HostCall call = life_.nextCall();
            tests::GuardedBuffer expected = call.buffer;
            make(call, processor_);
            make(call, expected, reference_);
            outcome_.add(call);
            if (call.buffer != expected) return false;
        }
        return true;
    }

    double seconds() const { return outcome_.seconds; }

private:
    tests::HostLife life_{1000};
    zrk_tarn_processor_t processor_;
    reference::Processor reference_;
    Outcome outcome_;
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
    constexpr std::size_t kResidentMarginKiB = 4096; // what threads and the allocator keep varies
    const auto start = std::chrono::steady_clock::now();
    EndlessStream endless;
    Outcome first[kLives];
    Memory firstMemory{};
    double hours = 0.0;
    for (int round = 0; round < 2 || std::chrono::steady_clock::now() - start < length; ++round) {
        Outcome outcomes[kLives];
        bool sameAsReference = false;
        {
            std::vector<std::jthread> threads;
            for (std::uint64_t life = 0; life < kLives; ++life)
                threads.emplace_back([&outcomes, life] { outcomes[life] = live(life + 1); });
            threads.emplace_back([&] { sameAsReference = endless.goOn(); });
        }
        const Memory memory = memoryInUse();
        for (const Outcome& outcome : outcomes) hours += outcome.seconds / 3600.0;
        const auto minutes = std::chrono::duration<double, std::ratio<60>>(std::chrono::steady_clock::now() - start);
        std::printf("%6.1f min: round %d, %.1f h of audio and %.1f h beside the reference, heap %lld bytes, resident "
                    "%zu KiB\n",
                    minutes.count(), round + 1, hours, endless.seconds() / 3600.0,
                    static_cast<long long>(memory.heapBytes), memory.residentKiB);
        std::fflush(stdout);

        if (!sameAsReference) return fail("the endless stream differs from the reference");
        if (round == 0) {
            std::memcpy(first, outcomes, sizeof first);
            firstMemory = memory;
            continue;
        }
        for (int life = 0; life < kLives; ++life)
            if (outcomes[life].checksum != first[life].checksum) return fail("a life gives other bytes than before");
        if (memory.heapBytes != firstMemory.heapBytes) return fail("the heap is not what it was");
        if (memory.residentKiB > firstMemory.residentKiB + kResidentMarginKiB) return fail("memory grows");
    }
    std::puts("soak: every round gave the same bytes and kept the same memory");
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
