// The text form of a ledger entry.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/ledger.h"

#include <optional>
#include <string>
#include <string_view>

namespace tarn
{

/// First line of a ledger.
inline constexpr std::string_view kLedgerHeader =
    "# tarn ledger 1: output, bytes, time, input, bytes, time, options, result, checksum";

/// The line of an entry, without its line feed.
std::string ledgerLine(const LedgerEntry& entry);

/// The output of a line, which can be damaged; none for a line without one.
std::optional<std::string> ledgerOutput(std::string_view line);

/// The entry of a line; none if the line is cut or damaged.
std::optional<LedgerEntry> ledgerEntry(std::string_view line);

} // namespace tarn
