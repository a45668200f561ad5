#include "cli/metadata.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

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

std::optional<BroadcastInfo> readBroadcast(SNDFILE* file)
{
    BroadcastInfo info{};
    if (sf_command(file, SFC_GET_BROADCAST_INFO, &info, sizeof info) != SF_TRUE) return std::nullopt;
    // The upmix is other material (its UMID would be another's) and as loud as it comes out: a chunk of version 0 has
    // no place for either.
    info.version = 0;
    std::fill(std::begin(info.umid), std::end(info.umid), '\0');
    info.loudness_value = info.loudness_range = info.max_true_peak_level = 0;
    info.max_momentary_loudness = info.max_shortterm_loudness = 0;
    return info;
}

} // namespace

Metadata readMetadata(SNDFILE* file)
{
    return {.tags = readTags(file), .broadcast = readBroadcast(file)};
}

void writeMetadata(SNDFILE* file, const Metadata& metadata)
{
    // These fail where the container has no place, which is no reason not to write the audio.
    for (const auto& [kind, text] : metadata.tags) sf_set_string(file, kind, text.c_str());
    if (auto broadcast = metadata.broadcast)
        sf_command(file, SFC_SET_BROADCAST_INFO, &*broadcast,
                   static_cast<int>(offsetof(BroadcastInfo, coding_history) + broadcast->coding_history_size));
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
