// Creates the folders of a batch's outputs.
// SPDX-License-Identifier: MIT
#include "cli/created_directories.h"

#include "cli/failure.h"
#include "cli/temporary_file.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace tarn
{

namespace fs = std::filesystem;

CreatedDirectories::~CreatedDirectories()
{
    if (areKept) return;
    std::error_code ignored;
    for (const fs::path& directory : directories) fs::remove(directory, ignored); // fails if it is not empty
}

void CreatedDirectories::prepareFor(const std::vector<std::string>& outputs)
{
    std::set<fs::path> all;
    std::transform(outputs.begin(), outputs.end(), std::inserter(all, all.end()),
                   [](const std::string& output) { return fs::path(output).parent_path(); });
    for (const fs::path& directory : all) {
        std::error_code error;
        create(directory, error);
        if (error)
            throw Failure(EX_CANTCREAT, directory.string() + ": the directory cannot be created: " + error.message() +
                                            "; choose another --output-dir");
        removeStaleTemporariesOnce(directory);
    }
}

/// Creates a folder and those above it.
void CreatedDirectories::create(const fs::path& directory, std::error_code& error)
{
    std::vector<fs::path> missing;
    std::error_code ignored;
    for (fs::path path = directory; !path.empty() && !fs::exists(path, ignored); path = path.parent_path())
        missing.push_back(path);
    fs::create_directories(directory, error);
    directories.insert(directories.begin(), missing.begin(), missing.end());
}

} // namespace tarn
