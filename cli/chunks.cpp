#include "cli/chunks.h"

#include <algorithm>

namespace tarn
{

namespace
{

constexpr std::uint64_t kMaxBytes = std::uint64_t{1} << 24;
constexpr unsigned kNameBytes = 4;

/// The size of a chunk. libsndfile divides by zero where contents of an empty one are asked for.
std::uint64_t sizeOf(const SF_CHUNK_ITERATOR* at)
{
    SF_CHUNK_INFO chunk{};
    return sf_get_chunk_size(at, &chunk) == SF_ERR_NO_ERROR ? chunk.datalen : 0;
}

} // namespace

std::vector<std::string> chunkNames(SNDFILE* file)
{
    std::vector<std::string> names;
    for (auto* at = sf_get_chunk_iterator(file, nullptr); at != nullptr; at = sf_next_chunk_iterator(at)) {
        if (sizeOf(at) == 0) continue;
        // libsndfile names a chunk of which something is read.
        char firstByte = 0;
        SF_CHUNK_INFO chunk{};
        chunk.data = &firstByte;
        chunk.datalen = sizeof firstByte;
        if (sf_get_chunk_data(at, &chunk) == SF_ERR_NO_ERROR) names.emplace_back(chunk.id, kNameBytes);
    }
    return names;
}

std::vector<std::string> chunksNamed(SNDFILE* file, const std::string& name, std::uint64_t fileSize)
{
    std::vector<std::string> found;
    std::uint64_t room = std::min(kMaxBytes, fileSize);
    SF_CHUNK_INFO wanted{};
    name.copy(wanted.id, kNameBytes);
    wanted.id_size = kNameBytes;
    for (auto* at = sf_get_chunk_iterator(file, &wanted); at != nullptr; at = sf_next_chunk_iterator(at)) {
        const std::uint64_t size = sizeOf(at);
        if (size == 0) continue;
        std::string contents(size <= room ? size : 0, '\0');
        SF_CHUNK_INFO chunk{};
        chunk.data = contents.data();
        chunk.datalen = static_cast<unsigned>(contents.size());
        if (!contents.empty() && sf_get_chunk_data(at, &chunk) != SF_ERR_NO_ERROR) contents.clear();
        room -= contents.size();
        found.push_back(std::move(contents));
    }
    return found;
}

} // namespace tarn
