// Tests that the includes of the product folders follow the table in docs/architecture.md.
// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

const fs::path kRoot = TARN_SOURCE_DIR;

/// A folder and the folders that it may include.
struct Row
{
    std::string folder;
    std::set<std::string> mayInclude;
};

std::vector<std::string> linesOf(const fs::path& path)
{
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

/// The rows of the first table behind the heading.
std::vector<Row> readTable()
{
    const std::regex word("[a-z_]+");
    std::vector<Row> rows;
    bool isSection = false;
    for (const std::string& line : linesOf(kRoot / "docs/architecture.md")) {
        if (line.starts_with("## ")) isSection = line == "## Includes run one way";
        if (!isSection || !line.starts_with("| ") || line.starts_with("| folder ")) continue;
        const std::vector<std::string> words(std::sregex_token_iterator(line.begin(), line.end(), word), {});
        if (!words.empty()) rows.push_back({words[0], {words.begin() + 1, words.end()}});
    }
    return rows;
}

bool isSource(const fs::path& path)
{
    const std::string extension = path.extension();
    return extension == ".h" || extension == ".cpp" || extension == ".c" || extension == ".in";
}

/// The top-level folder of an included header; empty for a header of the system.
std::string folderOf(const fs::path& includer, const std::string& name, bool isQuoted)
{
    if (!isQuoted) return name.starts_with("zrk_tarn/") ? "zrk_tarn" : "";
    const fs::path beside = includer.parent_path() / name;
    const fs::path relative =
        fs::exists(beside) ? fs::relative(fs::canonical(beside), fs::canonical(kRoot)) : fs::path(name);
    return *relative.begin();
}

/// Calls visit(file, folder) for every header that a file of the folder includes.
template <typename Visit>
void forEachInclude(const std::string& folder, Visit visit)
{
    const std::regex include(R"re(^\s*#\s*include\s*([<"])([^>"]+)[>"])re");
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kRoot / folder)) {
        if (!entry.is_regular_file() || !isSource(entry.path())) continue;
        for (const std::string& line : linesOf(entry.path())) {
            std::smatch match;
            if (!std::regex_search(line, match, include)) continue;
            const std::string included = folderOf(entry.path(), match[2], match[1] == "\"");
            if (!included.empty()) visit(entry.path(), included);
        }
    }
}

/// Whether a file includes the header, itself or through other headers of the tree.
bool reaches(const fs::path& file, const fs::path& header)
{
    const std::regex include(R"re(^\s*#\s*include\s*"([^"]+)")re");
    for (const std::string& line : linesOf(file)) {
        std::smatch match;
        if (!std::regex_search(line, match, include)) continue;
        const fs::path beside = file.parent_path() / match[1].str();
        const fs::path included = fs::exists(beside) ? beside : kRoot / match[1].str();
        if (fs::exists(included) && (fs::equivalent(included, header) || reaches(included, header))) return true;
    }
    return false;
}

} // namespace

TEST(Includes, EveryFileThatComputesRefusesFastMath)
{
    const std::set<fs::path> withoutFloatArithmetic = {
        "cinema/process_cine3.cpp",      "dispatch/block_operations.cpp",
        "engine/constants.cpp",          "engine/lifecycle.cpp",
        "engine/region_matrices.cpp",    "engine/remap_matrix.cpp",
        "engine/thresholds.cpp",         "filterbank/lpf.cpp",
        "dispatch/instruction_sets.cpp", "stream/configuration_problem.cpp"};
    std::size_t seen = 0;
    for (const char* const folder : {"filterbank", "engine", "io", "cinema", "room", "dispatch", "stream"}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(kRoot / folder)) {
            const fs::path file = entry.path();
            if (file.extension() != ".cpp" || withoutFloatArithmetic.contains(file.lexically_relative(kRoot))) continue;
            EXPECT_TRUE(reaches(file, kRoot / "lanes/exact_floats.h")) << file << " does not include exact_floats.h";
            ++seen;
        }
    }
    EXPECT_GT(seen, 20u) << "the folders were not found";
}

TEST(Includes, FollowTheTable)
{
    std::size_t seen = 0;
    for (const Row& row : readTable()) {
        if (!fs::exists(kRoot / row.folder)) continue;
        forEachInclude(row.folder, [&](const fs::path& file, const std::string& included) {
            const bool allowed = included == row.folder || row.mayInclude.contains(included);
            EXPECT_TRUE(allowed) << file << " includes a header of " << included
                                 << ", which its row in docs/architecture.md does not name";
            ++seen;
        });
    }
    EXPECT_GT(seen, 100u) << "the table or the folders were not found";
}

TEST(Includes, RowsNameOnlyFoldersAboveThem)
{
    std::set<std::string> above;
    for (const Row& row : readTable()) {
        for (const std::string& folder : row.mayInclude)
            EXPECT_TRUE(above.contains(folder)) << row.folder << " names " << folder;
        EXPECT_TRUE(above.insert(row.folder).second) << row.folder << " has two rows";
    }
    EXPECT_TRUE(above.contains("lanes"));
}

TEST(Includes, EveryFolderWithProductCodeHasARow)
{
    const std::set<std::string> notProduct = {"bench", "build", "examples", "tests", "tools"};
    std::set<std::string> rows;
    for (const Row& row : readTable()) rows.insert(row.folder);
    for (const fs::directory_entry& folder : fs::directory_iterator(kRoot)) {
        const std::string name = folder.path().filename();
        if (!folder.is_directory() || name.starts_with(".") || notProduct.contains(name)) continue;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
            if (!isSource(entry.path()) || entry.path().extension() == ".in") continue;
            EXPECT_TRUE(rows.contains(name)) << name << " has no row in docs/architecture.md";
            break;
        }
    }
}
