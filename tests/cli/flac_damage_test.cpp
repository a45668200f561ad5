// FLAC with wrong header values, and with damage that only the checksum of all samples shows.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/ogg_bytes.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tarn_cli
{

namespace
{

constexpr int kRate = 48000;
constexpr std::size_t kFrames = std::size_t{40} * 4096;
constexpr std::size_t kBlock = 4096; ///< frames in a FLAC frame of libsndfile
constexpr std::size_t kSlots = 3;
constexpr std::size_t kInformation = 8; ///< position of the stream information
constexpr std::size_t kChecksum = kInformation + 18;

/// The first position of the stream information that has the sample rate: 20 bits, then 3 of channels, 5 of the width.
constexpr std::size_t kFormatBit = (kInformation + 10) * 8;

std::string withFlippedBit(std::string bytes, std::size_t bit)
{
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 0x80 >> bit % 8);
    return bytes;
}

/// Replaces the number of frames, the 36 bits before the checksum, by zero: unknown.
std::string withUnknownLength(std::string flac)
{
    flac[kChecksum - 5] = static_cast<char>(flac[kChecksum - 5] & 0xf0);
    return flac.replace(kChecksum - 4, 4, 4, '\0');
}

/// The positions of all frames of a FLAC file with less than 128 frames of 4096 samples at 48000 Hz in two channels of
/// 16 bits.
std::vector<std::size_t> framesOf(const std::string& flac)
{
    std::vector<std::size_t> frames;
    std::size_t from = 0;
    while (true) {
        std::size_t found = std::string::npos;
        for (const char channels : {'\x18', '\x88', '\x98', '\xa8'}) {
            const std::string header{'\xff', '\xf8', '\xca', channels, static_cast<char>(frames.size())};
            found = std::min(found, flac.find(header, from));
        }
        if (found == std::string::npos) return frames;
        frames.push_back(found);
        from = found + 1;
    }
}

} // namespace

class FlacDamage : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, kRate, 2, stereoNoise(kFrames, 16));
        flac = bytesOf(at("in.flac"));
        frames = framesOf(flac);
        ASSERT_EQ(frames.size(), kFrames / kBlock);
        const Result result = tarn({"upmix", "--strict", "--bypass", "in.flac", "whole.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        whole = bytesOf(at("whole.wav"));
    }

    Result upmix(const std::string& bytes) const
    {
        writeBytes(at("bad.flac"), bytes);
        return tarn({"upmix", "--force", "--bypass", "bad.flac", "out.wav"});
    }

    /// Expects that a file is upmixed with a warning about its checksum and a loss of unknown length.
    void expectWrongChecksum(const std::string& bytes) const
    {
        const Result result = upmix(bytes);
        EXPECT_EQ(result.exitCode, 1) << result.errors;
        EXPECT_NE(result.errors.find("tarn: bad.flac: is cut short or damaged: its samples do not match the checksum "
                                     "that it declares for all of them; how much is missing is not known; the rest "
                                     "is upmixed; get a complete copy of the file\n"),
                  std::string::npos)
            << result.errors;
        EXPECT_EQ(tarn({"info", "bad.flac"}).exitCode, 1);
        EXPECT_EQ(tarn({"upmix", "--force", "--strict", "bad.flac", "out.wav"}).exitCode, 65);
    }

    std::string flac;
    std::vector<std::size_t> frames; ///< positions
    std::string whole;               ///< the output
};

TEST_F(FlacDamage, FramesOverrideTheFormatOfTheHeader)
{
    for (std::size_t bit = 0; bit < 28; ++bit) {
        const std::string bad = withFlippedBit(flac, kFormatBit + bit);
        const Result result = upmix(bad);
        EXPECT_EQ(result.exitCode, 0) << bit << result.errors;
        EXPECT_NE(result.errors.find("tarn: bad.flac: its header declares "), std::string::npos) << bit;
        EXPECT_NE(result.errors.find("; the values of its frames are used\n"), std::string::npos) << bit;
        EXPECT_TRUE(bytesOf(at("out.wav")) == whole) << bit;
    }
    const Result result = upmix(withFlippedBit(flac, kFormatBit + 19));
    EXPECT_NE(result.errors.find("its header declares 48001 Hz instead of 48000 Hz; the values"), std::string::npos)
        << result.errors;
    EXPECT_NE(tarn({"info", "bad.flac"}).output.find("48 kHz"), std::string::npos);
    const Result pipe = tarnWithInput(bytesOf(at("bad.flac")), {"upmix", "--force", "--bypass", "-", "out.wav"});
    EXPECT_EQ(pipe.exitCode, 0) << pipe.errors;
    EXPECT_NE(pipe.errors.find("standard input: its header declares 48001 Hz"), std::string::npos) << pipe.errors;
    EXPECT_TRUE(bytesOf(at("out.wav")) == whole);
}

TEST_F(FlacDamage, ChecksumShowsMissingFramesAtTheEndOfAFileOfUnknownLength)
{
    const std::string unknown = withUnknownLength(flac);
    EXPECT_EQ(upmix(unknown).errors.find("damaged"), std::string::npos);
    EXPECT_TRUE(bytesOf(at("out.wav")) == whole);
    expectWrongChecksum(unknown.substr(0, frames[30]));
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 30 * kBlock);
}

TEST_F(FlacDamage, ChecksumShowsRepeatedFrames)
{
    expectWrongChecksum(flac.substr(0, frames[21]) + flac.substr(frames[20]));
    expectWrongChecksum(withUnknownLength(flac.substr(0, frames[21]) + flac.substr(frames[20])));
}

TEST_F(FlacDamage, ChecksumOfZerosIsNotCompared)
{
    std::string none = flac;
    none.replace(kChecksum, 16, 16, '\0');
    const Result result = upmix(none);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors.find("checksum"), std::string::npos) << result.errors;
    expectWrongChecksum(withFlippedBit(flac, 8 * kChecksum));
}

TEST_F(FlacDamage, ChecksumIsNotNamedBesidesOtherDamage)
{
    for (const std::string& bad :
         {flac.substr(0, flac.size() / 2), withBitFlipped(flac, flac.size() / 2), flac + "TAG" + std::string(125, ' ')})
        EXPECT_EQ(upmix(bad).errors.find("checksum"), std::string::npos);
}

TEST_F(FlacDamage, JoinedFilesOfOneFormatAreReadWithoutAWarningAboutTheChecksum)
{
    const Result result = upmix(flac + flac);
    EXPECT_EQ(result.errors.find("checksum"), std::string::npos) << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 2 * kFrames);
}

TEST_F(FlacDamage, OneDamagedFrameSilencesNoOther)
{
    const Samples good = readAudio(at("whole.wav")).samples;
    for (const std::size_t frame : {1u, 17u, 38u}) {
        for (const std::size_t offset : {1u, 6u, 700u, 5000u}) {
            const Result result = upmix(withBitFlipped(flac, frames[frame] + offset));
            EXPECT_NE(result.errors.find(": 4096 frames are damaged and become silence; 0.085 seconds are missing"),
                      std::string::npos)
                << frame << " " << offset << result.errors;
            const Samples output = readAudio(at("out.wav")).samples;
            Samples expected = good;
            std::fill_n(expected.begin() + static_cast<std::ptrdiff_t>(frame * kBlock * kSlots), kBlock * kSlots, 0);
            EXPECT_TRUE(output == expected) << frame << " " << offset;
        }
    }
}

TEST_F(FlacDamage, MissingFramesBecomeSilenceAndTheNextIsKept)
{
    const Samples good = readAudio(at("whole.wav")).samples;
    const Result result = upmix(flac.substr(0, frames[10]) + flac.substr(frames[12]));
    EXPECT_NE(result.errors.find(": 8192 frames are damaged and become silence"), std::string::npos) << result.errors;
    Samples expected = good;
    std::fill_n(expected.begin() + static_cast<std::ptrdiff_t>(10 * kBlock * kSlots), 2 * kBlock * kSlots, 0);
    EXPECT_TRUE(readAudio(at("out.wav")).samples == expected);
}

} // namespace tarn_cli
