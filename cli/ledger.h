// The ledger of --resume: what is done in an output folder.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_state.h"
#include "cli/json_type.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarn
{

/// A line of the ledger: an output that was completed.
struct LedgerEntry
{
    std::string output; ///< relative to the folder
    FileState outputState{};
    std::string input; ///< full path
    FileState inputState{};
    std::string options; ///< everything else that the samples of the output depend on
    std::string result;  ///< what a later run reports about the output, such as losses; an object in JSON
};

/// Reads and writes tarn-ledger.txt in an output folder.
///
/// The file has one line for every output, with fields between tabs; a later line replaces an earlier one. Bytes that
/// would break a line are percent-encoded. Every line ends with its checksum, so cut lines are ignored. A line is
/// written under a lock and reaches the disk before its output gets its name. Therefore an output is done if its file
/// has the state that the ledger states, also after a crash between the two.
class Ledger
{
public:
    /// Reads the entries of some outputs from the ledger of a folder; empty if there is none.
    ///
    /// outputs  paths of outputs below the folder. A part of a large batch needs the memory of its own entries only.
    ///
    /// Throws Failure: EX_NOINPUT if it cannot be read; EX_CANTCREAT if a file of this name is not a ledger.
    Ledger(const std::filesystem::path& folder, const std::vector<std::string>& outputs);

    /// Name of the ledger's file.
    const std::filesystem::path& path() const noexcept { return file; }

    /// The path of an output relative to the folder.
    std::string relative(const std::string& output) const;

    /// The newest entry of an output; null if there is none.
    ///
    /// output  relative to the folder
    const LedgerEntry* find(const std::string& output) const;

    /// Whether an output of this name had this state when a line was written: it is the work of this or an earlier run.
    ///
    /// output  relative to the folder
    bool lists(const std::string& output, const FileState& state) const;

    /// Adds an entry to the file, not to this object. Several processes and machines can do so at the same time.
    ///
    /// Throws OutputFailure (EX_IOERR) if it cannot be written. Then the file stays as it was; without locks, a cut
    /// line can be left.
    void append(const LedgerEntry& entry) const;

private:
    /// What the lines of an output say.
    struct Lines
    {
        std::optional<LedgerEntry> newest{};
        std::vector<FileState> earlier{}; ///< states of the output in the lines before
    };

    void read(int descriptor);
    void readLine(std::string_view line);

    std::filesystem::path directory;
    std::filesystem::path file;
    std::unordered_map<std::string, Lines> entries; ///< by output
};

/// Adds the finished output to the ledger.
///
/// output  state of the complete file, right before it gets its name
/// result  what later runs report about it; an object
using Recorder = std::function<void(const FileState& output, const Json& result)>;

} // namespace tarn
