// Fuzz target: damaged audio files through the whole of `tarn upmix`.
// SPDX-License-Identifier: MIT
#include "cli/failure.h"
#include "cli/json.h"
#include "cli/layout.h"
#include "cli/upmix_command.h"
#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/command_frame.h"
#include "tests/fuzz/decoder_feedback.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/written_file.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include <sys/resource.h>

// An input is four bytes of options and the bytes of a file. The command upmixes the file, tags included, or refuses
// it. The output is read back: it must be complete and match the report. A refusal must have a documented exit code and
// a readable message, and leave the folder unchanged.

namespace
{

using fuzz::ByteReader;
using fuzz::fail;
using fuzz::require;

/// Limits the time of a run, because decoders can make hours of silence from a few bytes.
constexpr rlim_t kMaxOutput = rlim_t{1} << 20;

constexpr std::string_view kFormerOutput = "the file that --force replaces\n";

/// A private folder in memory.
class Folder
{
public:
    Folder()
    {
        const char* const parent = std::getenv("TMPDIR");
        path = std::string(parent != nullptr ? parent : "/dev/shm") + "/tarn-fuzz-XXXXXX";
        require(mkdtemp(path.data()) != nullptr, path.c_str());
    }

    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string at(const std::string& name) const { return path + "/" + name; }

    std::set<std::string> names() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path)) names.insert(entry.path());
        return names;
    }

    void clear() const
    {
        for (const std::string& name : names()) std::filesystem::remove(name);
    }

private:
    std::string path;
};

void writeFile(const std::string& path, std::string_view bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    require(!file.fail(), path.c_str());
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Limits the size of files to kMaxOutput during its lifetime.
class FileSizeLimit
{
public:
    FileSizeLimit()
    {
        std::signal(SIGXFSZ, SIG_IGN); // as in the command; replaces the handler of libFuzzer
        require(getrlimit(RLIMIT_FSIZE, &former) == 0, "getrlimit");
        const rlimit limit{.rlim_cur = kMaxOutput, .rlim_max = former.rlim_max};
        require(setrlimit(RLIMIT_FSIZE, &limit) == 0, "setrlimit");
    }

    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &former); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit former{};
};

/// State that all inputs share.
struct Surroundings
{
    Surroundings()
    {
        fuzz::standardError();
        remap.hold(fuzz::kMatrix);
    }

    /// Prints how many inputs ended with each exit code, to show how many were upmixed and not just refused.
    ~Surroundings()
    {
        for (const auto& [code, count] : inputs) std::fprintf(stderr, "file: exit code %d: %zu\n", code, count);
    }

    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    Folder folder;
    fuzz::MemoryFile remap;
    fuzz::MemoryFile notes;
    std::map<int, std::size_t> inputs; ///< count by exit code
};

Surroundings& surroundings()
{
    static Surroundings instance;
    return instance;
}

/// How the command ended: with a report or with a message.
struct Outcome
{
    int exitCode = EX_OK;
    std::optional<tarn::UpmixReport> report;
    std::string message;
    std::string notes; ///< everything printed on standard error
};

Outcome outcomeOf(const tarn::UpmixOptions& options)
{
    Outcome outcome;
    fuzz::countLayout(options.layout);
    surroundings().notes.hold("");
    try {
        const FileSizeLimit limit;
        const fuzz::StandardErrorTo notes(surroundings().notes.descriptor());
        outcome.report = tarn::upmix(options);
        outcome.exitCode = outcome.report->exitCode();
    } catch (const tarn::Failure& failure) {
        outcome.exitCode = failure.exitCode();
        outcome.message = failure.what();
    } catch (const std::exception& error) {
        fail("internal error", error.what());
    }
    outcome.notes = surroundings().notes.content();
    return outcome;
}

/// Requires UTF-8 without control characters, including U+0080 to U+009F.
void requireReadable(const std::string& text)
{
    if (!fuzz::fitsTerminal(text)) fail("a message that is not for a terminal", text);
    try {
        static_cast<void>(tarn::Json(text).dump());
    } catch (const tarn::Json::exception& error) {
        fail("a message that is no UTF-8", error.what());
    }
    for (std::size_t at = 0; (at = text.find('\xc2', at)) != std::string::npos; ++at)
        if (static_cast<unsigned char>(text[at + 1]) < 0xa0) fail("a message with a control character", text);
}

/// Requires readable lines. With --quiet the command prints no summary.
void requireReadableNotes(const tarn::UpmixOptions& options, const Outcome& outcome)
{
    std::istringstream lines(outcome.notes);
    for (std::string line; std::getline(lines, line);) {
        requireReadable(line);
        if (options.quiet && line.ends_with(" x real time")) fail("a summary in spite of --quiet", line);
    }
}

void requireJson(const tarn::UpmixOptions& options, const tarn::UpmixReport& report)
{
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&text, &size);
    require(stream != nullptr, "open_memstream");
    tarn::printJson(tarn::jsonOf(options, report), stream);
    require(std::fclose(stream) == 0, "fclose");
    if (!tarn::Json::accept(text, text + size)) fail("a report that is no JSON", text);
    std::free(text);
}

void requireDone(const tarn::UpmixOptions& options, const Outcome& outcome)
{
    const tarn::UpmixReport& report = *outcome.report;
    if (outcome.exitCode != EX_OK && (outcome.exitCode != tarn::kExitIncomplete || options.strict))
        fail(std::to_string(outcome.exitCode) + " is no exit code of work that was done", outcome.notes);
    if (report.frames == 0) fail("no frames", outcome.notes);
    const tarn::Layout& layout = tarn::layoutNamed(options.layout);
    const std::string fault =
        fuzz::faultOf(options.output, {.layout = layout, .format = report.format, .frames = report.frames});
    if (!fault.empty()) fail("the output", fault);
    if (options.bits && report.format.bits != *options.bits) fail("another width than asked for", options.output);
    if (options.json) requireJson(options, report);
    if (surroundings().folder.names() != std::set{options.input, options.output})
        fail("more than the output is left", options.output);
}

void requireRefused(const tarn::UpmixOptions& options, const Outcome& outcome, bool replaces)
{
    switch (outcome.exitCode) {
    case EX_DATAERR:
        break;
    case EX_USAGE: {
        // The only possible usage error with these options.
        const bool tooWide = options.bits == 32 && options.output.ends_with(".flac");
        if (!tooWide) fail("refuses the options", outcome.message);
        break;
    }
    case EX_IOERR:
        if (outcome.message.find(std::strerror(EFBIG)) == std::string::npos)
            fail("cannot write, where there is room", outcome.message);
        break;
    default:
        fail(std::to_string(outcome.exitCode) + " is no exit code", outcome.message);
    }
    requireReadable(outcome.message);
    std::set<std::string> left{options.input};
    if (replaces) left.insert(options.output);
    if (surroundings().folder.names() != left) fail("the folder is not as it was", outcome.message);
    if (replaces && contentOf(options.output) != kFormerOutput) fail("a lost file", outcome.message);
}

/// Decodes the options, and whether the output exists before the run.
std::pair<tarn::UpmixOptions, bool> optionsOf(ByteReader& bytes)
{
    constexpr std::array<std::optional<std::uint32_t>, 4> kBits{std::nullopt, 16, 24, 32};
    constexpr std::array<const char*, 12> kInputs{"in",      "in.wav", "in.flac", "in.mp3", "in.ogg",  "in.opus",
                                                  "in.aiff", "in.caf", "in.w64",  "in.au",  "in.rf64", "in.oga"};
    const Folder& folder = surroundings().folder;
    tarn::UpmixOptions options;
    options.layout = fuzz::layoutFrom(bytes);
    const std::uint8_t what = bytes.byte();
    const std::uint8_t how = bytes.byte();
    const auto has = [](std::uint8_t byte, int bit) { return (byte >> bit) % 2 != 0; };

    options.bits = kBits[what % 4];
    options.output = folder.at(has(what, 2) ? "out.flac" : "out.wav");
    options.mode = has(what, 3) ? "calm" : "fast";
    options.noAlign = has(what, 4);
    options.bypass = has(what, 5);
    if (options.layout == "7.1-remap") options.remapFile = surroundings().remap.name();

    options.quiet = has(how, 0);
    options.json = has(how, 1);
    if (!options.bypass) {
        if (has(how, 6) && options.layout != "7.1-remap") options.room.preset = "voice";
        const bool isPlainStereo = options.layout == "2.0" && !options.room.preset;
        options.loudnessMatch = has(how, 2) && !isPlainStereo;
        if (has(how, 3) && !options.loudnessMatch) options.room.gainDb = -3.0;
        options.room.noLimiter = has(how, 7) && options.layout != "7.1-remap";
    }
    options.strict = has(how, 4);
    options.force = true;
    options.input = folder.at(bytes.oneOf(kInputs));
    return {options, has(how, 5)};
}

} // namespace

int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    surroundings();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size)
{
    ByteReader reader(input, size);
    const auto [options, replaces] = optionsOf(reader);
    const auto rest = reader.rest();
    const std::string_view bytes(reinterpret_cast<const char*>(rest.data()), rest.size());
    writeFile(options.input, bytes);
    if (replaces) writeFile(options.output, kFormerOutput);

    const Outcome outcome = outcomeOf(options);
    if (outcome.report) {
        requireDone(options, outcome);
    } else {
        requireRefused(options, outcome, replaces);
    }
    requireReadableNotes(options, outcome);
    const fuzz::StandardErrorTo notes(surroundings().notes.descriptor());
    fuzz::noteDecoding(options.input, bytes, outcome.exitCode, outcome.message + outcome.notes);
    surroundings().folder.clear();
    ++surroundings().inputs[outcome.exitCode];
    return 0;
}
