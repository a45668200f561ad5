// Facts that several texts repeat: each text agrees with the table in cli/.
// SPDX-License-Identifier: MIT
#include "cli/help_texts.h"
#include "cli/layout.h"
#include "cli/text.h"
#include "tests/cli/command.h"

#include <algorithm>
#include <regex>

namespace tarn_cli
{

namespace
{

/// The text between two marks, after the first place of the first mark.
std::string between(const std::string& text, const std::string& begin, const std::string& end)
{
    const std::size_t from = text.find(begin);
    if (from == std::string::npos) return "";
    const std::size_t first = from + begin.size();
    return text.substr(first, text.find(end, first) - first);
}

/// All matches of the first group of a pattern.
std::vector<std::string> matchesIn(const std::string& text, const std::string& pattern)
{
    const std::regex regex(pattern);
    std::vector<std::string> matches;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        matches.push_back((*match)[1]);
    return matches;
}

std::vector<std::string> wordsOf(const std::string& text)
{
    return matchesIn(text, "([^ ]+)");
}

std::string sourceText(const std::string& name)
{
    return bytesOf(TARN_SOURCE_DIR "/" + name);
}

} // namespace

class Facts : public CommandTest
{};

TEST_F(Facts, TextsListTheLayouts)
{
    const std::vector<std::string> names = tarn::layoutNames();
    EXPECT_EQ(matchesIn(between(tarn::kUpmixHelp, "\n  --layout NAME ", "\n"), "([0-9]\\.[0-9](-[a-z]+)?)"), names)
        << "cli/help_texts.h, kUpmixHelp, --layout";
    EXPECT_NE(tarn({"upmix", "--help-all"}).output.find(" " + tarn::listOf(names) + "\n"), std::string::npos)
        << "tarn upmix --help-all, --layout";
    EXPECT_EQ(wordsOf(between(sourceText("completions/tarn.bash"),
                              "upmix)\n        case $before in\n        --layout) words='", "'")),
              names)
        << "completions/tarn.bash, --layout";
    EXPECT_EQ(wordsOf(between(sourceText("completions/_tarn"), ":layout:(", ")")), names)
        << "completions/_tarn, --layout";
}

TEST_F(Facts, TheManualDescribesTheLayouts)
{
    const std::string layouts = between(sourceText("docs/man/tarn-upmix.1.scd"), "\n# LAYOUTS\n", "\n# ");
    EXPECT_EQ(matchesIn(layouts, "\n\\*([^\n]*)\\*\n\t"), tarn::layoutNames()) << "docs/man/tarn-upmix.1.scd, LAYOUTS";
    for (const std::string& name : tarn::layoutNames()) {
        const std::string description = between(layouts, "\n*" + name + "*\n\t", "\n\n");
        const std::string slots(tarn::layoutNamed(name).slotNames);
        EXPECT_TRUE(std::regex_search(description, std::regex("^" + slots + "(?! [A-Z]{2})")))
            << "docs/man/tarn-upmix.1.scd, LAYOUTS, " << name << ": begin with " << slots << ", not: " << description;
    }
}

TEST_F(Facts, ManualsListTheExtensionsOfAFoldersFiles)
{
    const std::string source = sourceText("cli/input_search.cpp");
    const auto accepted = [&source](const std::string& table) {
        std::vector<std::string> extensions = matchesIn(between(source, " " + table + "{", "};"), "\"\\.([^\"]+)\"");
        std::sort(extensions.begin(), extensions.end());
        return extensions;
    };
    const auto listed = [](const std::string& page, const std::string& begin, const std::string& end) {
        std::vector<std::string> extensions = matchesIn(between(sourceText(page), begin, end), "([^ ,\n]+)");
        std::erase_if(extensions, [](const std::string& word) { return word == "and" || word == "or"; });
        std::sort(extensions.begin(), extensions.end());
        return extensions;
    };
    EXPECT_EQ(listed("docs/man/tarn-upmix.1.scd", "in upper or lower case, is ", ". "), accepted("kExtensions"));
    EXPECT_EQ(listed("film/tarn-film.1.scd", "in upper or lower case, is one of these: ", ". "), accepted("kFilms"));
    EXPECT_EQ(listed("film/tarn-film.1.scd", "Files with the extension ", " are included"),
              accepted("kTransportStreams"));
    EXPECT_FALSE(accepted("kFilms").empty());
}

} // namespace tarn_cli
