#include "cli/tags.h"

#include <algorithm>
#include <array>

namespace tarn
{

namespace
{

// libsndfile's headers have no room for books; longer texts are left out rather than cut.
constexpr std::size_t kLongestText = 4096;

constexpr std::array<FlacName, 9> kKinds{{
    {SF_STR_COMMENT, "comment="},
    {SF_STR_LICENSE, "license="},
    {SF_STR_COPYRIGHT, "copyright="},
    {SF_STR_GENRE, "genre="},
    {SF_STR_DATE, "date="},
    {SF_STR_ALBUM, "album="},
    {SF_STR_TRACKNUMBER, "tracknumber="},
    {SF_STR_ARTIST, "artist="},
    {SF_STR_TITLE, "title="},
}};

} // namespace

std::vector<Tag> readTags(SNDFILE* file)
{
    std::vector<Tag> tags;
    for (const auto& [kind, name] : kKinds) {
        const char* const text = sf_get_string(file, kind);
        if (text == nullptr) continue;
        Tag tag{.kind = kind, .text = text};
        if (!tag.text.empty() && tag.text.size() <= kLongestText) tags.push_back(std::move(tag));
    }
    return tags;
}

void writeTag(SNDFILE* file, const Tag& tag)
{
    // Fails where the container has no place for texts, which is no reason not to write the audio.
    sf_set_string(file, tag.kind, tag.text.c_str());
}

FlacName freeFlacName(const std::vector<Tag>& tags)
{
    const auto isFree = [&tags](const FlacName& name) {
        return std::none_of(tags.begin(), tags.end(), [&name](const Tag& tag) { return tag.kind == name.kind; });
    };
    const auto found = std::find_if(kKinds.begin(), kKinds.end(), isFree);
    return found == kKinds.end() ? kKinds.front() : *found;
}

} // namespace tarn
