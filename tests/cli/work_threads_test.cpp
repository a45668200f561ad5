// The threads that read, upmix and write a file: order, errors, ends, memory, signals.
// SPDX-License-Identifier: MIT
#include "cli/read_ahead.h"
#include "cli/threaded_sink.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>
#include <sched.h>

namespace tarn_cli
{

namespace
{

constexpr std::size_t kSlots = 6;
constexpr std::size_t kMaxQueuedFrames = 8 * 4096; ///< of a sink

/// What a sink got.
struct Delivery
{
    std::vector<std::int32_t> samples{};
    std::atomic<std::uint64_t> frames = 0;
    std::uint64_t capacity = UINT64_MAX; ///< frames; then writing fails
    std::thread::id writer{};
    std::thread::id finisher{};
    int finished = 0;
    bool getsSignals = false; ///< in write
    bool exists = true;
};

/// Keeps what it gets.
class Keeper final : public tarn::AudioSink
{
public:
    explicit Keeper(Delivery& delivery) : kept(delivery) {}

    ~Keeper() override { kept.exists = false; }

    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    void write(const std::int32_t* samples, std::size_t frames) override
    {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            kept.getsSignals = kept.getsSignals || sigismember(&blocked, signalNumber) == 0;
        kept.writer = std::this_thread::get_id();
        if (kept.frames + frames > kept.capacity) throw std::runtime_error("full");
        kept.samples.insert(kept.samples.end(), samples, samples + frames * kSlots);
        kept.frames += frames;
    }

    void finish() override
    {
        kept.finisher = std::this_thread::get_id();
        ++kept.finished;
    }

    std::vector<std::string> notes() const override { return {"a note"}; }

private:
    Delivery& kept;
};

std::unique_ptr<tarn::ThreadedSink> sinkTo(Delivery& delivery)
{
    return std::make_unique<tarn::ThreadedSink>(std::make_unique<Keeper>(delivery), kSlots);
}

/// Frames whose samples count from a start.
std::vector<std::int32_t> counted(std::int32_t first, std::size_t samples)
{
    std::vector<std::int32_t> numbers(samples);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

bool hasSecondProcessor()
{
    cpu_set_t usable;
    return sched_getaffinity(0, sizeof usable, &usable) == 0 && CPU_COUNT(&usable) > 1;
}

/// Leaves one processor to this thread while it exists.
class OneProcessor
{
public:
    OneProcessor()
    {
        sched_getaffinity(0, sizeof before, &before);
        cpu_set_t one;
        CPU_ZERO(&one);
        std::size_t first = 0;
        while (!CPU_ISSET(first, &before)) ++first;
        CPU_SET(first, &one);
        sched_setaffinity(0, sizeof one, &one);
    }

    ~OneProcessor() { sched_setaffinity(0, sizeof before, &before); }

    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t before{};
};

/// Makes every new thread fail while it exists, by a stack that is larger than the address space.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&before);
        pthread_attr_t endless;
        pthread_attr_init(&endless);
        pthread_attr_setstacksize(&endless, std::size_t{1} << 60);
        pthread_setattr_default_np(&endless);
        pthread_attr_destroy(&endless);
    }

    ~NoThreads() { pthread_setattr_default_np(&before); }

    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t before{};
};

/// Writes random numbers of frames, and finishes. Returns the samples.
std::vector<std::int32_t> writeAll(tarn::AudioSink& sink, std::uint64_t seed)
{
    tests::Random random(seed);
    std::vector<std::int32_t> all;
    for (int i = 0; i < 200; ++i) {
        const std::size_t frames = random.chance(3) ? 64 : random.below(10000);
        const auto samples = counted(static_cast<std::int32_t>(all.size()), frames * kSlots);
        sink.write(samples.data(), frames);
        all.insert(all.end(), samples.begin(), samples.end());
    }
    sink.finish();
    return all;
}

/// Reads numbers up to an end, a random number of frames at a time.
class Numbers
{
public:
    explicit Numbers(std::int32_t count) : end(count) {}

    std::size_t read(std::int32_t* stereo, std::size_t capacity)
    {
        reader = std::this_thread::get_id();
        const auto limit = static_cast<std::uint32_t>(std::min<std::size_t>(capacity, 1000));
        const std::size_t frames =
            std::min<std::size_t>(1 + random.below(limit), static_cast<std::size_t>(end - next) / 2);
        if (frames == 0 && fails) throw std::runtime_error("damaged");
        for (std::size_t i = 0; i < 2 * frames; ++i) stereo[i] = next++;
        framesRead += frames;
        return frames;
    }

    tarn::ReadAhead<std::int32_t> ahead(bool isSlow)
    {
        return {[this](std::int32_t* stereo, std::size_t frames) { return read(stereo, frames); }, isSlow};
    }

    bool fails = false; ///< at the end
    std::thread::id reader{};
    std::atomic<std::size_t> framesRead = 0;

private:
    std::int32_t next = 0;
    std::int32_t end;
    tests::Random random{1};
};

/// All samples of a source.
std::vector<std::int32_t> readAll(Numbers& numbers, bool isSlow)
{
    tarn::ReadAhead<std::int32_t> source = numbers.ahead(isSlow);
    std::vector<std::int32_t> all;
    for (auto stereo = source.next(); !stereo.empty(); stereo = source.next())
        all.insert(all.end(), stereo.begin(), stereo.end());
    return all;
}

} // namespace

TEST(ThreadedSink, WritesAllSamplesInOrderOnAnotherThread)
{
    for (std::uint64_t seed = 0; seed < 3; ++seed) {
        Delivery delivery;
        const auto sink = sinkTo(delivery);
        EXPECT_EQ(writeAll(*sink, seed), delivery.samples) << "seed " << seed;
        EXPECT_EQ(delivery.finished, 1);
        EXPECT_EQ(delivery.finisher, std::this_thread::get_id());
        EXPECT_EQ(delivery.writer != std::this_thread::get_id(), hasSecondProcessor());
        EXPECT_EQ(sink->notes(), (std::vector<std::string>{"a note"}));
    }
}

TEST(ThreadedSink, LeavesSignalsToTheCallingThread)
{
    if (!hasSecondProcessor()) GTEST_SKIP() << "the process has one processor";
    Delivery delivery;
    writeAll(*sinkTo(delivery), 1);
    EXPECT_FALSE(delivery.getsSignals);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGINT), 0);
}

TEST(ThreadedSink, ThrowsTheErrorOfTheOtherSinkAtALaterWrite)
{
    Delivery delivery{.capacity = 20000};
    const auto sink = sinkTo(delivery);
    const auto samples = counted(0, 1000 * kSlots);
    std::uint64_t accepted = 0;
    const auto writeForever = [&] {
        while (true) {
            sink->write(samples.data(), 1000);
            accepted += 1000;
        }
    };
    EXPECT_THROW(writeForever(), std::runtime_error);
    EXPECT_GE(accepted, 16000u);
    EXPECT_LE(accepted, 20000u + kMaxQueuedFrames);
    EXPECT_LE(delivery.frames, 20000u);
    EXPECT_EQ(delivery.finished, 0);
}

TEST(ThreadedSink, ThrowsTheErrorOfTheLastBlocksAtTheEnd)
{
    Delivery delivery{.capacity = 3000};
    const auto sink = sinkTo(delivery);
    const auto samples = counted(0, 4000 * kSlots);
    const auto writeAndFinish = [&] {
        sink->write(samples.data(), 4000);
        sink->finish();
    };
    EXPECT_THROW(writeAndFinish(), std::runtime_error);
    EXPECT_EQ(delivery.finished, 0);
}

TEST(ThreadedSink, EndsWithoutFinish)
{
    const auto samples = counted(0, 10000 * kSlots);
    for (const std::size_t frames : {0u, 10u, 4096u, 10000u}) {
        Delivery delivery;
        sinkTo(delivery)->write(samples.data(), frames);
        EXPECT_FALSE(delivery.exists);
        EXPECT_EQ(delivery.finished, 0);
        EXPECT_LE(delivery.frames, frames);
    }
}

TEST(ThreadedSink, QueuesABoundedNumberOfFrames)
{
    /// Compares what it got with what was accepted.
    class Slow final : public tarn::AudioSink
    {
    public:
        explicit Slow(std::atomic<std::uint64_t>& framesAccepted) : accepted(framesAccepted) {}

        void write(const std::int32_t* /*samples*/, std::size_t frames) override
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            EXPECT_LE(accepted - written, kMaxQueuedFrames);
            written += frames;
        }

        void finish() override {}

    private:
        std::atomic<std::uint64_t>& accepted;
        std::uint64_t written = 0;
    };
    std::atomic<std::uint64_t> accepted = 0;
    tarn::ThreadedSink sink(std::make_unique<Slow>(accepted), kSlots);
    const auto samples = counted(0, 4096 * kSlots);
    for (int i = 0; i < 100; ++i) {
        sink.write(samples.data(), 4096);
        accepted += 4096;
    }
    sink.finish();
}

TEST(ThreadedSink, NeedsNoSecondProcessorAndNoThread)
{
    const auto check = [] {
        Delivery delivery;
        EXPECT_EQ(writeAll(*sinkTo(delivery), 1), delivery.samples);
        EXPECT_EQ(delivery.writer, std::this_thread::get_id());
        EXPECT_EQ(delivery.finished, 1);
    };
    {
        const OneProcessor one;
        check();
    }
    const NoThreads none;
    check();
}

TEST(ReadAhead, ReturnsAllFramesInOrder)
{
    for (const bool isSlow : {true, false}) {
        Numbers numbers(1'000'000);
        EXPECT_EQ(readAll(numbers, isSlow), counted(0, 1'000'000));
        EXPECT_EQ(numbers.reader != std::this_thread::get_id(), isSlow && hasSecondProcessor());
        Numbers none(0);
        EXPECT_TRUE(readAll(none, isSlow).empty());
    }
}

TEST(ReadAhead, ReturnsTheFramesBeforeAnErrorFirst)
{
    for (const bool isSlow : {true, false}) {
        Numbers numbers(100'000);
        numbers.fails = true;
        tarn::ReadAhead<std::int32_t> source = numbers.ahead(isSlow);
        std::size_t samples = 0;
        const auto readToTheEnd = [&] {
            while (true) samples += source.next().size();
        };
        EXPECT_THROW(readToTheEnd(), std::runtime_error);
        EXPECT_EQ(samples, 100'000u);
    }
}

TEST(ReadAhead, EndsBeforeTheEndOfTheSource)
{
    Numbers numbers(100'000'000);
    {
        tarn::ReadAhead<std::int32_t> source = numbers.ahead(true);
        EXPECT_FALSE(source.next().empty());
    }
    const std::size_t frames = numbers.framesRead;
    EXPECT_LE(frames, kMaxQueuedFrames);
}

TEST(ReadAhead, NeedsNoSecondProcessorAndNoThread)
{
    const auto check = [] {
        Numbers numbers(100'000);
        EXPECT_EQ(readAll(numbers, true), counted(0, 100'000));
        EXPECT_EQ(numbers.reader, std::this_thread::get_id());
    };
    {
        const OneProcessor one;
        check();
    }
    const NoThreads none;
    check();
}

} // namespace tarn_cli
