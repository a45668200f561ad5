// The arguments of tarn meter.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/meter_command.h"

#include <CLI/CLI.hpp>

namespace tarn
{

/// Adds the subcommand and its options.
CLI::App* addMeter(CLI::App& app, MeterOptions& options);

} // namespace tarn
