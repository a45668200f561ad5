// Names outputs by their inputs and refuses outputs that are inputs.
// SPDX-License-Identifier: MIT
#include "cli/batch_names.h"

#include "cli/failure.h"
#include "cli/progress.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <set>
#include <utility>

#include <sys/stat.h>

namespace tarn
{

namespace
{

namespace fs = std::filesystem;

} // namespace

std::vector<std::string> nameOutputs(const std::vector<FoundInput>& inputs, const fs::path& directory,
                                     const std::string& ending)
{
    std::vector<std::string> outputs;
    std::transform(inputs.begin(), inputs.end(), std::back_inserter(outputs), [&](const FoundInput& input) {
        const std::string name = fs::path(input.path).filename().string();
        return (directory / input.folder / (name + ending)).string();
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
