// The folders of a batch's outputs.
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace tarn
{

/// Folders that this run created. The destructor removes those that are empty, unless they are shared.
class CreatedDirectories
{
public:
    /// areShared  other runs can use the folders at the same time, so all of them stay
    explicit CreatedDirectories(bool areShared) : areKept(areShared) {}
    CreatedDirectories(const CreatedDirectories&) = delete;
    CreatedDirectories& operator=(const CreatedDirectories&) = delete;
    ~CreatedDirectories();

    /// Creates the folders of the outputs, and removes temporary files of killed runs from them. Throws Failure
    /// (EX_CANTCREAT).
    void prepareFor(const std::vector<std::string>& outputs);

private:
    void create(const std::filesystem::path& directory, std::error_code& error);

    bool areKept;
    std::vector<std::filesystem::path> directories; ///< a folder precedes the one that contains it
};

} // namespace tarn
