// Finds the name that a mistyped one probably stands for.
// SPDX-License-Identifier: MIT
#include "cli/similar_name.h"

#include <algorithm>
#include <cstddef>

namespace tarn
{

namespace
{

constexpr std::size_t kMaxEdits = 2;
constexpr std::size_t kLettersPerEdit = 3; ///< a short word becomes any other with few edits

/// Number of letters to insert, remove, replace, or exchange with their neighbours, to turn one word into the other.
std::size_t editsBetween(const std::string& first, const std::string& second)
{
    std::vector<std::vector<std::size_t>> edits(first.size() + 1, std::vector<std::size_t>(second.size() + 1));
    for (std::size_t i = 0; i <= first.size(); ++i) {
        for (std::size_t j = 0; j <= second.size(); ++j) {
            if (i == 0 || j == 0) {
                edits[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = edits[i - 1][j - 1] + (first[i - 1] == second[j - 1] ? 0 : 1);
            edits[i][j] = std::min({replaced, edits[i - 1][j] + 1, edits[i][j - 1] + 1});
            if (i > 1 && j > 1 && first[i - 1] == second[j - 2] && first[i - 2] == second[j - 1])
                edits[i][j] = std::min(edits[i][j], edits[i - 2][j - 2] + 1);
        }
    }
    return edits[first.size()][second.size()];
}

} // namespace

std::string similarName(const std::string& typed, const std::vector<std::string>& names)
{
    std::string best;
    std::size_t allowed = std::clamp<std::size_t>(typed.size() / kLettersPerEdit, 1, kMaxEdits);
    for (const std::string& name : names) {
        const bool isBeginning = typed.size() >= kLettersPerEdit && name.starts_with(typed);
        if (!isBeginning && std::max(name.size(), typed.size()) > std::min(name.size(), typed.size()) + allowed)
            continue;
        const std::size_t edits = isBeginning ? 1 : editsBetween(typed, name);
        if (edits > allowed || (edits == allowed && !best.empty())) continue;
        best = name;
        allowed = edits;
    }
    return best;
}

} // namespace tarn
