// Executes blocks one instruction at a time.
// SPDX-License-Identifier: MIT
#include "bench/speed/step.h"

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <link.h>
#include <optional>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace speed
{

namespace
{

/// What the program's addresses in memory exceed those of its file by.
std::uint64_t loadBias()
{
    std::uint64_t bias = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* program, std::size_t /*size*/, void* result) {
            *static_cast<std::uint64_t*>(result) = program->dlpi_addr;
            return 1; // the first one is the program
        },
        &bias);
    return bias;
}

/// The child: stops before and after the work, so that the parent knows what to trace.
[[noreturn]] void runTraced(const std::function<void()>& work)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    (void)raise(SIGSTOP);
    work();
    (void)raise(SIGSTOP);
    _exit(0);
}

/// The signal that stopped the child, or nothing if it has ended.
std::optional<int> waitForStop(pid_t child)
{
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return std::nullopt;
    return WSTOPSIG(status);
}

/// The address of the next instruction of a stopped child.
std::uint64_t instructionPointer(pid_t child)
{
#if defined __x86_64__
    constexpr std::size_t kRegister = offsetof(user_regs_struct, rip);
    return static_cast<std::uint64_t>(ptrace(PTRACE_PEEKUSER, child, kRegister, nullptr));
#else
#error "which register holds the address of the next instruction?"
#endif
}

bool trace(pid_t child)
{
    const std::uint64_t bias = loadBias();
    if (waitForStop(child) != SIGSTOP) return false;
    for (;;) {
        if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) != 0) return false;
        const std::optional<int> signal = waitForStop(child);
        if (signal == SIGSTOP) break;
        if (signal != SIGTRAP) return false;
        const std::uint64_t address = instructionPointer(child) - bias;
        if (std::fwrite(&address, sizeof address, 1, stdout) != 1) return false;
    }
    return ptrace(PTRACE_CONT, child, nullptr, nullptr) == 0 && !waitForStop(child) && std::fflush(stdout) == 0;
}

} // namespace

bool printInstructionAddresses(const std::function<void()>& work)
{
    const pid_t child = fork();
    if (child == 0) runTraced(work);
    if (child > 0 && trace(child)) return true;
    std::perror("tarn_speed: cannot execute single instructions here");
    return false;
}

} // namespace speed
