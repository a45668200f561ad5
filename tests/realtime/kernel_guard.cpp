// Counts system calls and page faults.
// SPDX-License-Identifier: MIT
#include "tests/realtime/kernel_guard.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <system_error>

namespace tests
{

namespace
{

constexpr int kNoFilter = 77; ///< exit code of a child that could not set its filter

/// The counter, in memory shared with the child.
volatile unsigned long* trapped = nullptr;

/// Counts a trapped system call and makes it return an error.
void countTrap(int /*signal*/, siginfo_t* /*info*/, void* context)
{
    *trapped = *trapped + 1;
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext;
#if defined __x86_64__
    registers.gregs[REG_RAX] = -ENOSYS;
#elif defined __aarch64__
    registers.regs[0] = static_cast<unsigned long long>(-ENOSYS);
#elif defined __riscv
    registers.__gregs[REG_A0] = static_cast<unsigned long>(-ENOSYS);
#endif
}

/// Traps all system calls except those that end a signal handler and the process.
bool trapSystemCalls()
{
    struct sigaction counting
    {};
    counting.sa_sigaction = countTrap;
    counting.sa_flags = SA_SIGINFO;
    if (sigaction(SIGSYS, &counting, nullptr) != 0) return false;

    constexpr auto kNumber = static_cast<unsigned>(offsetof(seccomp_data, nr));
    sock_filter steps[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, kNumber},         {BPF_JMP | BPF_JEQ | BPF_K, 2, 0, SYS_rt_sigreturn},
        {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, SYS_exit_group}, {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_TRAP},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(steps)), steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

[[noreturn]] void throwErrno(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

long faults()
{
    rusage usage{};
    if (getrusage(RUSAGE_THREAD, &usage) != 0) throwErrno("getrusage");
    return usage.ru_minflt + usage.ru_majflt;
}

} // namespace

std::optional<unsigned long> systemCallsOf(const std::function<void()>& work)
{
    void* const shared = mmap(nullptr, sizeof *trapped, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throwErrno("mmap");
    trapped = static_cast<volatile unsigned long*>(shared);

    const pid_t child = fork();
    if (child < 0) throwErrno("fork");
    if (child == 0) {
        if (!trapSystemCalls()) _exit(kNoFilter);
        work();
        _exit(0);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child) throwErrno("waitpid");
    const unsigned long counted = *trapped;
    munmap(shared, sizeof *trapped);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFilter) return std::nullopt;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("the work did not return");
    return counted;
}

long pageFaultsOf(const std::function<void()>& work)
{
    const long before = faults();
    work();
    return faults() - before;
}

} // namespace tests
