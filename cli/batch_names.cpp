// Searches folders for audio files, names outputs and refuses name collisions.
// SPDX-License-Identifier: MIT
#include "cli/batch_names.h"

#include "cli/failure.h"
#include "cli/progress.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/stat.h>

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

/// Extensions of audio formats that libsndfile does not read.
constexpr std::array<std::string_view, 36> kUnreadable{
    ".3ga", ".aa",  ".aac", ".aax", ".ac3", ".adts", ".amr", ".ape", ".dff", ".dsf", ".dts", ".eac3",
    ".ec3", ".m4a", ".m4b", ".m4p", ".m4r", ".mka",  ".mlp", ".mp+", ".mpc", ".mpp", ".ofr", ".ofs",
    ".oma", ".qcp", ".ra",  ".shn", ".spx", ".tak",  ".thd", ".tta", ".wma", ".wv",  ".ac4", ".weba"};

std::string extensionOf(const fs::path& name)
{
    std::string extension = name.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

template <std::size_t Count>
bool isOneOf(const std::array<std::string_view, Count>& extensions, const std::string& extension)
{
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

/// Adds a file of a folder if it is audio.
///
/// below  the folder, relative to the one on the command line
void addFile(const fs::path& file, const fs::path& below, FoundInputs& found)
{
    const std::string extension = extensionOf(file);
    if (isOneOf(kExtensions, extension)) {
        found.files.push_back({file.string(), below});
    } else if (isOneOf(kUnreadable, extension)) {
        ++found.unreadable.counts[extension];
        if (found.unreadable.first.empty()) found.unreadable.first = file.string();
    }
}

/// Adds the audio files of a folder and its subfolders.
///
/// below  the folder, relative to the one on the command line
void addFolder(const fs::path& folder, const fs::path& below, const fs::path& outputDirectory, FoundInputs& found)
{
    std::vector<fs::directory_entry> entries;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        if (!entry.path().filename().native().starts_with('.')) entries.push_back(entry);
    std::sort(entries.begin(), entries.end());

    for (const fs::directory_entry& entry : entries) {
        std::error_code missing;
        const fs::path name = entry.path().filename();
        if (!entry.is_directory(missing)) {
            if (entry.is_regular_file(missing)) addFile(entry.path(), below, found);
        } else if (!entry.is_symlink() && !fs::equivalent(entry.path(), outputDirectory, missing)) {
            addFolder(entry.path(), below / name, outputDirectory, found);
        }
    }
}

void addNamedFolder(const std::string& name, const fs::path& outputDirectory, FoundInputs& found)
{
    std::error_code missing;
    if (fs::equivalent(name, outputDirectory, missing))
        throw Failure(EX_USAGE, name +
                                    ": is the --output-dir itself, so outputs would be inputs of the next run; choose "
                                    "another --output-dir, for example a subfolder of it");
    FoundInputs below;
    try {
        addFolder(name, {}, outputDirectory, below);
    } catch (const fs::filesystem_error& error) {
        throw Failure(EX_NOINPUT, error.path1().string() + ": the folder cannot be read: " + error.code().message() +
                                      "; check that you may read it");
    }
    if (below.files.empty()) {
        const std::string note = below.unreadable.note();
        throw Failure(EX_NOINPUT,
                      name + ": contains no audio file" +
                          (note.empty() ? "; man tarn-upmix lists the extensions that count" : " to upmix: " + note));
    }
    found.files.insert(found.files.end(), below.files.begin(), below.files.end());
    for (const auto& [extension, count] : below.unreadable.counts) found.unreadable.counts[extension] += count;
    if (found.unreadable.first.empty()) found.unreadable.first = below.unreadable.first;
}

/// Name of an output, relative to the output directory.
fs::path outputName(const BatchInput& input, const fs::path& folder, const std::string& ending)
{
    return folder / (fs::path(input.path).stem().string() + ending);
}

fs::path absoluteFolder(const BatchInput& input)
{
    return fs::absolute(input.path).lexically_normal().parent_path();
}

/// The deepest folder that contains all inputs.
fs::path commonFolder(const std::vector<BatchInput>& inputs)
{
    fs::path common = absoluteFolder(inputs.front());
    for (const BatchInput& input : inputs) {
        const fs::path folder = absoluteFolder(input);
        const auto [end, ignored] = std::mismatch(common.begin(), common.end(), folder.begin(), folder.end());
        fs::path shared;
        std::for_each(common.begin(), end, [&shared](const fs::path& part) { shared /= part; });
        common = shared;
    }
    return common;
}

/// The inputs of every output, sorted by the names of the outputs.
using InputsOf = std::map<std::string, std::vector<std::string>>;

InputsOf inputsOf(const std::vector<BatchInput>& inputs, const std::vector<std::string>& outputs)
{
    InputsOf of;
    for (std::size_t i = 0; i < inputs.size(); ++i) of[outputs[i]].push_back(inputs[i].path);
    return of;
}

bool collides(const InputsOf::value_type& output)
{
    return output.second.size() > 1;
}

/// Prints a line for each problem, then throws.
[[noreturn]] void refuse(const std::vector<std::string>& problems, const std::string& summary)
{
    constexpr std::size_t kMaxLines = 20;
    for (std::size_t i = 0; i < std::min(problems.size(), kMaxLines); ++i) printNote(problems[i]);
    if (problems.size() > kMaxLines) printNote("and " + std::to_string(problems.size() - kMaxLines) + " more");
    throw Failure(EX_USAGE, summary);
}

void refuseCollisions(const InputsOf& outputs, const fs::path& directory)
{
    std::vector<std::string> problems;
    for (const auto& [output, inputs] : outputs) {
        if (inputs.size() == 1) continue;
        std::string problem = output + ": would be the output of " + inputs.front();
        for (std::size_t i = 1; i + 1 < inputs.size(); ++i) problem += ", " + inputs[i];
        problems.push_back(problem + " and " + inputs.back());
    }
    if (problems.empty()) return;
    const auto& [output, inputs] = *std::find_if(outputs.begin(), outputs.end(), collides);
    const fs::path name(output);
    const fs::path other = name.parent_path() / (name.stem().string() + "-2" + name.extension().string());
    refuse(problems,
           "--output-dir " + directory.string() +
               ": several inputs would have the same output, so nothing was written; name every input once, and "
               "upmix inputs whose names differ only in the extension one by one, for example: tarn upmix " +
               shellQuoted(inputs.back()) + " " + shellQuoted(other.string()));
}

void refuseInputsAsOutputs(const InputsOf& outputs, const std::vector<BatchInput>& inputs, const fs::path& directory)
{
    std::set<std::pair<dev_t, ino_t>> identities;
    struct stat status = {};
    for (const BatchInput& input : inputs)
        if (stat(input.path.c_str(), &status) == 0) identities.emplace(status.st_dev, status.st_ino);

    std::vector<std::string> problems;
    for (const auto& [output, itsInputs] : outputs)
        if (stat(output.c_str(), &status) == 0 && identities.contains({status.st_dev, status.st_ino}))
            problems.push_back(output + ": would be the output of " + itsInputs.front() + " and is an input itself");
    if (!problems.empty())
        refuse(problems, "--output-dir " + directory.string() +
                             ": outputs would replace inputs, so nothing was "
                             "written; choose another --output-dir");
}

} // namespace

std::string UnreadableFiles::note() const
{
    std::size_t files = 0;
    std::string list;
    for (const auto& [extension, count] : counts) {
        files += count;
        list += (list.empty() ? "" : ", ") + std::to_string(count) + " " + extension;
    }
    if (files == 0) return {};
    return std::to_string(files) + (files == 1 ? " file is" : " files are") + " not audio that tarn reads: " + list +
           "; convert with ffmpeg, for example: ffmpeg -i " + shellQuoted(first) + " " +
           shellQuoted(fs::path(first).replace_extension(".flac").string());
}

FoundInputs findInputs(const std::vector<std::string>& names, bool recursive,
                       const std::filesystem::path& outputDirectory)
{
    FoundInputs found;
    for (const std::string& name : names) {
        std::error_code missing;
        if (name.empty()) throw Failure(EX_USAGE, "an empty file name; name files");
        if (name == "-") throw Failure(EX_USAGE, "-: a stream has no name for an output in --output-dir; name files");
        if (!fs::is_directory(name, missing)) {
            found.files.push_back({name, {}});
        } else if (recursive) {
            addNamedFolder(name, outputDirectory, found);
        } else {
            throw Failure(EX_USAGE, name + ": is a folder; add --recursive to upmix the audio files in it");
        }
    }
    return found;
}

std::vector<std::string> nameOutputs(const std::vector<BatchInput>& inputs, const std::filesystem::path& directory,
                                     const std::string& ending)
{
    std::vector<std::string> outputs(inputs.size());
    std::transform(inputs.begin(), inputs.end(), outputs.begin(), [&](const BatchInput& input) {
        return (directory / outputName(input, input.folder, ending)).string();
    });
    InputsOf of = inputsOf(inputs, outputs);
    if (std::any_of(of.begin(), of.end(), collides)) {
        const fs::path common = commonFolder(inputs);
        std::transform(inputs.begin(), inputs.end(), outputs.begin(), [&](const BatchInput& input) {
            const fs::path folder = absoluteFolder(input).lexically_relative(common);
            return (directory / outputName(input, folder == "." ? "" : folder, ending)).string();
        });
        of = inputsOf(inputs, outputs);
    }
    refuseCollisions(of, directory);
    refuseInputsAsOutputs(of, inputs, directory);
    return outputs;
}

} // namespace tarn
