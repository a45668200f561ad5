// `tarn upmix --remap`: slots of the matrix, and samples that wrap in it.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/engine_output.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

using Json = nlohmann::json;
using Matrix = std::array<std::array<std::int32_t, 4>, 3>;

__extension__ using Wide = __int128;

constexpr std::size_t kFrames = 20000;
constexpr double kUnity = 0x1p28;
constexpr std::array<std::size_t, 4> kColumnSlots{0, 1, 6, 7};

/// Gains that are exact with 28 fraction bits, as text and as numbers.
struct Gains
{
    explicit Gains(const std::string& rows) : text(rows)
    {
        std::istringstream numbers(rows);
        for (auto& row : fixed)
            for (std::int32_t& gain : row) {
                double number = 0.0;
                numbers >> number;
                gain = static_cast<std::int32_t>(std::llround(number * kUnity));
            }
    }

    std::string text;
    Matrix fixed{};
};

int subtype(unsigned bits)
{
    return bits == 16 ? SF_FORMAT_PCM_16 : bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32;
}

/// Sums of a matrix over the three left-justified outputs of the engine, at the scale of the samples.
struct Sums
{
    Sums(const Samples& plain, unsigned width, const Matrix& matrix) : bits(width)
    {
        for (std::size_t frame = 0; frame < plain.size() / 3; ++frame)
            for (std::size_t c = 0; c < 4; ++c) {
                Wide sum = 0;
                for (std::size_t r = 0; r < 3; ++r) sum += Wide{matrix[r][c]} * (plain[3 * frame + r] >> (32 - bits));
                column[c].push_back(static_cast<std::int64_t>(sum >> 28)); // rounded down
            }
    }

    /// The low bits of a sum that a sample of the width stores, left-justified.
    std::int32_t stored(std::int64_t sum) const
    {
        const std::uint64_t low = static_cast<std::uint64_t>(sum) & ((std::uint64_t{1} << bits) - 1);
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(low << (32 - bits)));
    }

    bool wraps(std::int64_t sum) const { return stored(sum) >> (32 - bits) != sum; }

    std::size_t wrapped(std::size_t c) const
    {
        return static_cast<std::size_t>(
            std::count_if(column[c].begin(), column[c].end(), [this](std::int64_t sum) { return wraps(sum); }));
    }

    std::size_t wrapped() const { return wrapped(0) + wrapped(1) + wrapped(2) + wrapped(3); }

    /// Largest magnitude of the sums of a column, relative to full scale.
    double largest(std::size_t c) const
    {
        std::int64_t magnitude = 0;
        for (const std::int64_t sum : column[c]) magnitude = std::max(magnitude, std::abs(sum));
        return std::ldexp(static_cast<double>(magnitude), 1 - static_cast<int>(bits));
    }

    double largest() const { return std::max({largest(0), largest(1), largest(2), largest(3)}); }

    unsigned bits;
    std::array<std::vector<std::int64_t>, 4> column;
};

std::string formatted(const char* format, double value)
{
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

} // namespace

class Remap : public CommandTest
{
protected:
    Samples writeInput(unsigned bits) const
    {
        Samples stereo = stereoNoise(kFrames, bits);
        // Full-scale square waves: in both channels, which drives the centre beyond full scale, then left, then right.
        for (std::size_t frame = 2000; frame < 18000; ++frame) {
            const std::int32_t square = frame / 200 % 2 == 0 ? INT32_MIN : INT32_MAX;
            stereo[2 * frame] = frame < 14000 ? square : 0;
            stereo[2 * frame + 1] = frame < 10000 || frame >= 14000 ? square : 0;
        }
        const auto mask = ~((std::uint32_t{1} << (32 - bits)) - 1);
        for (std::int32_t& sample : stereo)
            sample = static_cast<std::int32_t>(static_cast<std::uint32_t>(sample) & mask);
        writeAudio(at("in.wav"), SF_FORMAT_WAV | subtype(bits), 48000, 2, stereo);
        return stereo;
    }

    Result upmix(const std::string& matrix, const std::vector<std::string>& options) const
    {
        writeBytes(at("m.txt"), matrix);
        std::vector<std::string> arguments{"upmix",   "--force", "--layout", "7.1-remap",
                                           "--remap", "m.txt",   "in.wav",   "out.wav"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Result result = tarn(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return result;
    }

    Json reportOf(const std::string& matrix, std::vector<std::string> options = {}) const
    {
        options.insert(options.end(), {"--json", "--quiet"});
        const Result result = upmix(matrix, options);
        Json report = Json::parse(result.output);
        EXPECT_EQ(result.errors.empty(), report["wrapped_samples"] == 0 && report["clipped_samples"] == 0)
            << result.errors;
        return report;
    }

    /// The active slots of the output, by name, as left-justified samples.
    std::map<std::string, Samples> outputSlots() const
    {
        const std::vector<std::string> names{"FL", "FR", "FC", "LFE", "BL", "BR", "SL", "SR"};
        const Samples output = readAudio(at("out.wav")).samples;
        std::map<std::string, Samples> slots;
        for (std::size_t slot = 0; slot < names.size(); ++slot) {
            Samples samples;
            for (std::size_t i = slot; i < output.size(); i += names.size()) samples.push_back(output[i]);
            if (std::any_of(samples.begin(), samples.end(), [](std::int32_t s) { return s != 0; }))
                slots[names[slot]] = samples;
        }
        return slots;
    }
};

/// The counts require equal engine outputs on both paths, so every stored sample is compared.
TEST_F(Remap, CountsWrappedSumsInEveryWidth)
{
    const Gains gains("2.25 0.25 0 -8\n0.5 -1.75 -0.5 -8\n0.25 0.125 1.5 7.75\n");
    for (const unsigned bits : {16u, 24u, 32u}) {
        const Samples stereo = writeInput(bits);
        for (const bool align : {true, false}) {
            const Samples plain = engineOutput(stereo, {.bits = bits, .plain = true, .align = align});
            EXPECT_NE(std::count(plain.begin(), plain.end(), INT32_MIN), 0) << "precondition of this test";
            const Sums sums(plain, bits, gains.fixed);
            for (std::size_t c = 0; c < 4; ++c) EXPECT_GT(sums.wrapped(c), 0u) << "precondition of this test";

            const Json report =
                reportOf(gains.text, align ? std::vector<std::string>{} : std::vector<std::string>{"--no-align"});
            EXPECT_EQ(report["wrapped_samples"], sums.wrapped()) << bits;
            const Samples output = readAudio(at("out.wav")).samples;
            ASSERT_EQ(output.size(), 8 * kFrames);
            for (std::size_t frame = 0; frame < kFrames; ++frame)
                for (std::size_t c = 0; c < 4; ++c)
                    ASSERT_EQ(output[8 * frame + kColumnSlots[c]], sums.stored(sums.column[c][frame]))
                        << bits << " " << frame << " " << c;
        }
    }
}

TEST_F(Remap, NoteGivesWrappedCountAndSafeGains)
{
    const Samples plain = engineOutput(writeInput(16), {.plain = true});
    const Gains gains("1 0 0.75 0\n0 0.5 0.75 0\n0 0 0.75 0.5\n");
    const Sums sums(plain, 16, gains.fixed);
    ASSERT_GT(sums.wrapped(2), 1u) << "precondition of this test";
    ASSERT_EQ(sums.wrapped(), sums.wrapped(2)) << "precondition of this test";
    const std::string factor = formatted("%.2f", std::floor(100.0 / sums.largest(2)) / 100.0);
    const Result result = upmix(gains.text, {});
    EXPECT_NE(result.errors.find("tarn: out.wav: " + std::to_string(sums.wrapped()) +
                                 " samples wrapped around; the loudest sample of the mix is " +
                                 formatted("%.4g", sums.largest()) +
                                 " times full scale: multiply the gains of column 3 (SL) by " + factor + " or less\n"),
              std::string::npos)
        << result.errors;

    const std::string smaller = formatted("%.6f", 0.75 * std::stod(factor));
    EXPECT_EQ(reportOf("1 0 " + smaller + " 0\n0 0.5 " + smaller + " 0\n0 0 " + smaller + " 0.5\n")["wrapped_samples"],
              0);
}

TEST_F(Remap, NoteNamesEveryWrappedColumn)
{
    const Samples plain = engineOutput(writeInput(16), {.plain = true});
    const Gains gains("0 0 0 0\n0 1 0 0\n2 0 0 4\n");
    const Sums sums(plain, 16, gains.fixed);
    ASSERT_EQ(sums.largest(0), 2.0) << "precondition of this test";
    ASSERT_EQ(sums.largest(3), 4.0) << "precondition of this test";
    const Result result = upmix("FC BL SR LFE\n" + gains.text, {});
    EXPECT_NE(result.errors.find("m.txt: the gains of column 1 (FC) sum to 2 in magnitude"), std::string::npos)
        << result.errors;
    // The factors are slightly below 0.5 and 0.25 to allow for the rounding of the gains.
    EXPECT_NE(
        result.errors.find(std::to_string(sums.wrapped()) +
                           " samples wrapped around; the loudest sample of the mix is 4 times full scale: multiply "
                           "the gains of column 1 (FC) by 0.49, of column 4 (LFE) by 0.24 or less\n"),
        std::string::npos)
        << result.errors;
}

TEST_F(Remap, GainOfMinusOneWrapsTheSmallestSample)
{
    const Samples plain = engineOutput(writeInput(16), {.plain = true});
    std::size_t smallest = 0;
    for (std::size_t i = 2; i < plain.size(); i += 3)
        if (plain[i] == INT32_MIN) ++smallest;
    ASSERT_GT(smallest, 1u) << "precondition of this test";
    const Result result = upmix("0 0 0 0\n0 1 0 0\n-1 0 0.5 0.5\n", {});
    EXPECT_NE(result.errors.find(std::to_string(smallest) +
                                 " samples wrapped around; the loudest sample of the mix is 1 times full "
                                 "scale: multiply the gains of column 1 (FL) by 0.99 or less"),
              std::string::npos)
        << result.errors;
}

TEST_F(Remap, WrappedSamplesAreReportedWithQuiet)
{
    const Gains gains("4 0 0 0\n0 1 0 0\n0 0 1 0\n");
    const Sums sums(engineOutput(writeInput(16), {.plain = true}), 16, gains.fixed);
    ASSERT_GT(sums.wrapped(), 1u) << "precondition of this test";
    const Result loud = upmix(gains.text, {"--quiet"});
    EXPECT_EQ(loud.errors.find("tarn: out.wav: " + std::to_string(sums.wrapped()) + " samples wrapped around; "), 0u)
        << loud.errors;
    EXPECT_EQ(std::count(loud.errors.begin(), loud.errors.end(), '\n'), 1) << loud.errors;

    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, Samples(4000, 0x100000));
    EXPECT_EQ(upmix(gains.text, {"--quiet"}).errors, "");
}

TEST_F(Remap, WrappedSamplesAreCountedBeforeTheGain)
{
    const Gains gains("1 0 0.75 0\n0 0.5 0.75 0\n0 0 0.75 0.5\n");
    const Sums sums(engineOutput(writeInput(24), {.bits = 24, .plain = true}), 24, gains.fixed);
    EXPECT_EQ(reportOf(gains.text, {"--gain", "-20"})["wrapped_samples"], sums.wrapped());
    EXPECT_EQ(reportOf(gains.text, {"--gain", "12"})["wrapped_samples"], sums.wrapped());
    EXPECT_EQ(reportOf(gains.text, {"--loudness-match"})["wrapped_samples"], sums.wrapped());
}

TEST_F(Remap, WrappedSamplesAreCountedOverAllFrames)
{
    // One block and a partial one from a pipe: the samples that wrap are in the tail of the engine.
    const Gains gains("2 0 0 0\n0 2 0 0\n0 0 2 0\n");
    const Samples stereo(2 * 100, INT32_MIN);
    const Sums sums(engineOutput(stereo, {.plain = true}), 16, gains.fixed);
    ASSERT_GT(sums.wrapped(), 0u) << "precondition of this test";
    writeBytes(at("m.txt"), gains.text);
    const Result result = tarnWithInput(pcmOf(stereo, 16), {"upmix", "--layout", "7.1-remap", "--remap", "m.txt",
                                                            "--raw", "48000:16", "--quiet", "--json", "-", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(Json::parse(result.output)["wrapped_samples"], sums.wrapped());
}

TEST_F(Remap, ZeroCountIsReportedWhereSamplesCouldWrap)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, Samples(4000, 0x100000));
    const Result result = upmix("1 0 1 0\n0 1 1 0\n0 0 1 1\n", {});
    EXPECT_NE(result.errors.find("column 3 (SL) sum to 3 in magnitude"), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find("tarn: out.wav: no sample wrapped around; the loudest sample of the mix is 0.000"),
              std::string::npos)
        << result.errors;
}

TEST_F(Remap, NothingIsReportedWhereNothingCanWrap)
{
    writeInput(16);
    const std::string unity = "1 0 0 0\n0 1 0 0\n0 0 0.5 0.5\n";
    EXPECT_EQ(reportOf(unity)["wrapped_samples"], 0);
    EXPECT_EQ(upmix(unity, {}).errors.find("wrap"), std::string::npos);
    const std::string loud = "4 0 0 0\n0 4 0 0\n0 0 4 4\n";
    EXPECT_EQ(reportOf(loud, {"--bypass"})["wrapped_samples"], 0);
    EXPECT_EQ(upmix(loud, {"--bypass"}).errors.find("wrap"), std::string::npos);
    const Result other = tarn({"upmix", "--force", "--json", "in.wav", "out.wav"});
    EXPECT_FALSE(Json::parse(other.output).contains("wrapped_samples"));
}

TEST_F(Remap, BatchCountsEveryFile)
{
    const Gains gains("2 0 0 0\n0 1 0 0\n0 0 1 0\n");
    const Sums sums(engineOutput(writeInput(16), {.plain = true}), 16, gains.fixed);
    writeAudio(at("quiet.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, Samples(4000, 0x100000));
    writeBytes(at("m.txt"), gains.text);
    const Result result = tarn({"upmix", "--layout", "7.1-remap", "--remap", "m.txt", "--output-dir", "out", "-j", "2",
                                "--json", "in.wav", "quiet.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    // The note about the matrix is printed once.
    const std::size_t note = result.errors.find("loud passages can wrap around");
    EXPECT_NE(note, std::string::npos) << result.errors;
    EXPECT_EQ(result.errors.find("loud passages can wrap around", note + 1), std::string::npos) << result.errors;
    const Json files = Json::parse(result.output)["files"];
    EXPECT_EQ(files[0]["wrapped_samples"], sums.wrapped());
    EXPECT_EQ(files[1]["wrapped_samples"], 0);
}

TEST_F(Remap, MixesIntoTheNamedSlots)
{
    writeInput(16);
    const std::string rows = "0.5 0 0.25 0.125\n0 0.5 0.125 0.25\n0.5 0.25 0.25 0.5\n";
    upmix(rows, {});
    const std::map<std::string, Samples> standard = outputSlots();
    ASSERT_EQ(standard.size(), 4u);
    for (const std::string line : {"FL FR FC LFE", "SR BL FC FL", "LFE BR BL SL", "FL FR SL SR"}) {
        upmix("# slots\n\n" + line + " # by column\r\n" + rows, {});
        std::map<std::string, Samples> expected;
        std::istringstream names(line);
        for (const char* const column : {"FL", "FR", "SL", "SR"}) {
            std::string name;
            names >> name;
            expected[name] = standard.at(column);
        }
        EXPECT_TRUE(outputSlots() == expected) << line;
    }
}

TEST_F(Remap, LowerCaseSlotNamesAndByteOrderMarkAreAccepted)
{
    writeInput(16);
    const std::string rows = "0.5 0 0.25 0.125\n0 0.5 0.125 0.25\n0.5 0.25 0.25 0.5\n";
    upmix("FL FR FC LFE\n" + rows, {});
    const std::map<std::string, Samples> named = outputSlots();
    for (const std::string text : {"fl fr Fc lfe\n",
                                   "\xef\xbb\xbf"
                                   "FL FR FC LFE\n",
                                   "\xef\xbb\xbf# slots\nfl FR fc LFE\n"}) {
        upmix(text + rows, {});
        EXPECT_TRUE(outputSlots() == named) << text;
    }
    upmix(rows, {});
    const std::map<std::string, Samples> standard = outputSlots();
    upmix("\xef\xbb\xbf" + rows, {});
    EXPECT_TRUE(outputSlots() == standard);
}

TEST_F(Remap, BypassKeepsStereoInFrontForAnySlotNames)
{
    const Samples stereo = writeInput(16);
    upmix("FC LFE FR BL\n1 0 0 0\n0 1 0 0\n0 0 1 0\n", {"--bypass"});
    std::map<std::string, Samples> expected;
    for (std::size_t i = 0; i < stereo.size(); ++i) expected[i % 2 == 0 ? "FL" : "FR"].push_back(stereo[i]);
    EXPECT_TRUE(outputSlots() == expected);
}

TEST_F(Remap, MatrixFromAPipeIsReadAsItArrivesAndInterrupted)
{
    writeAudio(at("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(3000, 16));
    const std::string upmix = "\"$TARN\" upmix --quiet --layout 7.1-remap --remap ";
    const Result read =
        shell("mkfifo pipe; printf '1 0 0 0\\n0 1 0 0\\n0 0 1 0\\n' > matrix; (head -c 9 matrix; sleep 0.1; "
              "tail -c +10 matrix) > pipe & " +
              upmix + "matrix in.wav file.wav; " + upmix + "pipe in.wav pipe.wav && cmp file.wav pipe.wav");
    EXPECT_EQ(read.exitCode, 0) << read.errors;

    // The writer opens the pipe as soon as the command reads it, and sends nothing.
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
        const int sink = open("/dev/null", O_RDWR | O_CLOEXEC);
        Process process({.arguments = {"upmix", "--layout", "7.1-remap", "--remap", "pipe", "in.wav", "out.wav"}},
                        directory, sink, sink, sink);
        int writer = -1;
        for (int i = 0; i < 1000 && writer < 0; ++i) {
            usleep(10000);
            writer = open(at("pipe").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        }
        ASSERT_GE(writer, 0) << "nobody reads";
        expectDeathBy(signalNumber, process);
        close(writer);
        close(sink);
        EXPECT_FALSE(std::filesystem::exists(at("out.wav")));
    }
}

TEST_F(Remap, BadSlotNamesAreRefusedWithTheLine)
{
    writeInput(16);
    const std::string rows = "1 0 0 0\n0 1 0 0\n0 0 0.5 0.5\n";
    const auto expectRefusal = [this](const std::string& text, const std::string& message) {
        writeBytes(at("m.txt"), text);
        const Result result = tarn({"upmix", "--layout", "7.1-remap", "--remap", "m.txt", "in.wav", "out.wav"});
        EXPECT_EQ(result.exitCode, 65) << text;
        EXPECT_EQ(result.errors, "tarn: m.txt: " + message + "\n");
        EXPECT_EQ(files(), (std::vector<std::string>{"in.wav", "m.txt"}));
    };
    const std::string all = "FL FR FC LFE BL BR SL SR";
    expectRefusal("FL FR FC\n" + rows, "line 1: 3 slots; name 4 of " + all + ", separated by spaces");
    expectRefusal("#\nFL FR FC LFE SL\n" + rows, "line 2: 5 slots; name 4 of " + all + ", separated by spaces");
    expectRefusal("FL FR fx LFE\n" + rows, "line 1: 'fx' is not the name of a slot; name 4 of " + all);
    expectRefusal("FL FR 0 0\n" + rows, "line 1: '0' is not the name of a slot; name 4 of " + all);
    expectRefusal("FL fr FC FR\n" + rows, "line 1: FR is named twice; name 4 different slots");
    expectRefusal("F\x1bL FR FC LFE\n" + rows, "line 1: 'F?L' is not the name of a slot; name 4 of " + all);
    expectRefusal("1 0 0 0\nFL FR FC LFE\n",
                  "line 2: names slots after the first line; move this line before the gains");
    expectRefusal("FL FR FC LFE\nFL FR FC LFE\n" + rows,
                  "line 2: names slots after the first line; move this line before the gains");
    expectRefusal("1 0 0 0\nfl fr fc lfe\n",
                  "line 2: names slots after the first line; move this line before the gains");
    expectRefusal("FL FR FC LFE\n1 0 0\n",
                  "line 2: 3 gains; a row has 4, one each for FL, FR, FC, LFE, separated by spaces");
    expectRefusal("FL FR FC LFE\n1 0 0 0\n", "ends after 1 row; a matrix has 3 (FL, FR, centre)");
}

} // namespace tarn_cli
