// Executes blocks one instruction at a time.
// SPDX-License-Identifier: MIT
#include "bench/speed/step.h"

#include "tests/support/single_steps.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <link.h>
#include <vector>

namespace speed
{

namespace
{

constexpr std::size_t kMostInstructions = 1 << 20; // 40 times those of a block

/// The number by which the program's addresses in memory exceed those of its file.
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

} // namespace

bool printInstructionAddresses(const std::function<void()>& work)
{
    std::vector<std::uint64_t> addresses = tests::instructionAddressesOf(work, kMostInstructions);
    if (addresses.empty() || addresses.size() == kMostInstructions) {
        std::fputs("tarn_speed: cannot execute single instructions here, or too many of them\n", stderr);
        return false;
    }
    const std::uint64_t bias = loadBias();
    for (std::uint64_t& address : addresses) address -= bias;
    if (std::fwrite(addresses.data(), sizeof addresses[0], addresses.size(), stdout) == addresses.size()) return true;
    std::perror("tarn_speed: standard output");
    return false;
}

} // namespace speed
