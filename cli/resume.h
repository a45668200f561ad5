// --resume: decides which files of a batch are done.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json.h"
#include "cli/ledger.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// An upmix of a batch, in the terms of the ledger.
struct ResumeJob
{
    std::string input;
    std::string output;
    std::string options;       ///< everything that the samples depend on, apart from the input
    bool force = false;        ///< replace every output that is not done
    bool skipExisting = false; ///< existing outputs that no run with --resume wrote are checked later
    bool strict = false;       ///< outputs of damaged inputs do not count as done
};

/// What --resume decides about a file.
struct ResumeDecision
{
    std::optional<Json> report{}; ///< of a file that is done; none: it has to be upmixed
    std::string refusal{};        ///< why it cannot be upmixed; empty if it can
    bool replaces = false;        ///< the output is an earlier one of this folder, and is replaced
};

/// The work of earlier runs in an output folder.
class Resume
{
public:
    /// Reads what the ledger has about the outputs. Throws as Ledger does.
    Resume(const std::filesystem::path& folder, const std::vector<std::string>& outputs) : ledger(folder, outputs) {}

    /// A file is done if the ledger lists its output with these options, and input and output have the sizes and times
    /// that the ledger states. Unless the job has force, refuses an output that exists and has no size and time that a
    /// line of the ledger states for it, and one that is the upmix of another file.
    ResumeDecision decide(const ResumeJob& job) const;

    /// A recorder for a file whose work begins now. Keep this object longer than the recorder.
    Recorder recorder(const ResumeJob& job) const;

private:
    Ledger ledger;
};

/// Repeats the warning about the loss of a damaged input that is done.
///
/// report  of ResumeDecision
void printKeptLoss(const Json& report);

} // namespace tarn
