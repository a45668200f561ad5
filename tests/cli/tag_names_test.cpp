// Tags whose names differ between formats: no text is lost, and each has the name that its format defines.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"
#include "tests/cli/command.h"

#include <map>
#include <string>

#include <apetag.h>
#include <attachedpictureframe.h>
#include <commentsframe.h>
#include <flacfile.h>
#include <id3v2tag.h>
#include <mpegfile.h>
#include <textidentificationframe.h>
#include <tpropertymap.h>
#include <unsynchronizedlyricsframe.h>
#include <wavfile.h>

namespace tarn_cli
{

namespace
{

using TagLib::ByteVector;
using TagLib::String;
using TagLib::ID3v2::Frame;

std::string number(std::size_t value)
{
    const ByteVector bytes = ByteVector::fromUInt(static_cast<unsigned>(value), false);
    return {bytes.data(), bytes.size()};
}

} // namespace

class TagNames : public CommandTest
{
protected:
    void SetUp() override
    {
        CommandTest::SetUp();
        writeNoise("in.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);
        writeNoise("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        writeNoise("in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    }

    void writeNoise(const std::string& name, int format) const
    {
        writeAudio(at(name), format, 48000, 2, stereoNoise(5000, 16));
    }

    /// Adds ID3v2 frames to in.mp3, which takes them.
    void addFrames(const std::vector<Frame*>& frames) const
    {
        TagLib::MPEG::File mpeg(at("in.mp3").c_str());
        for (Frame* const frame : frames) mpeg.ID3v2Tag(true)->addFrame(frame);
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2));
    }

    static Frame* textFrame(const char* id, const char* text)
    {
        auto* const frame = new TagLib::ID3v2::TextIdentificationFrame(id, String::UTF8);
        frame->setText(text);
        return frame;
    }

    static Frame* comment(const char* text)
    {
        auto* const frame = new TagLib::ID3v2::CommentsFrame(String::UTF8);
        frame->setText(text);
        return frame;
    }

    /// Upmixes a file to out.flac and out.wav. Returns what the command prints about the WAV file.
    std::string upmix(const std::string& input) const
    {
        EXPECT_EQ(tarn({"upmix", "--force", input, "out.flac"}).exitCode, 0);
        const Result result = tarn({"upmix", "--force", input, "out.wav"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return result.errors;
    }

    /// The values of a comment in out.flac.
    std::string flacText(const char* name) const
    {
        return TagLib::FLAC::File(at("out.flac").c_str()).properties()[name].toString("|").to8Bit(true);
    }

    /// The frames with an id in out.wav: "text|text".
    std::string waveFrames(const char* id) const
    {
        const TagLib::RIFF::WAV::File wave(at("out.wav").c_str());
        std::string texts;
        for (const Frame* const frame : wave.ID3v2Tag()->frameList(id))
            texts += (texts.empty() ? "" : "|") + frame->toString().to8Bit(true);
        return texts;
    }
};

TEST_F(TagNames, UserTextWithoutADescriptionIsKept)
{
    auto* const text = new TagLib::ID3v2::UserTextIdentificationFrame(String::UTF8);
    text->setDescription("");
    text->setText("A text");
    addFrames({text});
    upmix("in.mp3");
    EXPECT_EQ(flacText("TXXX"), "A text");
    // Encoding, empty description, text. TagLib reads this as a description without a text.
    EXPECT_NE(bytesOf(at("out.wav")).find(std::string("\3\0A text", 8)), std::string::npos);
}

TEST_F(TagNames, SeveralCommentsAndLyricsHaveTheirFrames)
{
    auto* const lyrics = new TagLib::ID3v2::UnsynchronizedLyricsFrame(String::UTF8);
    lyrics->setText("Lyrics");
    auto* const others = new TagLib::ID3v2::UnsynchronizedLyricsFrame(String::UTF8);
    others->setText("More lyrics");
    addFrames({comment("First"), comment("Second"), lyrics, others});
    upmix("in.mp3");
    EXPECT_EQ(flacText("COMMENT"), "First|Second");
    EXPECT_EQ(flacText("LYRICS"), "Lyrics|More lyrics");
    EXPECT_EQ(waveFrames("COMM"), "First|Second");
    EXPECT_EQ(waveFrames("USLT"), "Lyrics|More lyrics");
    EXPECT_EQ(waveFrames("TXXX"), "");
}

TEST_F(TagNames, DiscSubtitleIsKeptAndFileTypeIsNot)
{
    addFrames({textFrame("TSST", "A subtitle"), textFrame("TFLT", "MPG/3"), textFrame("TIT2", "A title")});
    const std::string notes = upmix("in.mp3");
    EXPECT_EQ(notes.find("left out"), std::string::npos) << notes;
    EXPECT_EQ(flacText("DISCSUBTITLE"), "A subtitle");
    EXPECT_EQ(waveFrames("TSST"), "A subtitle");
    EXPECT_EQ(flacText("FILETYPE"), "");
    EXPECT_EQ(waveFrames("TFLT"), "");
    EXPECT_EQ(waveFrames("TIT2"), "A title");
}

TEST_F(TagNames, TotalsAreJoinedWithTheirNumbers)
{
    for (const auto& [trackTotal, discTotal] :
         {std::pair{"TRACKTOTAL", "DISCTOTAL"}, std::pair{"TOTALTRACKS", "TOTALDISCS"}}) {
        {
            TagLib::FLAC::File flac(at("in.flac").c_str());
            TagLib::PropertyMap texts;
            texts.insert("TRACKNUMBER", String("4"));
            texts.insert(trackTotal, String("9"));
            texts.insert("DISCNUMBER", String("1/2"));
            texts.insert(discTotal, String("2"));
            flac.setProperties(texts);
            ASSERT_TRUE(flac.save());
        }
        upmix("in.flac");
        EXPECT_EQ(waveFrames("TRCK"), "4/9");
        EXPECT_EQ(waveFrames("TPOS"), "1/2");
        EXPECT_EQ(waveFrames("TXXX"), "");
        EXPECT_EQ(flacText("TRACKNUMBER"), "4");
        EXPECT_EQ(flacText(trackTotal), "9");
    }
}

TEST_F(TagNames, InfoFieldsAreKept)
{
    const std::vector<std::array<std::string, 3>> fields{
        {"ISBJ", "SUBJECT", "A subject"},     {"IKEY", "KEYWORDS", "A keyword"},
        {"IMED", "MEDIA", "A medium"},        {"ISRC", "ISRC", "DEXX12400001"},
        {"ISTR", "PERFORMER", "A performer"}, {"IWRI", "LYRICIST", "A writer"},
        {"IPRO", "PRODUCER", "A producer"},   {"IBPM", "BPM", "120"},
        {"IARL", "IARL", "An archive"}};
    std::string info = "INFO";
    for (const auto& [field, name, text] : fields) {
        info += field + number(text.size() + 1) + text + '\0';
        if (text.size() % 2 == 0) info += '\0';
    }
    info += "ISFT" + number(10) + "A program" + '\0';
    const std::string wave = bytesOf(at("in.wav")) + "LIST" + number(info.size()) + info;
    writeBytes(at("in.wav"), std::string(wave).replace(4, 4, number(wave.size() - 8)));
    upmix("in.wav");
    const std::string output = bytesOf(at("out.wav"));
    for (const auto& [field, name, text] : fields) {
        EXPECT_EQ(flacText(name.c_str()), text) << field;
        EXPECT_NE(output.find(field + number(text.size() + 1) + text), std::string::npos) << field;
    }
    EXPECT_EQ(output.find("A program"), std::string::npos) << "the program that wrote the stereo";
}

TEST_F(TagNames, ApePicturesAndLinksAreKept)
{
    {
        TagLib::MPEG::File mpeg(at("in.mp3").c_str());
        TagLib::APE::Tag& tag = *mpeg.APETag(true);
        tag.setItem("COVER ART (BACK)",
                    TagLib::APE::Item("Cover Art (Back)", ByteVector("back.png\0\x89PNG and more", 22), true));
        TagLib::APE::Item link;
        link.setKey("RELATED");
        link.setType(TagLib::APE::Item::Locator);
        link.setValue("https://example.org");
        tag.setItem("RELATED", link);
        tag.setItem("DATA", TagLib::APE::Item("Data", ByteVector("\1\2\3", 3), true));
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::APE));
    }
    const std::string notes = upmix("in.mp3");
    EXPECT_NE(notes.find("tarn: in.mp3: its APE items DATA are left out\n"), std::string::npos) << notes;
    EXPECT_EQ(flacText("RELATED"), "https://example.org");
    TagLib::FLAC::File flac(at("out.flac").c_str());
    ASSERT_EQ(flac.pictureList().size(), 1u);
    EXPECT_EQ(flac.pictureList().front()->type(), TagLib::FLAC::Picture::BackCover);
    EXPECT_EQ(flac.pictureList().front()->data(), ByteVector("\x89PNG and more"));
}

TEST_F(TagNames, Id3v2BeforeOggAndFlacIsKept)
{
    addFrames({textFrame("TIT2", "A title"), textFrame("TCOM", "A composer")});
    const std::string mpeg = bytesOf(at("in.mp3"));
    const std::string tag = mpeg.substr(0, mpeg.find('\xff'));
    writeNoise("in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS);
    writeNoise("in.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS);
    for (const std::string input : {"in.ogg", "in.opus", "in.flac"}) {
        writeBytes(at("tagged"), tag + bytesOf(at(input)));
        upmix("tagged");
        EXPECT_EQ(flacText("TITLE"), "A title") << input;
        EXPECT_EQ(flacText("COMPOSER"), "A composer") << input;
    }
}

TEST_F(TagNames, CommentsAndLyricsKeepTheirLanguage)
{
    const auto in = [](auto* frame, const char* text, const char* language) {
        frame->setText(text);
        frame->setLanguage(language);
        return frame;
    };
    using TagLib::ID3v2::CommentsFrame;
    using TagLib::ID3v2::UnsynchronizedLyricsFrame;
    auto* const described = in(new CommentsFrame(String::UTF8), "Beschrieben", "ger");
    described->setDescription("Review");
    addFrames({in(new CommentsFrame(String::UTF8), "A comment", "eng"),
               in(new CommentsFrame(String::UTF8), "Ein Kommentar", "deu"), described,
               in(new UnsynchronizedLyricsFrame(String::UTF8), "Paroles", "fra")});
    const Result result = tarn({"upmix", "in.mp3", "out.wav"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    TagLib::RIFF::WAV::File wave(at("out.wav").c_str());
    std::map<std::string, std::string> languages;
    for (const Frame* frame : wave.ID3v2Tag()->frameList("COMM")) {
        const auto* const found = dynamic_cast<const CommentsFrame*>(frame);
        languages[found->text().to8Bit(true)] = std::string(found->language().data(), 3);
    }
    for (const Frame* frame : wave.ID3v2Tag()->frameList("USLT")) {
        const auto* const found = dynamic_cast<const UnsynchronizedLyricsFrame*>(frame);
        languages[found->text().to8Bit(true)] = std::string(found->language().data(), 3);
    }
    EXPECT_EQ(languages,
              (std::map<std::string, std::string>{
                  {"A comment", "eng"}, {"Beschrieben", "ger"}, {"Ein Kommentar", "deu"}, {"Paroles", "fra"}}));
}

TEST_F(TagNames, PicturesOfReservedTypesBecomeOtherPictures)
{
    using TagLib::ID3v2::AttachedPictureFrame;
    auto* const picture = new AttachedPictureFrame;
    picture->setMimeType("image/png");
    picture->setPicture(ByteVector("\x89PNG picture"));
    addFrames({picture});
    std::string mpeg = bytesOf(at("in.mp3"));
    const std::string mimeType("image/png\0", 10);
    mpeg[mpeg.find(mimeType) + mimeType.size()] = '\xff'; // the type
    writeBytes(at("in.mp3"), mpeg);
    ASSERT_EQ(tarn({"upmix", "in.mp3", "out.wav"}).exitCode, 0);
    TagLib::RIFF::WAV::File wave(at("out.wav").c_str());
    const TagLib::ID3v2::FrameList frames = wave.ID3v2Tag()->frameList("APIC");
    ASSERT_EQ(frames.size(), 1u);
    const auto* const copy = dynamic_cast<const AttachedPictureFrame*>(frames.front());
    EXPECT_EQ(copy->type(), AttachedPictureFrame::Other);
    EXPECT_TRUE(copy->picture() == ByteVector("\x89PNG picture"));

    ASSERT_EQ(tarn({"upmix", "in.mp3", "out.flac"}).exitCode, 0);
    TagLib::FLAC::File flac(at("out.flac").c_str());
    ASSERT_EQ(flac.pictureList().size(), 1u);
    EXPECT_EQ(flac.pictureList().front()->type(), TagLib::FLAC::Picture::Other);
}

} // namespace tarn_cli
