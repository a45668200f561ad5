// Damage and declared lengths in every container: nothing is lost without a warning.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"
#include "tests/cli/ogg_bytes.h"

#include <algorithm>
#include <functional>

#include <FLAC++/encoder.h>

namespace tarn_cli
{

namespace
{

constexpr std::size_t kRate = 48000;
constexpr std::size_t kFrames = 4 * kRate;
constexpr std::size_t kSlots = 3; ///< of the default layout: FL FR FC
constexpr int kMp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;
constexpr int kOggFlac = 0; ///< libsndfile cannot write it

/// Replaces the bytes behind a mark.
std::string withBytesAfter(std::string file, const std::string& mark, const std::string& bytes)
{
    return file.replace(file.find(mark) + mark.size(), bytes.size(), bytes);
}

/// Replaces the number of frames in the stream information of FLAC, which begins at a position: the last 36 bits before
/// the checksum.
std::string withUnknownFlacLength(std::string file, std::size_t information)
{
    file[information + 13] = static_cast<char>(file[information + 13] & 0xf0);
    return file.replace(information + 14, 4, 4, '\0');
}

/// Removes the length from a header.
using LengthRemover = std::string (*)(const std::string& file);

std::string withoutFlacLength(const std::string& file)
{
    return withUnknownFlacLength(file, 8);
}

std::string withoutOggFlacLength(const std::string& file)
{
    std::vector<std::string> pages = pagesOf(file);
    pages.front() = withUnknownFlacLength(pages.front(), pages.front().find("fLaC") + 8);
    return renumbered(pages);
}

std::string withoutWaveLength(const std::string& file)
{
    return withBytesAfter(file, "data", "\xff\xff\xff\xff");
}

std::string withoutAuLength(const std::string& file)
{
    return withBytesAfter(file, file.substr(0, 8), "\xff\xff\xff\xff");
}

std::string withoutCafLength(const std::string& file)
{
    return withBytesAfter(file, "data", std::string(8, '\xff'));
}

std::string withoutMpegIndex(const std::string& file)
{
    return file.substr(file.find(file.substr(0, 2), 4));
}

/// A position whose bit, when flipped, damages one frame: the middle for formats with checksums.
using DamagedPlace = std::size_t (*)(const std::string& file);

std::size_t middle(const std::string& file)
{
    return file.size() / 2;
}

std::size_t middleMpegHeader(const std::string& file)
{
    return file.find("\xff\xfb", file.size() / 2);
}

struct Kind
{
    const char* name;
    int format;
    LengthRemover removeLength; ///< null to keep the declared length
    DamagedPlace damagedPlace;  ///< null if the format has no checksums
    int exitCodeOfFlip = 0;     ///< a page of Opus holds a second
};

} // namespace

/// Writes a file of four seconds, with or without its length.
class LengthsAndDamage : public CommandTest, public testing::WithParamInterface<Kind>
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        Samples stereo = stereoNoise(kFrames, 16);
        for (std::int32_t& sample : stereo) sample = sample / 4 & ~0xffff; // lossy peaks stay within full scale
        if (kind.format == kOggFlac) {
            writeOggFlac(stereo);
        } else {
            writeAudio(at("in"), kind.format, kRate, 2, stereo);
        }
        file = bytesOf(at("in"));
        if (kind.removeLength != nullptr) file = kind.removeLength(file);
        writeBytes(at("in"), file);
        const Result result = tarn({"upmix", "--bypass", "--strict", "in", "whole.wav"});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("damaged"), std::string::npos) << result.errors;
        whole = readAudio(at("whole.wav")).samples;
    }

    void writeOggFlac(const Samples& stereo) const
    {
        FLAC::Encoder::File encoder;
        encoder.set_channels(2);
        encoder.set_bits_per_sample(16);
        encoder.set_sample_rate(kRate);
        encoder.set_total_samples_estimate(stereo.size() / 2);
        ASSERT_EQ(encoder.init_ogg(at("in")), FLAC__STREAM_ENCODER_INIT_STATUS_OK);
        std::vector<FLAC__int32> samples;
        for (const std::int32_t sample : stereo) samples.push_back(sample >> 16);
        ASSERT_TRUE(encoder.process_interleaved(samples.data(), static_cast<std::uint32_t>(stereo.size() / 2)));
        ASSERT_TRUE(encoder.finish());
    }

    /// Upmixes these bytes, and expects a warning from every command.
    Samples damaged(const std::string& bytes, int exitCode) const
    {
        writeBytes(at("bad"), bytes);
        const Result strict = tarn({"upmix", "--strict", "bad", "strict.wav"});
        EXPECT_EQ(strict.exitCode, 65) << strict.errors;
        EXPECT_FALSE(std::filesystem::exists(at("strict.wav")));
        const Result result = tarn({"upmix", "--quiet", "--bypass", "--force", "bad", "out.wav"});
        EXPECT_EQ(result.exitCode, exitCode) << result.errors;
        EXPECT_NE(result.errors.find("tarn: bad: is cut short or damaged: "), std::string::npos) << result.errors;
        EXPECT_NE(result.errors.find("; the damage begins at 0:0"), std::string::npos) << result.errors;
        const Result info = tarn({"info", "bad"});
        EXPECT_EQ(info.exitCode, exitCode) << info.errors;
        EXPECT_NE(info.errors.find("is cut short or damaged: "), std::string::npos) << info.errors;
        return readAudio(at("out.wav")).samples;
    }

    const Kind kind = GetParam();
    std::string file;
    Samples whole; ///< of the output with --bypass
};

class Cuts : public LengthsAndDamage
{};

TEST_P(Cuts, AreReportedAndTheRestIsExact)
{
    const bool isRaw = kind.damagedPlace == nullptr;
    for (const std::size_t percent : {30u, 50u, 90u}) {
        const std::string cut = file.substr(0, file.size() * percent / 100);
        Samples rest;
        if (isRaw && kind.removeLength != nullptr) {
            // PCM without a length can end anywhere.
            writeBytes(at("bad"), cut);
            ASSERT_EQ(tarn({"upmix", "--bypass", "--force", "bad", "out.wav"}).exitCode, 0);
            rest = readAudio(at("out.wav")).samples;
        } else {
            // A tenth of four seconds is less than a second. Vorbis and Opus do not declare their length.
            const bool isOgg = kind.format != kOggFlac && (kind.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
            const bool isSmall = percent == 90 && kind.removeLength == nullptr && !isOgg;
            rest = damaged(cut, isSmall ? 0 : 1);
        }
        if (isRaw) {
            constexpr std::size_t kFrameBytes = 4;
            const std::size_t headerBytes = file.size() - kFrames * kFrameBytes;
            ASSERT_EQ(rest.size(), kSlots * ((cut.size() - headerBytes) / kFrameBytes));
        } else {
            // Frames of a codec differ in their size.
            ASSERT_LE(rest.size(), whole.size() * percent / 100 + kSlots * 1152);
            EXPECT_GT(rest.size() + kSlots * kRate * 5 / 4, whole.size() * percent / 100);
        }
        EXPECT_TRUE(std::equal(rest.begin(), rest.end(), whole.begin())) << percent;
    }
}

class FlippedBits : public LengthsAndDamage
{};

TEST_P(FlippedBits, AreReportedAndTheRestKeepsItsPlace)
{
    const Samples output = damaged(withBitFlipped(file, kind.damagedPlace(file)), kind.exitCodeOfFlip);
    if (kind.format == kMp3) {
        EXPECT_GE(output.size() + kSlots * 3 * 1152, whole.size());
    } else {
        ASSERT_EQ(output.size(), whole.size());
    }
    const auto fifth = static_cast<std::ptrdiff_t>(whole.size() / 5);
    EXPECT_TRUE(std::equal(output.begin(), output.begin() + fifth, whole.begin()));
}

/// Formats with checksums or synchronisation.
const std::vector<Kind> kCheckedKinds{
    {"Flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, nullptr, middle},
    {"FlacOfUnknownLength", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, withoutFlacLength, middle},
    {"OggFlac", kOggFlac, nullptr, middle},
    {"OggFlacOfUnknownLength", kOggFlac, withoutOggFlacLength, middle},
    {"Vorbis", SF_FORMAT_OGG | SF_FORMAT_VORBIS, nullptr, middle},
    {"Opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, nullptr, middle, 1},
    {"Mp3", kMp3, nullptr, middleMpegHeader},
    {"Mp3OfUnknownLength", kMp3, withoutMpegIndex, middleMpegHeader}};

/// Formats of PCM.
const std::vector<Kind> kRawKinds{{"Wave", SF_FORMAT_WAV | SF_FORMAT_PCM_16, nullptr, nullptr},
                                  {"WaveOfUnknownLength", SF_FORMAT_WAV | SF_FORMAT_PCM_16, withoutWaveLength, nullptr},
                                  {"Rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, nullptr, nullptr},
                                  {"W64", SF_FORMAT_W64 | SF_FORMAT_PCM_16, nullptr, nullptr},
                                  {"Aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, nullptr, nullptr},
                                  {"Au", SF_FORMAT_AU | SF_FORMAT_PCM_16, nullptr, nullptr},
                                  {"AuOfUnknownLength", SF_FORMAT_AU | SF_FORMAT_PCM_16, withoutAuLength, nullptr},
                                  {"Caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16, nullptr, nullptr},
                                  {"CafOfUnknownLength", SF_FORMAT_CAF | SF_FORMAT_PCM_16, withoutCafLength, nullptr}};

std::string nameOf(const testing::TestParamInfo<Kind>& test)
{
    return test.param.name;
}

INSTANTIATE_TEST_SUITE_P(Checked, Cuts, testing::ValuesIn(kCheckedKinds), nameOf);
INSTANTIATE_TEST_SUITE_P(Raw, Cuts, testing::ValuesIn(kRawKinds), nameOf);
INSTANTIATE_TEST_SUITE_P(Checked, FlippedBits, testing::ValuesIn(kCheckedKinds), nameOf);

class Gaps : public CommandTest
{};

TEST_F(Gaps, LongerThanTheMaximumSilenceAreCounted)
{
    // Noise, then silence that compresses to little, then noise.
    const Samples noise = stereoNoise(kRate, 16);
    Samples stereo = noise;
    stereo.resize(stereo.size() + 2 * 4300000);
    stereo.insert(stereo.end(), noise.begin(), noise.end());
    writeAudio(at("in.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, kRate, 2, stereo);
    std::string flac = withoutFlacLength(bytesOf(at("in.flac")));
    writeBytes(at("in.flac"), flac.erase(flac.size() * 2 / 5, flac.size() / 5));
    const Result result = tarn({"upmix", "--bypass", "in.flac", "out.wav"});
    EXPECT_EQ(result.exitCode, 1) << result.errors;
    const std::size_t lost = stereo.size() / 2 - static_cast<std::size_t>(readAudio(at("out.wav")).info.frames);
    EXPECT_NE(result.errors.find(": " + std::to_string(lost) + " frames are damaged and are left out; "),
              std::string::npos)
        << result.errors;
}

TEST_F(Gaps, ZerosInsteadOfFlacFramesAreReported)
{
    writeAudio(at("in.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, kRate, 2, stereoNoise(4 * kRate, 16));
    const std::string flac = withoutFlacLength(bytesOf(at("in.flac")));
    writeBytes(at("zeros.flac"), flac.substr(0, flac.size() / 2) + std::string(flac.size() / 2, '\0'));
    const Result result = tarn({"upmix", "zeros.flac", "out.wav"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.errors.find("how much is missing is not known"), std::string::npos) << result.errors;
    writeBytes(at("padded.flac"), flac + std::string(4096, '\0'));
    EXPECT_EQ(tarn({"upmix", "--strict", "--force", "padded.flac", "out.wav"}).exitCode, 0) << "padding";
    writeBytes(at("tagged.flac"), flac + std::string(4096, '\0') + "TAG" + std::string(125, ' '));
    EXPECT_EQ(tarn({"upmix", "--strict", "--force", "tagged.flac", "out.wav"}).exitCode, 0) << "padding and a tag";
}

class ReadErrors : public LengthsAndDamage
{};

TEST_P(ReadErrors, AreReportedAndTheRestIsExact)
{
    // libmpg123 reads the end of a file first, and the first page of Ogg FLAC does not fit before the damage.
    const std::string name = kind.name;
    const std::string refusal = name.starts_with("Mp3")       ? " (Error reading the stream. (code 18)); "
                                : name.starts_with("OggFlac") ? ": contains no audio: 0 frames could be decoded (Input/"
                                                              : "";
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"info", "in"}, {"upmix", "--bypass", "in", "out.wav"}}) {
        const Result result = tarnOnUnreadableDisk(arguments);
        EXPECT_EQ(result.exitCode, refusal.empty() ? 1 : 65) << result.errors;
        if (!refusal.empty()) {
            EXPECT_NE(result.errors.find(refusal), std::string::npos) << result.errors;
            continue;
        }
        EXPECT_NE(result.errors.find("tarn: in: is cut short or damaged: "), std::string::npos) << result.errors;
        EXPECT_NE(result.errors.find("; Input/output error; "), std::string::npos) << result.errors;
    }
    if (!refusal.empty()) return;
    const Samples rest = readAudio(at("out.wav")).samples;
    ASSERT_LT(rest.size(), whole.size());
    EXPECT_TRUE(std::equal(rest.begin(), rest.end(), whole.begin()));
}

INSTANTIATE_TEST_SUITE_P(Checked, ReadErrors, testing::ValuesIn(kCheckedKinds), nameOf);
INSTANTIATE_TEST_SUITE_P(Raw, ReadErrors, testing::ValuesIn(kRawKinds), nameOf);

/// Packets that are damaged inside pages with a correct checksum.
class DamagedPackets : public CommandTest
{
protected:
    /// Damages the first packet that begins on a page in the middle of a file. Returns the result of upmixing it.
    Result upmixDamaged(int codec, const std::function<void(std::string& page, std::size_t packet)>& damage) const
    {
        writeAudio(at("in.ogg"), SF_FORMAT_OGG | codec, kRate, 2, stereoNoise(6 * kRate, 16));
        std::vector<std::string> pages = pagesOf(bytesOf(at("in.ogg")));
        std::string& page = pages[pages.size() / 2];
        EXPECT_EQ(page[5] & 1, 0) << "the page continues a packet";
        damage(page, std::size_t{27} + static_cast<unsigned char>(page[26]));
        writeBytes(at("bad.ogg"), renumbered(pages));
        return tarn({"upmix", "bad.ogg", "out.wav"});
    }
};

TEST_F(DamagedPackets, OfOpusBecomeSilence)
{
    const Result result = upmixDamaged(SF_FORMAT_OPUS, [](std::string& page, std::size_t packet) {
        page[packet] = static_cast<char>(page[packet] | 3); // any number of frames
        page[packet + 1] = 0;                               // none
    });
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find(": 960 frames are damaged and become silence; 0.020 seconds are missing"),
              std::string::npos)
        << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 6 * kRate);
}

TEST_F(DamagedPackets, OfVorbisBecomeSilence)
{
    const Result result = upmixDamaged(SF_FORMAT_VORBIS, [](std::string& page, std::size_t packet) {
        page[packet] = static_cast<char>(page[packet] | 1); // not audio
    });
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_NE(result.errors.find(" frames are damaged and become silence; 0.0"), std::string::npos) << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 6 * kRate);
}

/// MPEG audio without an index, whose length is not declared.
class MpegWithoutIndex : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeAudio(at("in.mp3"), kMp3, kRate, 2, stereoNoise(2 * kRate, 16));
        mpeg = withoutMpegIndex(bytesOf(at("in.mp3")));
    }

    Result upmix(const std::string& bytes) const
    {
        writeBytes(at("in.mp3"), bytes);
        return tarn({"upmix", "--force", "in.mp3", "out.wav"});
    }

    std::string mpeg;
};

TEST_F(MpegWithoutIndex, CutInsideAFrameIsReported)
{
    for (const std::size_t missing : {1u, 100u}) {
        const Result result = upmix(mpeg.substr(0, mpeg.size() - missing));
        EXPECT_EQ(result.exitCode, 1) << result.errors;
        const sf_count_t frames = readAudio(at("out.wav")).info.frames;
        EXPECT_NE(result.errors.find("its end is missing after frame " + std::to_string(frames) +
                                     "; its last frame is incomplete; how much is missing is not known"),
                  std::string::npos)
            << result.errors;
    }
}

TEST_F(MpegWithoutIndex, IndexWithoutANumberOfFramesDeclaresNoLength)
{
    writeAudio(at("in.mp3"), kMp3, kRate, 2, stereoNoise(2 * kRate, 16));
    std::string indexed = bytesOf(at("in.mp3"));
    const std::size_t index = std::min(indexed.find("Xing"), indexed.find("Info"));
    indexed.replace(index + 4, 4, 4, '\0');   // no fields
    indexed.replace(index + 120, 4, 4, '\0'); // and no checksum, which LAME writes
    EXPECT_EQ(upmix(indexed).errors.find("damaged"), std::string::npos);
    const Result cut = upmix(indexed.substr(0, indexed.size() / 2));
    EXPECT_EQ(cut.exitCode, 1) << cut.errors;
    EXPECT_NE(cut.errors.find("how much is missing is not known"), std::string::npos) << cut.errors;
}

TEST_F(MpegWithoutIndex, TagsAndPaddingAreNotDamage)
{
    std::string id3v1 = "TAGA title" + std::string(118, '\0');
    std::string ape = std::string("\4\0\0\0\0\0\0\0TITLE\0text", 18) + "APETAGEX" + std::string("\xe8\3\0\0", 4) +
                      std::string("\x32\0\0\0\1\0\0\0", 8) + std::string(12, '\0');
    for (const std::string& rest : {id3v1, ape, ape + id3v1, std::string(1000, '\0')}) {
        for (const std::string& bytes : {mpeg + rest, mpeg + rest + mpeg}) {
            const Result result = upmix(bytes);
            EXPECT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_EQ(result.errors.find("damaged"), std::string::npos) << result.errors;
        }
    }
}

TEST_F(MpegWithoutIndex, DamagedHeaderIsCounted)
{
    std::vector<std::size_t> headers;
    for (std::size_t at = 0; at != std::string::npos; at = mpeg.find(mpeg.substr(0, 2), at + 300))
        headers.push_back(at);
    for (const std::size_t header : {headers[headers.size() / 2], headers.back()}) {
        const Result result = upmix(withBitFlipped(mpeg, header));
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.errors.find(": 1152 frames are damaged and are left out; "), std::string::npos)
            << result.errors;
    }
}

} // namespace tarn_cli
