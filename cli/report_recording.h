// One recording on the page of a report.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tarn
{

/// Share of the energy of the outputs with these names, 0 to 1.
///
/// entry  of measureEntry
double energyShare(const Json& entry, const std::vector<std::string>& names);

/// A share as a percentage.
std::string percentText(double share);

/// The length of the upmix.
std::string lengthText(const Json& entry);

/// The article of a recording: what it is, its picture, and the figures of its upmix.
///
/// entry   of measureEntry
/// number  of the recording on the page, from 1
std::string recordingHtml(const Json& entry, std::size_t number);

} // namespace tarn
