// Translates between ID3v2 frames and the names of Vorbis comments.
// SPDX-License-Identifier: MIT
#include "cli/id3v2_tags.h"

#include <algorithm>
#include <initializer_list>
#include <memory>

#include <attachedpictureframe.h>
#include <commentsframe.h>
#include <mpegfile.h>
#include <tbytevectorstream.h>
#include <textidentificationframe.h>
#include <unsynchronizedlyricsframe.h>

namespace tarn
{

namespace
{

using TagLib::ByteVector;
using TagLib::String;
using TagLib::StringList;
using TagLib::ID3v2::TextIdentificationFrame;

constexpr const char* kDiscSubtitle = "DISCSUBTITLE"; ///< frame TSST, which TagLib does not translate
constexpr const char* kNoDescription = "TXXX";        ///< name of user texts without a description

/// Adds the people of an ID3v2 tag by their roles if TagLib does not: roles in lower case or unknown to TagLib. Returns
/// whether every role has a name and the number of fields is within the limit.
bool addInvolvedPeople(const TagLib::ID3v2::FrameList& frames, TagLib::PropertyMap& texts)
{
    constexpr unsigned kMaxFields = 1000; ///< per frame
    bool isComplete = true;
    for (const TagLib::ID3v2::Frame* frame : frames) {
        const auto* const people = dynamic_cast<const TextIdentificationFrame*>(frame);
        if (people == nullptr || people->asProperties().unsupportedData().isEmpty()) continue;
        const StringList fields = people->fieldList();
        for (unsigned i = 0; i + 1 < std::min(fields.size(), kMaxFields); i += 2) {
            String role = fields[i].upper();
            for (const auto& [name, key] : TagLib::ID3v2::TextIdentificationFrame::involvedPeopleMap())
                if (role == key) role = name;
            if (!texts[role].contains(fields[i + 1])) texts[role].append(fields[i + 1]);
        }
        isComplete = isComplete && fields.size() % 2 == 0 && fields.size() <= kMaxFields;
    }
    return isComplete;
}

/// Adds disc subtitles, and user texts without a description.
void addUnnamed(const TagLib::ID3v2::Tag& tag, TagLib::PropertyMap& texts)
{
    texts.erase("");
    // TagLib reads the text of such a frame as its description.
    for (const TagLib::ID3v2::Frame* frame : tag.frameList("TXXX"))
        if (const auto* text = dynamic_cast<const TagLib::ID3v2::UserTextIdentificationFrame*>(frame))
            if (text->fieldList().toString("") == text->description())
                texts.insert(kNoDescription, text->description());
    for (const TagLib::ID3v2::Frame* frame : tag.frameList("TSST"))
        if (const auto* text = dynamic_cast<const TextIdentificationFrame*>(frame))
            texts.insert(kDiscSubtitle, text->fieldList());
}

/// Joins a number and a total, which ID3v2 stores in one text: "4/9".
void joinTotal(TagLib::PropertyMap& texts, const char* number, std::initializer_list<const char*> totals)
{
    for (const char* const total : totals) {
        if (!texts.contains(total) || !texts.contains(number)) continue;
        const String& value = texts[number].front();
        if (texts[number].size() != 1 || texts[total].size() != 1) continue;
        const String joined = value.find("/") < 0 ? value + "/" + texts[total].front() : value;
        if (!joined.to8Bit(true).ends_with('/' + texts[total].front().to8Bit(true))) continue;
        texts.replace(number, joined);
        texts.erase(total);
    }
}

/// Moves a text to another map.
void moveText(TagLib::PropertyMap& from, TagLib::PropertyMap& to, const char* name)
{
    if (!from.contains(name)) return;
    to.insert(name, from[name]);
    from.erase(name);
}

/// Adds a frame with texts.
template <typename Frame, typename Text>
void addFrame(TagLib::ID3v2::Tag& tag, std::unique_ptr<Frame> frame, const Text& text)
{
    frame->setText(text);
    tag.addFrame(frame.release());
}

/// Adds the texts that TagLib would write under another name. Comments and lyrics have a frame per value.
void addOthers(TagLib::ID3v2::Tag& tag, const TagLib::PropertyMap& texts)
{
    using TagLib::ID3v2::CommentsFrame;
    using TagLib::ID3v2::UnsynchronizedLyricsFrame;
    using TagLib::ID3v2::UserTextIdentificationFrame;
    for (const auto& [name, values] : texts) {
        if (name == kDiscSubtitle) {
            addFrame(tag, std::make_unique<TextIdentificationFrame>("TSST", String::UTF8), values);
        } else if (name == kNoDescription) {
            addFrame(tag, std::make_unique<UserTextIdentificationFrame>(String::UTF8), values);
        } else if (name == "COMMENT") {
            for (const String& value : values) addFrame(tag, std::make_unique<CommentsFrame>(String::UTF8), value);
        } else {
            for (const String& value : values)
                addFrame(tag, std::make_unique<UnsynchronizedLyricsFrame>(String::UTF8), value);
        }
    }
}

/// Adds the languages of the frames with a name.
template <typename Frame>
void addLanguages(const TagLib::ID3v2::Tag& tag, const char* name, std::vector<TextLanguage>& languages)
{
    for (const TagLib::ID3v2::Frame* any : tag.frameList(name))
        if (const auto* frame = dynamic_cast<const Frame*>(any); frame != nullptr && frame->language().size() == 3)
            languages.push_back({.frame = name, .text = frame->text(), .language = frame->language()});
}

/// Sets the languages of the frames with a name. Frames of the same text get theirs in the order of the input.
template <typename Frame>
void setLanguages(TagLib::ID3v2::Tag& tag, const char* name, std::vector<TextLanguage> languages)
{
    for (TagLib::ID3v2::Frame* any : tag.frameList(name)) {
        auto* const frame = dynamic_cast<Frame*>(any);
        const auto found = std::ranges::find_if(languages, [&](const TextLanguage& known) {
            return known.frame == name && frame != nullptr && known.text == frame->text();
        });
        if (found == languages.end()) continue;
        frame->setLanguage(found->language);
        languages.erase(found);
    }
}

} // namespace

void addId3v2(TagCollector& collector, const TagLib::ID3v2::Tag* tag)
{
    if (tag == nullptr) return;
    TagLib::PropertyMap texts = tag->properties();
    const bool hasAllPeople = addInvolvedPeople(tag->frameList("TIPL"), texts);
    addUnnamed(*tag, texts);
    addLanguages<TagLib::ID3v2::CommentsFrame>(*tag, "COMM", collector.tags.languages);
    addLanguages<TagLib::ID3v2::UnsynchronizedLyricsFrame>(*tag, "USLT", collector.tags.languages);
    collector.add(texts);
    StringList others;
    for (const String& frame : texts.unsupportedData()) {
        const bool isRead = frame.startsWith("APIC") || frame == "TSST" || (frame == "TIPL" && hasAllPeople);
        if (!isRead) others.append(frame);
    }
    if (!others.isEmpty())
        collector.tags.leftOut.push_back("its ID3v2 frames " + joinedNames(others) + " are left out");
    for (const TagLib::ID3v2::Frame* frame : tag->frameList("APIC"))
        if (const auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame))
            collector.tags.pictures.push_back({.kind = pictureKind(picture->type()),
                                               .mimeType = picture->mimeType(),
                                               .description = picture->description(),
                                               .data = picture->picture()});
}

void addId3v2(TagCollector& collector, const ByteVector& bytes)
{
    TagLib::ByteVectorStream stream(bytes);
    TagLib::MPEG::File tagged(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    addId3v2(collector, tagged.hasID3v2Tag() ? tagged.ID3v2Tag() : nullptr);
}

ByteVector id3v2Tag(const Tags& tags, std::vector<std::string>& leftOut)
{
    TagLib::ID3v2::Tag tag;
    TagLib::PropertyMap texts = tags.texts;
    joinTotal(texts, "TRACKNUMBER", {"TRACKTOTAL", "TOTALTRACKS"});
    joinTotal(texts, "DISCNUMBER", {"DISCTOTAL", "TOTALDISCS"});
    TagLib::PropertyMap others;
    for (const char* const name : {"COMMENT", "LYRICS"})
        if (texts.contains(name) && texts[name].size() > 1) moveText(texts, others, name);
    for (const char* const name : {kDiscSubtitle, kNoDescription}) moveText(texts, others, name);
    const TagLib::PropertyMap refused = tag.setProperties(texts);
    for (const auto& [name, values] : refused) leftOut.push_back("WAV has no place for the tag " + name.to8Bit(true));
    addOthers(tag, others);
    setLanguages<TagLib::ID3v2::CommentsFrame>(tag, "COMM", tags.languages);
    setLanguages<TagLib::ID3v2::UnsynchronizedLyricsFrame>(tag, "USLT", tags.languages);
    for (const Picture& picture : tags.pictures) {
        auto frame = std::make_unique<TagLib::ID3v2::AttachedPictureFrame>();
        frame->setTextEncoding(String::UTF8);
        frame->setType(static_cast<TagLib::ID3v2::AttachedPictureFrame::Type>(picture.kind));
        frame->setMimeType(picture.mimeType);
        frame->setDescription(picture.description);
        frame->setPicture(picture.data);
        tag.addFrame(frame.release());
    }
    return tag.isEmpty() ? ByteVector() : tag.render();
}

} // namespace tarn
