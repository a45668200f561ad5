#pragma once

#include <cstddef>
#include <cstdint>

/// What libFuzzer, or replay_main.cpp in its place, calls once before everything else. Returns 0.
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);

/// What it calls with every input. Returns 0; what goes wrong aborts.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
