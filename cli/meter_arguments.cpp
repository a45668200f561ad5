// The options of tarn meter.
// SPDX-License-Identifier: MIT
#include "cli/meter_arguments.h"

#include "cli/command_help.h"
#include "cli/help_texts.h"
#include "cli/option_checks.h"
#include "cli/shared_options.h"
#include "stream/mode_names.h"

#include <string>
#include <vector>

namespace tarn
{

namespace
{

constexpr double kMinSpeed = 0.1;
constexpr double kMaxSpeed = 1000.0;

} // namespace

CLI::App* addMeter(CLI::App& app, MeterOptions& options)
{
    CLI::App* const meter = app.add_subcommand("meter", "Show where the sound of a file or stream plays");
    meter->add_option("INPUT", options.input, "Audio file, or - for one on standard input")->type_name("");
    addRawOption(*meter, options.raw);
    meter->add_flag("--pass", options.pass, "Write the raw stream to standard output as it is");
    meter->add_flag("--upmix", options.upmix,
                    "Write the upmix of the raw stream to standard output,\n"
                    "as options and keys set it");
    addStartOption(*meter, options.start);
    meter->add_option("--speed", options.speed, "Speed of a file, 0.1 to 1000; default: 1, real time")
        ->type_name("X")
        ->check(numberFrom(kMinSpeed, kMaxSpeed, "--speed 10"));
    addLayoutOption(*meter, options.layout, "Outputs");
    meter->add_option("--mode", options.mode, "Response to strong steering: fast (default) or calm")
        ->type_name("NAME")
        ->check(oneOfNames(zrk_tarn::kSteeringModeNames, "--mode calm"));
    addRoomOptions(*meter, options.room);
    meter->add_flag("--json", options.json, "Print lines of JSON instead of a screen or text");
    setHelp(*meter, kMeterHelp, "man tarn-meter describes the screen, the keys and the lines.");
    return meter;
}

} // namespace tarn
