#include "filterbank/cos_mod.h"
#include "host/zrk_tarn_processor.h"
#include "tests/reference/reference_filterbank.h"
#include "tests/reference/reference_processor.h"
#include "tests/support/signals.h"

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
constexpr int kCallsOfLife = 20000;
constexpr int kCallsOfRound = 20000; ///< of the endless stream
constexpr std::uint32_t kMostFrames = 1500;
constexpr std::size_t kMostBytes = std::size_t{kMostFrames} * 8 * 4;

/// What is allocated with new and not yet freed, by all threads.
std::atomic<std::int64_t> bytesInUse = 0;

/// A host whose format, assignment, signal and buffer sizes change at random, the same way for the same seed.
class Host
{
public:
    explicit Host(std::uint64_t seed) : random_(seed) { buffer.reserve(kMostBytes); }

    /// Fills the next buffer, having changed what the host changes before it.
    void prepare()
    {
        if (random_.chance(200)) rateHz = random_.oneOf(kRatesHz);
        if (random_.chance(200)) bits = random_.oneOf(kWidths);
        if (random_.chance(100)) assign();
        if (random_.chance(50)) signal_ = tests::kAllSignals[random_.below(tests::kAllSignals.size())];
        frames = random_.chance(4) ? random_.below(kMostFrames) : 64 * (1 + random_.below(kMostFrames / 64));
        const std::size_t bytes = (bits + 7) / 8;
        buffer.assign(frames * slots * bytes, 0);
        for (std::uint32_t i = 0; i < frames; ++i) {
            const tests::Frame frame = tests::frameOf(signal_, time_++, random_);
            put(&buffer[i * slots * bytes], tests::sampleOf(frame.left, bits));
            if (slots > 1) put(&buffer[(i * slots + 1) * bytes], tests::sampleOf(frame.right, bits));
        }
    }

    std::uint32_t rateHz = 48000;
    std::uint32_t bits = 16;
    std::uint32_t slots = 6;
    std::uint32_t frames = 0;
    audio_channel_assignment_t assignment{{0x2000, 0x4000, 0x200, 0, 0, 0, 0, 0}};
    std::vector<std::uint8_t> buffer;

private:
    static constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000, 8000};
    static constexpr std::uint32_t kWidths[] = {16, 16, 24, 32, 20, 12};

    void assign()
    {
        constexpr std::uint32_t kCodes[] = {0x200, 0x1000, 0x40000, 0x80000, 0, 1, 0x20000};
        slots = random_.chance(3) ? 8 : 3 + random_.below(6);
        assignment.code[0] = 0x2000;
        assignment.code[1] = 0x10000;
        for (std::uint32_t slot = 2; slot < 8; ++slot) assignment.code[slot] = random_.oneOf(kCodes);
    }

    void put(std::uint8_t* position, std::int32_t sample) const
    {
        for (std::uint32_t j = 0; j < (bits + 7) / 8; ++j)
            position[j] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(sample) >> (8 * j));
    }

    tests::Random random_;
    tests::Signal signal_ = tests::Signal::DiffuseNoise;
    std::uint64_t time_ = 0;
};

/// What a life came to.
struct Outcome
{
    std::uint64_t checksum = 0xcbf29ce484222325u; ///< FNV-1a of all bytes that came out
    double seconds = 0.0;                         ///< of audio

    void add(const Host& host)
    {
        for (const std::uint8_t byte : host.buffer) checksum = (checksum ^ byte) * 0x100000001b3u;
        seconds += static_cast<double>(host.frames) / host.rateHz;
    }
};

Outcome live(std::uint64_t seed)
{
    unsigned gains[3][4] = {{0x10000000, 0, 0x08000000, 0}, {0, 0x10000000, 0, 0x08000000}, {0x0b504f33, 1, 2, 3}};
    zrk_tarn_processor_t processor;
    processor.set_remap_coeff(gains);
    Host host(seed);
    Outcome outcome;
    for (int call = 0; call < kCallsOfLife; ++call) {
        host.prepare();
        processor.process(host.buffer.data(), host.frames, host.slots, host.rateHz, host.bits, &host.assignment);
        outcome.add(host);
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
        for (int call = 0; call < kCallsOfRound; ++call) {
            host_.prepare();
            expected_ = host_.buffer;
            processor_.process(host_.buffer.data(), host_.frames, host_.slots, host_.rateHz, host_.bits,
                               &host_.assignment);
            reference_.process(expected_.data(), host_.frames, host_.slots, host_.rateHz, host_.bits,
                               host_.assignment.code);
            outcome_.add(host_);
            if (host_.buffer != expected_) return false;
        }
        return true;
    }

    double seconds() const { return outcome_.seconds; }

private:
    Host host_{1000};
    zrk_tarn_processor_t processor_;
    reference::Processor reference_;
    std::vector<std::uint8_t> expected_ = std::vector<std::uint8_t>(kMostBytes);
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
    for (int round = 0; round == 0 || std::chrono::steady_clock::now() - start < length; ++round) {
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
