// The functions of a fuzz target.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

/// Called once at the start by libFuzzer or replay_main.cpp. Returns 0.
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);

/// Called for every input. Returns 0; aborts on a failure.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
