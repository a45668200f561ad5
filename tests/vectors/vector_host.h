#pragma once

#include "host/zrk_tarn_processor.h"
#include "tests/vectors/split_mix.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tests
{

/// FNV-1a, 64 bits, of the bytes of a buffer before and after a process call.
struct Checksums
{
    std::uint64_t input;
    std::uint64_t output;

    friend bool operator==(const Checksums&, const Checksums&) = default;
};

/// A host that does what the lines of host-lives.txt say; README.md in this folder describes them.
class VectorHost
{
public:
    /// Takes a line's words up to its checksums and carries them out; a buffer gives its checksums.
    ///
    /// Throws std::invalid_argument for what is not described.
    std::optional<Checksums> carryOut(std::istream& words);

    /// The life that the last line belongs to.
    const std::string& life() const { return life_; }

    /// How many buffers of it were processed.
    int buffers() const { return buffers_; }

private:
    struct Frame
    {
        std::int64_t left;
        std::int64_t right;
    };

    void beginLife(std::istream& words);
    void setup(std::istream& words);
    void setGains(std::istream& words);
    void setSlots(std::istream& words);
    Checksums process(std::istream& words);

    std::uint32_t call(void* buffer, std::uint32_t frames);
    Frame nextFrame(const std::string& signal);
    void fill(std::vector<std::uint8_t>& buffer, std::uint32_t frames, const std::string& signal, std::uint32_t shift);
    std::int64_t draw() { return static_cast<std::int32_t>(random_.bits()); }

    std::string life_;
    int buffers_ = 0;
    std::unique_ptr<zrk_tarn_processor_t> processor_;
    SplitMix random_{0};
    std::uint32_t time_ = 0; ///< frames of the life so far
    std::uint32_t rateHz_ = 0;
    std::uint32_t bits_ = 0;
    std::uint32_t slots_ = 0;
    bool assigned_ = false; ///< whether the assignment is passed, or null
    audio_channel_assignment_t assignment_{};
};

} // namespace tests
