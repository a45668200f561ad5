// Tags and pictures of inputs.
// SPDX-License-Identifier: MIT
#include "cli/wave_tags.h"
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <algorithm>

#include <apetag.h>
#include <attachedpictureframe.h>
#include <flacfile.h>
#include <id3v2tag.h>
#include <mpegfile.h>
#include <textidentificationframe.h>
#include <tpropertymap.h>
#include <unknownframe.h>
#include <vorbisfile.h>
#include <wavfile.h>
#include <xiphcomment.h>

#include <fcntl.h>
#include <unistd.h>

namespace tarn_cli
{

namespace
{

constexpr int kWave16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kFlac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
constexpr int kVorbis = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
constexpr int kMp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;

using TagLib::ByteVector;
using TagLib::String;

String utf8(const std::string& text)
{
    return {text, String::UTF8};
}

/// Bytes of a picture. No test decodes them.
ByteVector pictureBytes()
{
    return ByteVector("\x89PNG").append(ByteVector(5000, 'p'));
}

/// Tags that are common in music collections but not in every format.
TagLib::PropertyMap richTexts()
{
    TagLib::PropertyMap texts;
    for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>>{
             {"TITLE", "A title"},
             {"ALBUMARTIST", "\xc3\x84n album artist"},
             {"COMPOSER", "A composer"},
             {"DISCNUMBER", "2/3"},
             {"TRACKNUMBER", "7/12"},
             {"DATE", "2024-05-06"},
             {"ISRC", "DEXX12400001"},
             {"LYRICS", "Line one\nLine two"},
             {"COMMENT", "A comment"},
             {"MUSICBRAINZ_ALBUMID", "0ce1a4c4-9a5d-4b2b-8a1a-3d8f0c9d1b11"},
             {"MUSICBRAINZ_TRACKID", "1ce1a4c4-9a5d-4b2b-8a1a-3d8f0c9d1b12"},
         })
        texts.insert(name, utf8(value));
    texts.insert("ARTIST", TagLib::StringList(utf8("First")).append(utf8("Second")));
    return texts;
}

} // namespace

/// Writes tags into inputs and reads those of outputs.
class Tags : public CommandTest
{
protected:
    using Texts = std::vector<std::pair<int, std::string>>;

    void writeTagged(const std::string& name, int format, const Texts& texts) const
    {
        SF_INFO info{};
        info.samplerate = 48000;
        info.channels = 2;
        info.format = format;
        SNDFILE* const file = sf_open(at(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr);
        for (const auto& [kind, text] : texts) sf_set_string(file, kind, text.c_str());
        const Samples stereo = stereoNoise(5000, 16);
        sf_write_int(file, stereo.data(), static_cast<sf_count_t>(stereo.size()));
        ASSERT_EQ(sf_close(file), 0);
    }

    /// Makes a CAF file with an info chunk before its audio.
    void writeCaf(const std::string& name, const std::vector<std::pair<std::string, std::string>>& texts) const
    {
        writeTagged(name, SF_FORMAT_CAF | SF_FORMAT_PCM_16, {});
        const auto number = [](std::size_t value) {
            const ByteVector bytes = ByteVector::fromUInt(static_cast<unsigned>(value));
            return std::string(bytes.data(), bytes.size());
        };
        std::string info = number(texts.size());
        for (const auto& [key, text] : texts) info += key + '\0' + text + '\0';
        std::string caf = bytesOf(at(name));
        caf.insert(caf.find("data"), "info" + number(0) + number(info.size()) + info);
        writeBytes(at(name), caf);
    }

    void expectTags(const std::string& name, const Texts& texts) const
    {
        SF_INFO info{};
        SNDFILE* const file = sf_open(at(name).c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr) << name;
        for (const auto& [kind, text] : texts) {
            const char* const carried = sf_get_string(file, kind);
            EXPECT_EQ(carried == nullptr ? "(none)" : std::string(carried), text) << name << ", kind " << kind;
        }
        sf_close(file);
    }

    /// Reads the texts of an output with TagLib.
    TagLib::PropertyMap textsOf(const std::string& name) const
    {
        if (name.ends_with(".flac")) return TagLib::FLAC::File(at(name).c_str()).properties();
        return TagLib::RIFF::WAV::File(at(name).c_str()).ID3v2Tag()->properties();
    }

    void expectCover(const std::string& name) const
    {
        if (name.ends_with(".flac")) {
            TagLib::FLAC::File flac(at(name).c_str());
            const auto pictures = flac.pictureList();
            ASSERT_EQ(pictures.size(), 1u) << name;
            EXPECT_EQ(pictures.front()->type(), TagLib::FLAC::Picture::FrontCover);
            EXPECT_EQ(pictures.front()->mimeType(), String("image/png"));
            EXPECT_EQ(pictures.front()->description(), utf8("A c\xc3\xb6ver"));
            EXPECT_TRUE(pictures.front()->data() == pictureBytes());
        } else {
            const TagLib::RIFF::WAV::File wave(at(name).c_str());
            const auto frames = wave.ID3v2Tag()->frameList("APIC");
            ASSERT_EQ(frames.size(), 1u) << name;
            const auto* const picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frames.front());
            ASSERT_NE(picture, nullptr);
            EXPECT_EQ(picture->type(), TagLib::ID3v2::AttachedPictureFrame::FrontCover);
            EXPECT_EQ(picture->mimeType(), String("image/png"));
            EXPECT_EQ(picture->description(), utf8("A c\xc3\xb6ver"));
            EXPECT_TRUE(picture->picture() == pictureBytes());
        }
    }

    const Texts inBoth{{SF_STR_TITLE, "A title"},     {SF_STR_ARTIST, "\xc3\x84n artist"}, {SF_STR_ALBUM, "An album"},
                       {SF_STR_DATE, "2024"},         {SF_STR_TRACKNUMBER, "7"},           {SF_STR_GENRE, "A genre"},
                       {SF_STR_COMMENT, "A comment"}, {SF_STR_COPYRIGHT, "A right"}};
};

TEST_F(Tags, AreCopiedFromEveryFormatToEveryOutput)
{
    writeTagged("in.wav", kWave16, inBoth);
    writeTagged("in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, inBoth);
    writeTagged("in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, inBoth);
    for (const std::string input : {"in.wav", "in.flac", "in.ogg"}) {
        for (const std::string output : {"out.wav", "out.flac"}) {
            const Result result = tarn({"upmix", "--force", "--layout", "5.1", input, output});
            ASSERT_EQ(result.exitCode, 0) << result.errors;
            expectTags(output, inBoth);
            EXPECT_EQ(readAudio(at(output)).info.frames, 5000);
        }
        EXPECT_NE(bytesOf(at("out.flac")).find("WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x003F"), std::string::npos);
    }
}

TEST_F(Tags, AllKindsAtOnceAreKeptInFlacWithChannelNames)
{
    Texts all = inBoth;
    all.emplace_back(SF_STR_LICENSE, "A licence");
    writeTagged("in.flac", kFlac16, all);
    ASSERT_EQ(tarn({"upmix", "in.flac", "out.flac"}).exitCode, 0);
    EXPECT_NE(bytesOf(at("out.flac")).find("WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x0007"), std::string::npos);
    expectTags("out.flac", all);
}

TEST_F(Tags, AnyLengthIsKept)
{
    const std::string book(200000, 'x');
    writeTagged("in.flac", kFlac16, {{SF_STR_TITLE, "A title"}, {SF_STR_COMMENT, book}});
    for (const std::string output : {"out.wav", "out.flac"}) {
        ASSERT_EQ(tarn({"upmix", "in.flac", output}).exitCode, 0);
        EXPECT_EQ(textsOf(output)["COMMENT"].toString(), utf8(book)) << output;
    }
}

TEST_F(Tags, CollectionTagsAndCoversAreCopiedToEveryOutput)
{
    writeTagged("in.flac", kFlac16, {});
    writeTagged("in.ogg", kVorbis, {});
    writeTagged("in.wav", kWave16, {});
    writeTagged("in.mp3", kMp3, {});
    const auto cover = [] {
        auto* const picture = new TagLib::FLAC::Picture; // the file takes it
        picture->setType(TagLib::FLAC::Picture::FrontCover);
        picture->setMimeType("image/png");
        picture->setDescription(utf8("A c\xc3\xb6ver"));
        picture->setData(pictureBytes());
        return picture;
    };
    {
        TagLib::FLAC::File flac(at("in.flac").c_str());
        flac.setProperties(richTexts());
        flac.addPicture(cover());
        ASSERT_TRUE(flac.save());
        TagLib::Ogg::Vorbis::File ogg(at("in.ogg").c_str());
        ogg.setProperties(richTexts());
        ogg.tag()->addPicture(cover());
        ASSERT_TRUE(ogg.save());
        const auto addCover = [](TagLib::ID3v2::Tag& tag) {
            auto* const frame = new TagLib::ID3v2::AttachedPictureFrame; // the tag takes it
            frame->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
            frame->setTextEncoding(String::UTF8);
            frame->setMimeType("image/png");
            frame->setDescription(utf8("A c\xc3\xb6ver"));
            frame->setPicture(pictureBytes());
            tag.addFrame(frame);
        };
        TagLib::RIFF::WAV::File wave(at("in.wav").c_str());
        wave.ID3v2Tag()->setProperties(richTexts());
        addCover(*wave.ID3v2Tag());
        ASSERT_TRUE(wave.save(TagLib::RIFF::WAV::File::ID3v2));
        TagLib::MPEG::File mpeg(at("in.mp3").c_str());
        mpeg.ID3v2Tag(true)->setProperties(richTexts());
        addCover(*mpeg.ID3v2Tag());
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2));
    }
    for (const std::string input : {"in.flac", "in.ogg", "in.wav", "in.mp3"}) {
        for (const std::string output : {"out.wav", "out.flac"}) {
            const Result result = tarn({"upmix", "--force", input, output});
            ASSERT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_EQ(result.errors.find("no place"), std::string::npos) << result.errors;
            const TagLib::PropertyMap texts = textsOf(output);
            for (const auto& [name, values] : richTexts())
                EXPECT_EQ(texts[name].toString("|"), values.toString("|"))
                    << input << " " << output << " " << name.to8Bit(true);
            expectCover(output);
        }
    }
}

TEST_F(Tags, DescriptionsOfTheStereoFileAreLeftOut)
{
    writeTagged("in.flac", kFlac16, {});
    {
        TagLib::FLAC::File flac(at("in.flac").c_str());
        TagLib::PropertyMap texts;
        for (const char* const name : {"TITLE", "REPLAYGAIN_TRACK_GAIN", "R128_TRACK_GAIN", "ENCODER", "ITUNNORM"})
            texts.insert(name, String("1"));
        flac.setProperties(texts);
        ASSERT_TRUE(flac.save());
    }
    for (const std::string output : {"out.wav", "out.flac"}) {
        ASSERT_EQ(tarn({"upmix", "in.flac", output}).exitCode, 0);
        TagLib::PropertyMap texts = textsOf(output);
        texts.erase("WAVEFORMATEXTENSIBLE_CHANNEL_MASK");
        EXPECT_EQ(texts.size(), 1u) << texts.toString().to8Bit(true);
        EXPECT_TRUE(texts.contains("TITLE"));
    }
}

TEST_F(Tags, TagsWithoutAPlaceAreReported)
{
    writeTagged("in.mp3", kMp3, {});
    {
        TagLib::MPEG::File mpeg(at("in.mp3").c_str());
        TagLib::PropertyMap texts;
        texts.insert(utf8("STRA\xc3\x9f"
                          "E"),
                     String("1"));
        mpeg.ID3v2Tag(true)->setProperties(texts);
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2));
    }
    const Result result = tarn({"upmix", "in.mp3", "out.flac"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.errors.find("tarn: out.flac: FLAC has no place for the tag STRA\xc3\x9f"), std::string::npos)
        << result.errors;
    EXPECT_EQ(
        tarn({"upmix", "--quiet", "--force", "in.mp3", "out.flac"}).errors.find("tarn: out.flac: FLAC has no place"),
        0u);
}

TEST_F(Tags, TagsAroundAFlacStreamAreNotDamage)
{
    writeTagged("in.flac", kFlac16, {});
    std::string last(128, '\0');
    last.replace(0, 10, "TAGA title");
    const std::string first = "ID3\3" + std::string(5, '\0') + "\x14" + std::string(20, '\0');
    writeBytes(at("tagged.flac"), first + bytesOf(at("in.flac")) + last);
    const Result result = tarn({"upmix", "--strict", "tagged.flac", "out.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors.find("damaged"), std::string::npos) << result.errors;
    EXPECT_EQ(readAudio(at("out.wav")).info.frames, 5000);
}

TEST_F(Tags, AreAppendedAsChunksOfWaveAndRf64)
{
    const auto number = [](const std::string& bytes, std::size_t at, std::size_t count) {
        std::uint64_t value = 0;
        for (std::size_t i = count; i > 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
        return value;
    };
    // RF64 is for files above 4 GiB. The audio has an odd number of bytes.
    const Samples samples(std::size_t{3} * 1001, 0x12345600);
    for (const int container : {SF_FORMAT_RF64, SF_FORMAT_WAVEX}) {
        writeAudio(at("out.wav"), container | SF_FORMAT_PCM_24, 48000, 3, samples);
        std::vector<std::string> leftOut;
        const int descriptor = open(at("out.wav").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_EQ(tarn::appendTags(descriptor,
                                   {.tags = {.texts = richTexts(), .pictures = {}, .flacBlocks = {}, .leftOut = {}},
                                    .broadcast = {},
                                    .chunks = {{.name = "iXML", .contents = "odd"}}},
                                   leftOut),
                  0);
        close(descriptor);
        EXPECT_TRUE(leftOut.empty());
        EXPECT_TRUE(readAudio(at("out.wav")).samples == samples);

        const std::string bytes = bytesOf(at("out.wav"));
        const bool isRf64 = container == SF_FORMAT_RF64;
        EXPECT_EQ(isRf64 ? number(bytes, 20, 8) : number(bytes, 4, 4), bytes.size() - 8);
        std::string marks;
        std::size_t chunk = 12;
        while (chunk + 8 <= bytes.size()) {
            std::size_t size = number(bytes, chunk + 4, 4);
            if (size == 0xffffffff) size = number(bytes, 28, 8);
            marks += bytes.substr(chunk, 4) + ",";
            chunk += 8 + size + size % 2;
        }
        EXPECT_EQ(chunk, bytes.size());
        EXPECT_TRUE(marks.ends_with("data,LIST,id3 ,iXML,")) << marks;
    }
    expectTags("out.wav", {{SF_STR_TITLE, "A title"}, {SF_STR_COMMENT, "A comment"}});
    EXPECT_EQ(textsOf("out.wav")["ALBUMARTIST"].toString(), richTexts()["ALBUMARTIST"].toString());
}

TEST_F(Tags, TagsOfRf64AreKept)
{
    writeAudio(at("in.wav"), SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 48000, 2, stereoNoise(5000, 16));
    std::vector<std::string> leftOut;
    const int descriptor = open(at("in.wav").c_str(), O_RDWR | O_CLOEXEC);
    tarn::Metadata metadata;
    metadata.tags.texts = richTexts();
    metadata.tags.pictures.push_back(
        {.kind = 3, .mimeType = "image/png", .description = utf8("A c\xc3\xb6ver"), .data = pictureBytes()});
    metadata.chunks = {{.name = "iXML", .contents = "odd"}, {.name = "cart", .contents = "odd"}};
    ASSERT_EQ(tarn::appendTags(descriptor, metadata, leftOut), 0);
    close(descriptor);
    for (const std::string output : {"out.wav", "out.flac"}) {
        const Result result = tarn({"upmix", "in.wav", output});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.errors.find("FLAC has no place for the cart chunk") == std::string::npos, output == "out.wav")
            << result.errors;
        const TagLib::PropertyMap texts = textsOf(output);
        for (const auto& [name, values] : richTexts())
            EXPECT_EQ(texts[name].toString("|"), values.toString("|")) << output << " " << name.to8Bit(true);
        expectCover(output);
    }
}

TEST_F(Tags, InfoTextsOfRf64AreKept)
{
    writeTagged("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, {{SF_STR_TITLE, "Apn\xe9"}});
    // Replaces the 32-bit header with a 64-bit one.
    std::string wave = bytesOf(at("in.wav"));
    const auto number = [](std::uint64_t value) {
        const ByteVector bytes = ByteVector::fromLongLong(static_cast<long long>(value), false);
        return std::string(bytes.data(), bytes.size());
    };
    const std::string sizes = number(wave.size() - 8 + 36) + number(20000) + number(5000) + std::string(4, '\0');
    wave.replace(0, 12, std::string("RF64\xff\xff\xff\xffWAVEds64\x1c\0\0\0", 20) + sizes);
    writeBytes(at("in.wav"), wave.replace(wave.find("data") + 4, 4, "\xff\xff\xff\xff"));
    const Result result = tarn({"upmix", "in.wav", "out.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(textsOf("out.flac")["TITLE"].toString(), utf8("Apn\xc3\xa9"));
    EXPECT_NE(result.errors.find("read as Windows-1252"), std::string::npos) << result.errors;
}

TEST_F(Tags, TagsWrittenByFfmpegAreKept)
{
    writeTagged("plain.wav", kWave16, {});
    for (const std::string input : {"in.mp3", "in.flac", "in.ogg", "in.wav", "in.caf"}) {
        ASSERT_EQ(
            shell("ffmpeg -v error -i plain.wav -metadata comment='A comment' -metadata composer='A composer' " + input)
                .exitCode,
            0);
        ASSERT_EQ(tarn({"upmix", "--force", input, "out.flac"}).exitCode, 0);
        EXPECT_EQ(textsOf("out.flac")["COMMENT"].toString(), String("A comment")) << input;
        // FFmpeg writes no composer into WAV.
        if (input != "in.wav") {
            EXPECT_EQ(textsOf("out.flac")["COMPOSER"].toString(), String("A composer")) << input;
        }
        // FFmpeg itself reads what the command wrote.
        ASSERT_EQ(tarn({"upmix", "--force", input, "out.wav"}).exitCode, 0);
        EXPECT_NE(
            shell("ffprobe -v error -show_entries format_tags=comment -of csv=p=0 out.wav").output.find("A comment"),
            std::string::npos)
            << input;
    }
}

TEST_F(Tags, EveryPictureTypeIsKeptInFlac)
{
    writeTagged("in.mp3", kMp3, {});
    {
        TagLib::MPEG::File mpeg(at("in.mp3").c_str());
        for (int kind = 0; kind <= 20; ++kind) {
            for (int i = 0; i < 2; ++i) {
                auto* const frame = new TagLib::ID3v2::AttachedPictureFrame; // the tag takes it
                frame->setType(static_cast<TagLib::ID3v2::AttachedPictureFrame::Type>(kind));
                frame->setMimeType("image/png");
                frame->setPicture(pictureBytes());
                mpeg.ID3v2Tag(true)->addFrame(frame);
            }
        }
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2));
    }
    const Result result = tarn({"upmix", "in.mp3", "out.flac"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    TagLib::FLAC::File flac(at("out.flac").c_str());
    EXPECT_EQ(flac.pictureList().size(), 42u);
}

TEST_F(Tags, Id3v1CoveredById3v2IsNotReported)
{
    writeTagged("in.mp3", kMp3, {});
    {
        TagLib::MPEG::File mpeg(at("in.mp3").c_str());
        mpeg.ID3v2Tag(true)->setTitle(utf8("\xc3\x84 title"));
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2));
    }
    std::string last(128, '\0');
    last.replace(0, 10, "TAG\xc4 title");
    writeBytes(at("in.mp3"), bytesOf(at("in.mp3")) + last);
    const Result result = tarn({"upmix", "in.mp3", "out.flac"});
    EXPECT_EQ(result.errors.find("UTF-8"), std::string::npos) << result.errors;
    EXPECT_EQ(textsOf("out.flac")["TITLE"].toString(), utf8("\xc3\x84 title"));
}

TEST_F(Tags, FramesWithoutAnEquivalentAreReported)
{
    writeTagged("in.mp3", kMp3, {});
    {
        TagLib::MPEG::File mpeg(at("in.mp3").c_str());
        auto* const frame = new TagLib::ID3v2::UnknownFrame(ByteVector("POPM\0\0\0\1\0\0x", 11)); // the tag takes it
        mpeg.ID3v2Tag(true)->setTitle("A title");
        mpeg.ID3v2Tag()->addFrame(frame);
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2));
    }
    EXPECT_NE(tarn({"upmix", "in.mp3", "out.wav"}).errors.find("tarn: in.mp3: its ID3v2 frames POPM"),
              std::string::npos);
}

TEST_F(Tags, CafInfoIsKept)
{
    writeTagged("plain.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16, {});
    writeCaf("in.caf", {{"title", "\xc3\x84 title"},
                        {"artist", "An artist"},
                        {"album", "An album"},
                        {"track number", "7/12"},
                        {"Disc Number", "2/3"},
                        {"recorded date", "2024-05-06"},
                        {"year", "2023"},
                        {"composer", "A composer"},
                        {"lyricist", "A lyricist"},
                        {"album_artist", "An album artist"},
                        {"comments", "A comment"},
                        {"copyright", "A right"},
                        {"isrc", "DEXX12400001"},
                        {"lyrics", "Line one\nLine two"},
                        {"tempo", "120"},
                        {"nominal bit rate", "128000"},
                        {"encoding application", "A program"},
                        {"source encoder", "An encoder"},
                        {"genre", ""}});
    for (const std::string output : {"out.wav", "out.flac"}) {
        const Result result = tarn({"upmix", "in.caf", output});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        TagLib::PropertyMap texts = textsOf(output);
        texts.erase("WAVEFORMATEXTENSIBLE_CHANNEL_MASK");
        EXPECT_EQ(texts.size(), 15u) << texts.toString().to8Bit(true);
        for (const auto& [name, text] : std::vector<std::pair<const char*, const char*>>{
                 {"TITLE", "\xc3\x84 title"},
                 {"ARTIST", "An artist"},
                 {"ALBUM", "An album"},
                 {"TRACKNUMBER", "7/12"},
                 {"DISCNUMBER", "2/3"},
                 {"DATE", "2024-05-06"},
                 {"YEAR", "2023"},
                 {"COMPOSER", "A composer"},
                 {"LYRICIST", "A lyricist"},
                 {"ALBUMARTIST", "An album artist"},
                 {"COMMENT", "A comment"},
                 {"COPYRIGHT", "A right"},
                 {"ISRC", "DEXX12400001"},
                 {"LYRICS", "Line one\nLine two"},
                 {"BPM", "120"},
             })
            EXPECT_EQ(texts[name].toString("|"), utf8(text)) << output << " " << name;
    }
    // The audio equals that of the file without texts.
    ASSERT_EQ(tarn({"upmix", "plain.caf", "plain.wav"}).exitCode, 0);
    EXPECT_TRUE(readAudio(at("out.wav")).samples == readAudio(at("plain.wav")).samples);
}

TEST_F(Tags, DamagedCafInfoIsHarmless)
{
    const std::vector<std::pair<std::string, std::string>> many(5000, {"key", "text"});
    writeCaf("many.caf", many);
    const Result limited = tarn({"upmix", "many.caf", "many.flac"});
    EXPECT_EQ(limited.exitCode, 0) << limited.errors;
    EXPECT_EQ(textsOf("many.flac")["KEY"].size(), 1000u);
    EXPECT_NE(limited.errors.find("tarn: many.caf: its texts after the first 1000 are left out\n"), std::string::npos)
        << limited.errors;

    // The declared count exceeds the number of texts, and the last text is not terminated.
    writeCaf("short.caf", {{"title", "A title"}});
    std::string bytes = bytesOf(at("short.caf"));
    const std::size_t info = bytes.find("info");
    bytes.replace(info + 12, 4, "\x7f\xff\xff\xff");
    bytes[bytes.find("A title") + 7] = 'x';
    writeBytes(at("short.caf"), bytes);
    ASSERT_EQ(tarn({"upmix", "short.caf", "short.flac"}).exitCode, 0);
    EXPECT_EQ(textsOf("short.flac")["TITLE"].toString(), String("A titlex"));

    // The chunk follows the audio and declares a size larger than the file.
    bytes += "info" + std::string(4, '\0') + "\x40" + std::string(3, '\0') + "1234title";
    writeBytes(at("large.caf"), bytes);
    const Result large = tarn({"upmix", "large.caf", "large.flac"});
    EXPECT_EQ(large.exitCode, 0) << large.errors;
    EXPECT_LT(large.peakKibibytes, 100000);
}

/// People of an ID3v2 tag.
class InvolvedPeople : public Tags
{
protected:
    void writeMp3(const std::string& name, const std::vector<const char*>& rolesAndNames, unsigned version = 4) const
    {
        writeTagged(name, kMp3, {});
        TagLib::StringList people;
        for (const char* const text : rolesAndNames) people.append(utf8(text));
        auto* const frame = new TagLib::ID3v2::TextIdentificationFrame("TIPL", String::UTF16); // the tag takes it
        frame->setText(people);
        TagLib::MPEG::File mpeg(at(name).c_str());
        mpeg.ID3v2Tag(true)->addFrame(frame);
        auto* const composer = new TagLib::ID3v2::TextIdentificationFrame("TCOM", String::UTF8);
        composer->setText("A composer");
        mpeg.ID3v2Tag()->addFrame(composer);
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers,
                              version == 3 ? TagLib::ID3v2::v3 : TagLib::ID3v2::v4));
    }
};

TEST_F(InvolvedPeople, AreKeptByTheirRoles)
{
    for (const unsigned version : {3u, 4u}) {
        writeMp3("in.mp3",
                 {"producer", "\xc3\x84n Other", "engineer", "An Engineer", "mix", "A Mixer", "DJ-mix", "A DJ",
                  "ARRANGER", "An Arranger", "producer", "A Second", "executive producer", "A Third", "composer",
                  "A composer", "composer", "Another"},
                 version);
        for (const std::string output : {"out.wav", "out.flac"}) {
            const Result result = tarn({"upmix", "--force", "in.mp3", output});
            ASSERT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_EQ(result.errors.find("left out"), std::string::npos) << result.errors;
            TagLib::PropertyMap texts = textsOf(output);
            for (const auto& [name, people] : std::vector<std::pair<const char*, const char*>>{
                     {"PRODUCER", "\xc3\x84n Other|A Second"},
                     {"ENGINEER", "An Engineer"},
                     {"MIXER", "A Mixer"},
                     {"DJMIXER", "A DJ"},
                     {"ARRANGER", "An Arranger"},
                     {"EXECUTIVE PRODUCER", "A Third"},
                     {"COMPOSER", "A composer|Another"},
                 })
                EXPECT_EQ(texts[name].toString("|"), utf8(people)) << output << " " << name;
        }
        const TagLib::RIFF::WAV::File wave(at("out.wav").c_str());
        EXPECT_EQ(wave.ID3v2Tag()->frameList("TIPL").size(), 1u) << "roles with a TIPL name";
    }
}

TEST_F(InvolvedPeople, MissingNamesAreReported)
{
    writeMp3("in.mp3", {"producer", "A Producer", "engineer"});
    const Result result = tarn({"upmix", "in.mp3", "out.flac"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(textsOf("out.flac")["PRODUCER"].toString(), String("A Producer"));
    EXPECT_NE(result.errors.find("tarn: in.mp3: its ID3v2 frames TIPL are left out\n"), std::string::npos)
        << result.errors;
}

/// Latin-1 in formats that require UTF-8 or define no encoding.
class ForeignTags : public Tags
{
protected:
    const std::string latin1 = "Apn\xe9"
                               "e \x80"; // e acute; 0x80 is the euro sign in Windows-1252
    const String expected = utf8("Apn\xc3\xa9"
                                 "e \xe2\x82\xac");

    void expectConverted(const std::string& input, const char* name) const
    {
        for (const std::string output : {"out.flac", "out.wav"}) {
            const Result result = tarn({"upmix", "--force", input, output});
            EXPECT_EQ(result.exitCode, 0) << result.errors;
            EXPECT_EQ(textsOf(output)[name].toString(), expected) << input << " " << output;
            EXPECT_NE(result.errors.find("tarn: " + input + ": its tags are not UTF-8 and are read as Windows-1252\n"),
                      std::string::npos)
                << result.errors;
        }
    }
};

TEST_F(ForeignTags, WaveTagsAreConverted)
{
    writeTagged("in.wav", kWave16, {{SF_STR_ARTIST, latin1}});
    expectConverted("in.wav", "ARTIST");
}

TEST_F(ForeignTags, OggTagsAreConverted)
{
    writeTagged("in.ogg", kVorbis, {{SF_STR_ALBUM, latin1}, {SF_STR_TITLE, "\xc3\x84 title"}});
    expectConverted("in.ogg", "ALBUM");
    EXPECT_EQ(textsOf("out.flac")["TITLE"].toString(), utf8("\xc3\x84 title")) << "each text separately";
}

TEST_F(ForeignTags, Id3v1TagsAreConverted)
{
    writeTagged("in.mp3", kMp3, {});
    std::string tag(128, '\0');
    tag.replace(0, 3, "TAG");
    tag.replace(3, latin1.size(), latin1);
    writeBytes(at("in.mp3"), bytesOf(at("in.mp3")) + tag);
    expectConverted("in.mp3", "TITLE");
}

TEST_F(ForeignTags, FlacTagsAreConverted)
{
    // Puts a comment block that no library writes before the frames that libsndfile wrote.
    writeTagged("in.flac", kFlac16, {});
    std::string flac = bytesOf(at("in.flac"));
    const auto word = [](std::size_t value) {
        return std::string{static_cast<char>(value), static_cast<char>(value >> 8), '\0', '\0'};
    };
    const std::string comment = "ARTIST=" + latin1;
    const std::string block = word(0) + word(1) + word(comment.size()) + comment;
    flac.insert(42, std::string{'\4', '\0', '\0', static_cast<char>(block.size())} + block);
    flac[4] = '\0'; // the first block is not the last
    writeBytes(at("in.flac"), flac);
    expectConverted("in.flac", "ARTIST");
}

} // namespace tarn_cli
