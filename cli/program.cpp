// The main function of a command: closed streams, exceptions and exit codes.
// SPDX-License-Identifier: MIT
#include "cli/program.h"

#include "cli/command_name.h"
#include "cli/error_advice.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/progress.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace tarn
{

namespace
{

/// Opens placeholders for closed standard streams. Using a placeholder fails.
void occupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        // cppcheck-suppress leakReturnValNotUsed ; open for as long as the program runs
        if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

} // namespace

int runProgram(int argc, char** argv, int (*run)(int, char**))
{
    occupyStandardStreams();
    if (argc > 0) setCommandName(argv[0]);
    int exitCode = EX_SOFTWARE;
    std::string problem;
    try {
        exitCode = run(argc, argv);
        const int error = std::fflush(stdout) != 0 ? errno : 0;
        if (error != 0 || std::ferror(stdout) != 0)
            throw Failure(EX_IOERR, "standard output: writing failed; " +
                                        adviceFor(error, "free some space, choose another place, or check the program "
                                                         "that receives it"));
    } catch (const Failure& failure) {
        problem = failure.what();
        exitCode = failure.exitCode();
    } catch (const Interrupted& interrupted) {
        dieBySignal(interrupted.signalNumber);
    } catch (const std::exception& error) {
        problem = std::string("internal error: ") + error.what();
    }
    const int signalNumber = arrivedSignal();
    // A write to a pipe without a reader ends the command quietly.
    if (!problem.empty() && signalNumber != SIGPIPE) printNote(problem);
    // After complete work too, so that a shell script that was interrupted stops.
    if (signalNumber > 0) dieBySignal(signalNumber);
    return exitCode;
}

} // namespace tarn
