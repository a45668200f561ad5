// The main function of a command: closed streams, exceptions and exit codes.
// SPDX-License-Identifier: MIT
#pragma once

namespace tarn
{

/// Runs a command and returns its exit code. Prints failures as notes; ends the process by the signal that interrupts
/// it.
///
/// Standard streams that the parent closed get placeholders first, so that no output file gets descriptor 0, 1 or 2 and
/// receives messages.
///
/// run  parses the arguments and does the work
int runProgram(int argc, char** argv, int (*run)(int, char**));

} // namespace tarn
