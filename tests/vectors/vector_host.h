// A host that runs the lines of host-sessions.txt.
// SPDX-License-Identifier: MIT
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

/// Runs the lines of host-sessions.txt; README.md in this folder describes them.
class VectorHost
{
public:
    /// Reads a line up to its checksums and runs it. A buffer returns its checksums.
    ///
    /// Throws std::invalid_argument for an unknown line.
    std::optional<Checksums> runLine(std::istream& words);

    /// The name of the current session.
    const std::string& session() const { return name; }

    /// Number of buffers processed in the session.
    int buffers() const { return bufferCount; }

private:
    struct Frame
    {
        std::int64_t left;
        std::int64_t right;
    };

    void beginSession(std::istream& words);
    void setup(std::istream& words);
    void setGains(std::istream& words);
    void setSlots(std::istream& words);
    Checksums process(std::istream& words);

    std::uint32_t call(void* buffer, std::uint32_t frames);
    Frame nextFrame(const std::string& signal);
    void fill(std::vector<std::uint8_t>& buffer, std::uint32_t frames, const std::string& signal, std::uint32_t shift);
    std::int64_t draw() { return static_cast<std::int32_t>(random.bits()); }

    std::string name;
    int bufferCount = 0;
    std::unique_ptr<zrk_tarn_processor_t> processor;
    SplitMix random{0};
    std::uint32_t nextTime = 0; ///< frames of the session so far
    std::uint32_t rateHz = 0;
    std::uint32_t bits = 0;
    std::uint32_t slots = 0;
    bool isAssigned = false; ///< whether the assignment is passed instead of null
    audio_channel_assignment_t assignment{};
};

} // namespace tests
