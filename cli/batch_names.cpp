// Names outputs by their inputs and refuses outputs that are inputs.
// SPDX-License-Identifier: MIT
#include "cli/batch_names.h"

#include "cli/failure.h"
#include "cli/progress.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

/// The audio files of folders by their names without extension. Reads every folder once.
class AudioNames
{
public:
    /// Whether the folder of a file has another audio file with the same name except the extension.
    bool hasOther(const fs::path& file)
    {
        const auto [folder, isNew] = folders.try_emplace(file.parent_path());
        if (isNew) folder->second = namesIn(file.has_parent_path() ? file.parent_path() : ".");
        const auto [first, last] = folder->second.equal_range(file.stem());
        return std::any_of(first, last, [&file](const auto& name) { return name.second != file.filename(); });
    }

private:
    using Names = std::multimap<fs::path, fs::path>; ///< names with extension, by those without

    static Names namesIn(const fs::path& folder)
    {
        Names names;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
             entry.increment(error)) {
            const fs::path name = entry->path().filename();
            std::error_code ignored;
            if (hasAudioExtension(name) && !entry->is_directory(ignored)) names.emplace(name.stem(), name);
        }
        return names;
    }

    std::map<fs::path, Names> folders;
};

} // namespace

std::vector<std::string> nameOutputs(const std::vector<FoundInput>& inputs, const fs::path& directory,
                                     const std::string& ending)
{
    AudioNames names;
    std::vector<std::string> outputs;
    std::transform(inputs.begin(), inputs.end(), std::back_inserter(outputs), [&](const FoundInput& input) {
        const fs::path file(input.path);
        const fs::path name = names.hasOther(file) ? file.filename() : file.stem();
        return (directory / input.folder / (name.string() + ending)).string();
    });
    return outputs;
}

void refuseInputsAsOutputs(const std::vector<FoundInput>& inputs, const std::vector<std::string>& outputs)
{
    std::set<std::pair<dev_t, ino_t>> identities;
    struct stat status = {};
    for (const FoundInput& input : inputs)
        if (stat(input.path.c_str(), &status) == 0) identities.emplace(status.st_dev, status.st_ino);

    constexpr std::size_t kMaxLines = 20;
    std::size_t problems = 0;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (stat(outputs[i].c_str(), &status) != 0 || !identities.contains({status.st_dev, status.st_ino})) continue;
        if (++problems <= kMaxLines)
            printNote(outputs[i] + ": would be the output of " + inputs[i].path + " and is an input itself");
    }
    if (problems > kMaxLines) printNote("and " + std::to_string(problems - kMaxLines) + " more");
    if (problems > 0)
        throw Failure(EX_USAGE, "outputs would replace inputs, so nothing was written; choose another --output-dir");
}

} // namespace tarn
