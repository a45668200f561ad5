// Files of 20 GB that take a few KB on the disk: the command ends, or stops at once when it is told to.
// SPDX-License-Identifier: MIT
#include "cli/chunk_walk.h"
#include "cli/descriptor.h"
#include "cli/file_parts.h"
#include "cli/interrupt.h"
#include "cli/tags.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

constexpr std::uintmax_t kBytes = 20'000'000'000;
constexpr std::size_t kFrames = 6000;
constexpr const char* kSecondsToStop = TARN_INSTRUMENTED ? "10" : "1"; // sanitizers are slow
constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kMp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;

std::string bigEndian(std::uint64_t value, unsigned bytes)
{
    std::string text;
    for (unsigned i = bytes; i > 0; --i) text += static_cast<char>(value >> 8 * (i - 1) & 0xff);
    return text;
}

std::string littleEndian(std::uint64_t value, unsigned bytes)
{
    const std::string text = bigEndian(value, bytes);
    return {text.rbegin(), text.rend()};
}

std::string repeated(const std::string& bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += bytes;
    return text;
}

/// Number of bytes that this process has read.
std::uint64_t bytesRead()
{
    std::ifstream counters("/proc/self/io");
    std::string name;
    std::uint64_t bytes = 0;
    counters >> name >> bytes;
    return bytes;
}

} // namespace

class SparseFiles : public CommandTest
{
protected:
    std::string audio(int format) const
    {
        writeAudio(at("audio"), format, 48000, 2, stereoNoise(kFrames, 16));
        return bytesOf(at("audio"));
    }

    /// Writes bytes, and zeros behind them that take no room.
    void writeSparse(const std::string& bytes, std::uintmax_t size = kBytes) const
    {
        writeBytes(at("in"), bytes);
        std::filesystem::resize_file(at("in"), size);
    }

    /// Expects that every command ends within two seconds, or within another one after SIGTERM, in 300 MB of memory.
    void expectBoundedWork(const std::string& name) const
    {
        for (const std::string& command : {std::string("info in"), std::string("upmix in - > /dev/null")}) {
            const Result result =
                shell("timeout --kill-after=" + std::string(kSecondsToStop) + " 2 \"$TARN\" " + command);
            EXPECT_EQ(result.signalNumber, 0) << name;
            EXPECT_NE(result.exitCode, 128 + SIGKILL) << name << ": " << command;
            EXPECT_LT(result.peakKibibytes, 300000) << name << ": " << command;
        }
    }
};

TEST_F(SparseFiles, OfEveryContainerAreReadToTheEndOrUntilASignal)
{
    const std::vector<std::pair<std::string, int>> containers{{"WAV", kWave16},
                                                              {"RF64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
                                                              {"W64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
                                                              {"AIFF", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
                                                              {"CAF", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
                                                              {"AU", SF_FORMAT_AU | SF_FORMAT_PCM_16},
                                                              {"FLAC", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
                                                              {"Vorbis", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
                                                              {"Opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
                                                              {"MP3", kMp3}};
    for (const auto& [name, format] : containers) {
        writeSparse(audio(format));
        expectBoundedWork(name);
    }
}

TEST_F(SparseFiles, OfManyTinyPiecesAreReadToTheEndOrUntilASignal)
{
    const std::string wave = audio(kWave16);
    const std::string caf = audio(SF_FORMAT_CAF | SF_FORMAT_PCM_16);
    const std::vector<std::pair<std::string, std::string>> files{
        {"chunks", wave + repeated(std::string("JUNK\0\0\0\0", 8), 5000)},
        {"CAF chunks", caf + repeated("free" + bigEndian(0, 8), 4000)},
        {"AU files", repeated(".snd" + bigEndian(12, 4) + bigEndian(0, 4), 4000)},
        {"Ogg links", repeated(audio(SF_FORMAT_OGG | SF_FORMAT_VORBIS), 8)},
        {"an ID3v2 tag", "ID3\4" + std::string(2, '\0') + std::string(4, '\x7f')},
        {"bytes before MP3", std::string(100, '\1') + audio(kMp3)},
        {"CAF texts", caf.substr(0, caf.find("data")) + "info" + bigEndian(0xfffffff0, 8)},
        {"a chunk of -8 bytes", wave.substr(0, wave.find("data")) + "JUNK" + littleEndian(0xfffffff8, 4)},
        {"a chunk of -8 bytes behind audio", wave + "JUNK" + littleEndian(0xfffffff8, 4)},
        {"chunks behind a gap",
         wave + std::string(5000, '\1') + repeated(std::string("LIST\xff\xff\xff\x7f", 8), 2000)}};
    for (const auto& [name, bytes] : files) {
        writeSparse(bytes);
        expectBoundedWork(name);
    }
}

TEST_F(SparseFiles, LargeTextsOfCafAreSkipped)
{
    const std::string caf = audio(SF_FORMAT_CAF | SF_FORMAT_PCM_16);
    const std::size_t data = caf.find("data");
    constexpr std::uint64_t kTexts = std::uint64_t{1} << 30;
    writeSparse(caf.substr(0, data) + "info" + bigEndian(kTexts, 8), data + 12 + kTexts);
    writeBytes(at("rest"), caf.substr(data));
    ASSERT_EQ(shell("cat rest >> in").exitCode, 0);
    const Result result = tarn({"upmix", "in", "out.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find("tarn: in: its info chunk is too large or cannot be read\n"), std::string::npos)
        << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, static_cast<sf_count_t>(kFrames));
    EXPECT_LT(result.peakKibibytes, 300000);
}

TEST_F(SparseFiles, AudioBeyondTheSizesOf32BitsIsReadOrMissed)
{
    constexpr std::uintmax_t kLong = 6'000'000'000;
    for (const auto& [format, mark] :
         std::vector<std::pair<int, std::string>>{{kWave16, "data"},
                                                  {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, "SSND"},
                                                  {SF_FORMAT_AU | SF_FORMAT_PCM_16, ".snd"}}) {
        const std::string file = audio(format);
        const std::size_t size = file.find(mark) + (mark == ".snd" ? 8 : 4);
        // As written to a pipe, and as a recorder leaves it.
        for (const std::uint64_t declared : {std::uint64_t{0xffffffff}, std::uint64_t{8000}}) {
            std::string wrong = file;
            writeSparse(wrong.replace(size, 4, mark == "data" ? littleEndian(declared, 4) : bigEndian(declared, 4)),
                        kLong);
            // Only zeros behind the declared end would be no recording.
            ASSERT_EQ(shell("printf x | dd of=in bs=1 seek=4294967400 conv=notrunc status=none").exitCode, 0);
            const tarn::Descriptor input(open(at("in").c_str(), O_RDONLY | O_CLOEXEC));
            const tarn::FileParts found = tarn::findParts(input.number(), kLong);
            ASSERT_EQ(found.parts.size(), 1u);
            const bool isRead = found.first->info().frames > static_cast<sf_count_t>(kLong / 4 - 100);
            EXPECT_EQ(isRead, mark != "data") << mark << declared;
            EXPECT_EQ(found.parts.front().lacksEnd, !isRead) << mark << declared;
        }
    }
}

// Bytes that begin names of chunks everywhere.
TEST_F(SparseFiles, SearchForChunksInCutAudioReadsItOnce)
{
    constexpr std::size_t kAudioBytes = 17'000'000;
    const std::string wave = audio(kWave16);
    const std::string head = wave.substr(0, wave.find("data")) + "data" + littleEndian(2 * kAudioBytes, 4);
    for (const char byte : {'i', 'L', '\0'}) {
        writeBytes(at("in"), head + std::string(kAudioBytes, byte));
        const tarn::Descriptor input(open(at("in").c_str(), O_RDONLY | O_CLOEXEC));
        const tarn::FileBytes file(input.number());
        const std::uint64_t before = bytesRead();
        EXPECT_EQ(tarn::listChunks(file, 0).resumed, file.size());
        EXPECT_LT(bytesRead() - before, kAudioBytes + 1'000'000);
    }
}

TEST_F(SparseFiles, SearchForTagsStopsAtASignal)
{
    writeSparse("no audio", 50 * kBytes); // a search to its end takes minutes
    const auto search = [this] {
        alarm(10);
        const tarn::Descriptor input(open(at("in").c_str(), O_RDONLY | O_CLOEXEC));
        std::thread([begin = bytesRead()] {
            constexpr std::uint64_t kInside = 1'000'000;
            while (bytesRead() < begin + kInside) std::this_thread::yield();
            tarn::requestStop();
        }).detach();
        try {
            tarn::readTags(input.number(), nullptr, kMp3);
        } catch (const tarn::Interrupted&) {
            _exit(0);
        }
        _exit(1);
    };
    EXPECT_EXIT(search(), testing::ExitedWithCode(0), "");
}

} // namespace tarn_cli
