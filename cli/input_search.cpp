// Searches folders for audio files or films.
// SPDX-License-Identifier: MIT
#include "cli/input_search.h"

#include "cli/extension.h"
#include "cli/failure.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <map>
#include <string_view>
#include <system_error>
#include <unordered_set>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

/// Extensions of formats that libsndfile recognises by their content.
constexpr std::array<std::string_view, 32> kExtensions{
    ".8svx", ".aif", ".aifc", ".aiff", ".au",  ".avr", ".bwf",  ".caf", ".flac", ".iff",  ".ircam",
    ".mp1",  ".mp2", ".mp3",  ".nist", ".oga", ".ogg", ".opus", ".paf", ".pvf",  ".rf64", ".sd2",
    ".sds",  ".sf",  ".snd",  ".sph",  ".svx", ".voc", ".w64",  ".wav", ".wave", ".16svx"};

/// Extensions of audio and film formats that libsndfile does not read.
constexpr std::array<std::string_view, 47> kUnreadable{
    ".3ga", ".aa",  ".aac",  ".aax", ".ac3",  ".ac4", ".adts", ".amr", ".ape", ".avi",  ".dff", ".dsf",
    ".dts", ".ec3", ".eac3", ".flv", ".m4a",  ".m4b", ".m4p",  ".m4r", ".m4v", ".mka",  ".mkv", ".mlp",
    ".mov", ".mp+", ".mp4",  ".mpc", ".mpeg", ".mpg", ".mpp",  ".ofr", ".ofs", ".ogv",  ".oma", ".qcp",
    ".ra",  ".shn", ".spx",  ".tak", ".thd",  ".tta", ".weba", ".wma", ".wmv", ".webm", ".wv"};

/// Extensions of films, and of audio files that FFmpeg reads and libsndfile does not. Encrypted formats are left out.
constexpr std::array<std::string_view, 58> kFilms{
    ".3g2", ".3ga", ".3gp", ".aac",  ".ac3",  ".adts", ".amr", ".ape",  ".asf", ".avi",  ".dff", ".divx",
    ".dsf", ".dts", ".dv",  ".eac3", ".ec3",  ".f4v",  ".flv", ".m4a",  ".m4b", ".m4r",  ".m4v", ".mk3d",
    ".mka", ".mkv", ".mlp", ".mov",  ".mp+",  ".mp4",  ".mpc", ".mpeg", ".mpg", ".mpp",  ".mxf", ".nut",
    ".ofr", ".ofs", ".ogm", ".ogv",  ".oma",  ".qcp",  ".qt",  ".ra",   ".rm",  ".rmvb", ".shn", ".spx",
    ".tak", ".thd", ".tta", ".vob",  ".weba", ".webm", ".wma", ".wmv",  ".wtv", ".wv"};

/// Extensions of transport streams, which source files have too.
constexpr std::array<std::string_view, 4> kTransportStreams{".ts", ".mts", ".m2ts", ".m2t"};

template <std::size_t Count>
bool isOneOf(const std::array<std::string_view, Count>& extensions, const std::string& extension)
{
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

/// Whether a file has the sync bytes of MPEG transport packets, with 188, 192 or 204 bytes each.
bool isTransportStream(const fs::path& file)
{
    constexpr char kSync = 0x47;
    constexpr std::size_t kMaxPacket = 204;
    std::array<char, 4 * kMaxPacket> bytes{};
    std::ifstream stream(file, std::ios::binary);
    if (!stream.read(bytes.data(), bytes.size())) return false;
    for (const std::size_t packet : {std::size_t{188}, std::size_t{192}, kMaxPacket})
        for (std::size_t i = 0; i < packet; ++i)
            if (bytes[i] == kSync && bytes[i + packet] == kSync && bytes[i + 2 * packet] == kSync) return true;
    return false;
}

bool isFilm(const fs::path& file)
{
    const std::string extension = extensionOf(file);
    return isOneOf(kFilms, extension) || (isOneOf(kTransportStreams, extension) && isTransportStream(file));
}

/// Adds a file of a folder if it is of the kind.
///
/// below  the folder, relative to the one on the command line
void addFile(const fs::path& file, const fs::path& below, FoundInputs& found)
{
    const bool isAudio = isOneOf(kExtensions, extensionOf(file));
    const bool searchesFilms = found.kind == MediaKind::Films;
    if (searchesFilms ? isFilm(file) : isAudio) {
        found.files.push_back({file.string(), below.string()});
    } else if (searchesFilms ? isAudio : isOneOf(kUnreadable, extensionOf(file))) {
        found.unreadable.push_back(file.string());
    }
}

/// Adds the files of a folder and its subfolders.
///
/// below  the folder, relative to the one on the command line
void addFolder(const fs::path& folder, const fs::path& below, const fs::path& excluded, FoundInputs& found)
{
    std::vector<fs::directory_entry> entries;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        if (!entry.path().filename().native().starts_with('.')) entries.push_back(entry);
    std::sort(entries.begin(), entries.end());

    for (const fs::directory_entry& entry : entries) {
        std::error_code missing;
        const bool isLink = entry.is_symlink(missing);
        if (!entry.is_directory(missing)) {
            const bool isBrokenLink = isLink && !entry.exists(missing);
            if (isBrokenLink || entry.is_regular_file(missing)) addFile(entry.path(), below, found);
        } else if (!isLink && !fs::equivalent(entry.path(), excluded, missing)) {
            addFolder(entry.path(), below / entry.path().filename(), excluded, found);
        }
    }
}

void addNamedFolder(const std::string& name, const fs::path& excluded, FoundInputs& found)
{
    FoundInputs below{.kind = found.kind};
    try {
        addFolder(name, {}, excluded, below);
    } catch (const fs::filesystem_error& error) {
        throw Failure(EX_NOINPUT, error.path1().string() + ": the folder cannot be read: " + error.code().message() +
                                      "; check that you may read it");
    }
    if (below.files.empty()) {
        const bool isFilms = found.kind == MediaKind::Films;
        const std::vector<std::string> notes = below.notes();
        throw Failure(EX_NOINPUT, name + (isFilms ? ": contains no film; " : ": contains no audio file; ") +
                                      (notes.empty() ? std::string("man ") + (isFilms ? "tarn-film" : "tarn-upmix") +
                                                           " lists the extensions that count"
                                                     : notes.front()));
    }
    found.files.insert(found.files.end(), below.files.begin(), below.files.end());
    found.unreadable.insert(found.unreadable.end(), below.unreadable.begin(), below.unreadable.end());
}

/// Keeps the first of several names of the same file. A link is a file of its own.
void removeRepeated(FoundInputs& found)
{
    std::map<fs::path, fs::path> folders; // canonical name of every folder
    std::unordered_set<std::string> seen;
    const auto isFirst = [&](const fs::path& path) {
        const auto [folder, isNew] = folders.try_emplace(path.parent_path());
        std::error_code ignored;
        if (isNew) folder->second = fs::weakly_canonical(path.has_parent_path() ? path.parent_path() : ".", ignored);
        return seen.insert((folder->second / path.filename()).string()).second;
    };
    std::vector<FoundInput> files;
    for (FoundInput& input : found.files) {
        if (isFirst(input.path)) {
            files.push_back(std::move(input));
        } else {
            found.repeated.push_back(input.path);
        }
    }
    found.files = std::move(files);
    std::erase_if(found.unreadable, [&](const std::string& path) { return !isFirst(path); });
}

std::string unreadableNote(const std::vector<std::string>& files, MediaKind kind)
{
    if (kind == MediaKind::Films)
        return std::to_string(files.size()) + (files.size() == 1 ? " audio file is" : " audio files are") +
               " left to tarn upmix, the first is " + shellQuoted(files.front());

    std::map<std::string, std::size_t> counts; // by extension
    for (const std::string& file : files) ++counts[extensionOf(file)];
    std::string list;
    for (const auto& [extension, count] : counts)
        list += (list.empty() ? "" : ", ") + std::to_string(count) + " " + extension;
    return std::to_string(files.size()) + (files.size() == 1 ? " file has" : " files have") +
           " a format that only tarn film reads: " + list +
           "; use tarn film, or convert with ffmpeg, for example: ffmpeg -i " + shellQuoted(files.front()) + " " +
           shellQuoted(fs::path(files.front()).replace_extension(".flac").string());
}

} // namespace

std::vector<std::string> FoundInputs::notes() const
{
    std::vector<std::string> notes;
    if (!unreadable.empty()) notes.push_back(unreadableNote(unreadable, kind));
    if (repeated.size() == 1) notes.push_back(repeated.front() + ": is named twice and used once");
    if (repeated.size() > 1)
        notes.push_back(repeated.front() + " and " + std::to_string(repeated.size() - 1) +
                        " more: are named twice and used once");
    return notes;
}

FoundInputs inputsOf(const std::vector<std::string>& names, bool recursive)
{
    if (recursive) return findInputs(names, {});
    FoundInputs found;
    for (const std::string& name : names) found.files.push_back({name, {}});
    return found;
}

FoundInputs findInputs(const std::vector<std::string>& names, const fs::path& excluded, MediaKind kind)
{
    FoundInputs found{.kind = kind};
    for (const std::string& name : names) {
        std::error_code missing;
        if (fs::is_directory(name, missing)) {
            addNamedFolder(name, excluded, found);
        } else {
            found.files.push_back({name, {}});
        }
    }
    removeRepeated(found);
    return found;
}

} // namespace tarn
