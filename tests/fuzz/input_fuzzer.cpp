// Fuzz target: all inputs of `tarn upmix`: audio files, raw PCM and remap files.
// SPDX-License-Identifier: MIT
#include "cli/failure.h"
#include "cli/layout.h"
#include "cli/stream_format.h"
#include "cli/upmix_command.h"
#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/command_frame.h"
#include "tests/fuzz/fuzz_target.h"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// The command either upmixes or refuses. A failure must have a documented exit code and a readable message. The result
// of raw PCM must match its format and length. The output must be whole frames.

namespace
{

using fuzz::ByteReader;
using fuzz::fail;
using fuzz::MemoryFile;
using fuzz::require;

constexpr std::size_t kMaxOutput = std::size_t{1} << 20;
const std::string kStream = "-"; ///< standard input and output by name

/// The files of the command, and its standard streams.
struct Surroundings
{
    Surroundings()
    {
        // Limits the output: decoders can make hours of silence from a few bytes.
        require(ftruncate(output.descriptor(), kMaxOutput) == 0, "ftruncate");
        require(fcntl(output.descriptor(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK) == 0, "fcntl");
        require(dup2(input.descriptor(), STDIN_FILENO) == STDIN_FILENO, "dup2");
        require(dup2(output.descriptor(), STDOUT_FILENO) == STDOUT_FILENO, "dup2");
        require(null >= 0, "open");
        fuzz::standardError();
    }

    MemoryFile input;
    MemoryFile remap;
    MemoryFile output;
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
};

const Surroundings& surroundings()
{
    static const Surroundings kSurroundings;
    return kSurroundings;
}

/// How the command ended.
struct Outcome
{
    int exitCode = EX_OK;
    std::string message; ///< of its failure
    std::size_t written = 0;
};

Outcome outcomeOf(const tarn::UpmixOptions& options)
{
    lseek(STDIN_FILENO, 0, SEEK_SET);
    lseek(STDOUT_FILENO, 0, SEEK_SET);
    Outcome outcome;
    fuzz::countLayout(options.layout);
    try {
        const fuzz::StandardErrorTo nothing(surroundings().null);
        outcome.exitCode = tarn::runUpmix(options);
    } catch (const tarn::Failure& failure) {
        outcome.exitCode = failure.exitCode();
        outcome.message = failure.what();
    } catch (const std::exception& error) {
        fail("internal error", error.what());
    }
    outcome.written = static_cast<std::size_t>(lseek(STDOUT_FILENO, 0, SEEK_CUR));

    if (outcome.exitCode == EX_OK) return outcome;
    constexpr std::array kExitCodes{tarn::kExitIncomplete, EX_USAGE, EX_DATAERR, EX_IOERR};
    if (std::find(kExitCodes.begin(), kExitCodes.end(), outcome.exitCode) == kExitCodes.end())
        fail(std::to_string(outcome.exitCode) + " is no exit code", outcome.message);
    if (outcome.exitCode == EX_IOERR && outcome.written < kMaxOutput - 4096)
        fail("cannot write, where there is room", outcome.message);
    if (!fuzz::fitsTerminal(outcome.message)) fail("a message that is not for a terminal", outcome.message);
    return outcome;
}

std::string textOf(std::span<const std::uint8_t> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void requireWholeFrames(const tarn::UpmixOptions& options, const Outcome& outcome)
{
    constexpr std::size_t kShortestSample = 2;
    const std::size_t slots = tarn::layoutNamed(options.layout).slots;
    const std::size_t sampleBytes = options.bits ? *options.bits / 8 : kShortestSample;
    if (outcome.exitCode == EX_OK &&
        (outcome.written == 0 || (options.bits && outcome.written % (slots * sampleBytes) != 0)))
        fail(std::to_string(outcome.written) + " bytes written", options.layout);
}

/// Upmixes an audio file.
void upmixFile(tarn::UpmixOptions options, ByteReader& bytes)
{
    surroundings().remap.hold(fuzz::kMatrix);
    surroundings().input.hold(textOf(bytes.rest()));
    options.input = surroundings().input.name();
    requireWholeFrames(options, outcomeOf(options));
}

/// The format of a text RATE:BITS, if the command supports it.
std::optional<tarn::StreamFormat> formatNamed(std::string_view text)
{
    const auto number = [](std::string_view digits) {
        constexpr std::size_t kMaxDigits = 6;
        const bool isNumber = digits.find_first_not_of("0123456789") == std::string_view::npos && !digits.empty();
        digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
        return isNumber && !digits.empty() && digits.size() <= kMaxDigits
                   ? static_cast<std::uint32_t>(std::stoul(std::string(digits)))
                   : 0u;
    };
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    const tarn::StreamFormat format{.sampleRate = number(text.substr(0, colon)),
                                    .bits = number(text.substr(colon + 1))};
    const bool isWidth = format.bits == 16 || format.bits == 24 || format.bits == 32;
    if (format.sampleRate < 4000 || format.sampleRate > 768000 || !isWidth) return std::nullopt;
    return format;
}

bool beginsLikeFile(std::string_view pcm)
{
    constexpr std::array<std::string_view, 6> kMarks{"RIFF", "RF64", "FORM", "fLaC", "OggS", "caff"};
    return std::ranges::any_of(kMarks, [&](std::string_view mark) { return pcm.starts_with(mark); });
}

/// Upmixes a line with the format and the following PCM.
void upmixRaw(tarn::UpmixOptions options, ByteReader& bytes)
{
    // The format is an argument, so it is text.
    constexpr std::size_t kLongestFormat = 24;
    std::string text = bytes.textUpTo('\n').substr(0, kLongestFormat);
    std::erase_if(text, [](char c) { return c < 0x20 || c == 0x7f; });
    const std::string pcm = textOf(bytes.rest());
    options.input = kStream;
    options.raw = text;
    surroundings().remap.hold(fuzz::kMatrix);
    surroundings().input.hold(pcm);

    const Outcome outcome = outcomeOf(options);
    int exitCode = EX_USAGE;
    std::size_t written = 0;
    if (const auto format = formatNamed(text)) {
        const std::size_t frameBytes = std::size_t{2} * format->bytesPerSample();
        const bool isValid = pcm.size() >= frameBytes && !beginsLikeFile(pcm);
        const std::uint32_t rate = tarn::engineRateFor(format->sampleRate);
        const bool isConverted = rate != format->sampleRate;
        const std::size_t sampleBytes =
            options.bits.value_or(isConverted ? std::max(format->bits, 24u) : format->bits) / 8;
        exitCode = isValid ? EX_OK : EX_DATAERR;
        written = tarn::framesAtRate(pcm.size() / frameBytes, format->sampleRate, rate) *
                  tarn::layoutNamed(options.layout).slots * sampleBytes;
        if (written > kMaxOutput) return;
    }
    if (outcome.exitCode != exitCode)
        fail(std::to_string(outcome.exitCode) + " instead of exit code " + std::to_string(exitCode), outcome.message);
    if (exitCode == EX_OK && outcome.written != written)
        fail(std::to_string(outcome.written) + " bytes written instead of " + std::to_string(written), text);
}

/// Upmixes PCM with a remap file.
void upmixWithMatrix(tarn::UpmixOptions options, ByteReader& bytes)
{
    options.layout = "7.1-remap";
    options.input = kStream;
    options.raw = "48000:16";
    surroundings().input.hold(std::string(4 * 100, '\x5a'));
    surroundings().remap.hold(textOf(bytes.rest()));
    options.remapFile = surroundings().remap.name();
    requireWholeFrames(options, outcomeOf(options));
}

} // namespace

int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    surroundings();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size)
{
    constexpr std::array<std::optional<std::uint32_t>, 4> kBits{std::nullopt, 16, 24, 32};
    ByteReader bytes(input, size);
    tarn::UpmixOptions options;
    options.output = kStream;
    options.layout = fuzz::layoutFrom(bytes);
    const std::uint8_t what = bytes.byte();
    const std::uint8_t how = bytes.byte();
    options.bits = kBits[how % 4];
    options.noAlign = how / 4 % 2 != 0;
    options.quiet = how / 8 % 2 != 0;
    options.mode = how / 16 % 2 == 0 ? "fast" : "calm";
    if (options.layout == "7.1-remap") options.remapFile = surroundings().remap.name();
    switch (what % 4) {
    case 1:
        upmixRaw(options, bytes);
        break;
    case 2:
        upmixWithMatrix(options, bytes);
        break;
    default:
        if (how / 32 % 2 != 0) options.raw = "48000:24";
        upmixFile(options, bytes);
        break;
    }
    return 0;
}
