// The page of a report.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json.h"

#include <functional>
#include <string>
#include <vector>

namespace tarn
{

/// The contents of a page.
struct ReportPage
{
    std::string title;
    std::string theme;                   ///< dark or light
    std::string layout;                  ///< with its slots: 3.0 (FL FR FC)
    std::string settings;                ///< the preset, and the options that change it
    std::vector<Json> entries{};         ///< of measureEntry
    std::vector<std::string> failures{}; ///< messages about inputs without an entry
};

/// Gets the parts of a page in their order.
using PageWriter = std::function<void(const std::string&)>;

/// Writes the page as HTML, UTF-8, in a part per recording. It refers to no other file.
void writePage(const ReportPage& page, const PageWriter& write);

} // namespace tarn
