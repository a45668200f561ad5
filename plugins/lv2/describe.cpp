// Writes the .ttl files of the bundle of LV2 plug-ins: describe FOLDER MINOR_VERSION MICRO_VERSION
// SPDX-License-Identifier: MIT
#include "plugins/lv2/plugins.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace tarn_lv2;

constexpr std::string_view kPrefixes = R"(@prefix doap: <http://usefulinc.com/ns/doap#> .
@prefix foaf: <http://xmlns.com/foaf/0.1/> .
@prefix log: <http://lv2plug.in/ns/ext/log#> .
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .
@prefix pprops: <http://lv2plug.in/ns/ext/port-props#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
@prefix units: <http://lv2plug.in/ns/extensions/units#> .
@prefix urid: <http://lv2plug.in/ns/ext/urid#> .
)";

/// What LV2 says about a control: everything but its default.
struct ControlText
{
    Port port;
    const char* symbol;
    const char* name;
    double lowest;
    double highest;
    const char* comment;
    const char* statement = nullptr; ///< an additional one
};

constexpr const char* kDecibels = "units:unit units:db";
constexpr ControlText kControls[] = {
    {kEnabled, "enabled", "Upmix", 0, 1, "Off: plain left and right, the other outputs silent, and the same latency.",
     "lv2:designation lv2:enabled"},
    {kMode, "mode", "Steering", 1, 2, "How fast strong steering is followed.",
     "lv2:portProperty lv2:integer , lv2:enumeration ;\n"
     "\t\tlv2:scalePoint [ rdfs:label \"Fast\" ; rdf:value 1 ] , [ rdfs:label \"Calm\" ; rdf:value 2 ]"},
    {kGain, "gain", "Make-up gain", zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb,
     "Gain of all outputs. Has no effect while the upmix is off.", kDecibels},
    {kLimiter, "limiter", "Limiter", 0, 1, "Keeps the true peak of all outputs at about -1 dB, instead of clipping."},
    {kCentre, "centre", "Centre", zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb,
     "Gain of the centre: louder or softer voices.", kDecibels},
    {kWidth, "width", "Width of the centre", 0, 1,
     "Part of the centre that its loudspeaker plays. The rest goes to front left and front right."},
    {kBass, "bass", "Bass in the fronts", 0, 1,
     "On: below 120 Hz, the fronts play the stereo. Off: the bass is steered like other sounds."},
    {kSurrounds, "surrounds", "Surrounds", zrk_tarn::kMinGainDb, zrk_tarn::kMaxChannelGainDb,
     "Gain of the surround channels; silent at the minimum.", kDecibels},
};

/// What LV2 says about the outputs with a port per band group.
struct GroupText
{
    const char* symbol;
    const char* name;  ///< of a port
    const char* title; ///< of all of them
    int lowest;
    int highest;
    const char* unit = nullptr;
};

/// In the order of kGroupMeters.
constexpr GroupText kGroupTexts[] = {
    {"left_right", "Right to left", "Steering, right to left", -1, 1},
    {"front_back", "Back to front", "Steering, back to front", -1, 1},
    {"group_level", "Level", "Levels of the band groups", -120, 12, kDecibels},
    {"group_place", "Place", "Places of the band groups, right to left", -1, 1},
    {"group_centre", "Share of the centre", "Shares of the centre in the band groups", 0, 1},
    {"group_upper_hz", "Upper edge", "Upper edges of the band groups", 0, 96000, "units:unit units:hz"},
    {"group_surround", "Surrounds", "Levels of the surround channels in the band groups", -120, 12, kDecibels},
};
static_assert(std::size(kGroupTexts) == std::size(kGroupMeters));

constexpr const ControlText& textOf(Port control)
{
    for (const ControlText& text : kControls)
        if (text.port == control) return text;
    throw "not a control";
}

using Statements = std::vector<std::string>;

std::string quoted(const std::string& text)
{
    return std::string("\"").append(text).append("\"");
}

/// A decimal such as 3.0. Some hosts read numbers without a point as integers.
std::string decimal(double value)
{
    std::ostringstream out;
    out << value;
    return out.str().find('.') == std::string::npos ? out.str().append(".0") : out.str();
}

/// "Runs at 32, 44.1, ... and 192 kHz."
std::string ratesText()
{
    std::ostringstream out;
    out << "Runs at";
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz)
        out << (rateHz == zrk_tarn::kSampleRatesHz.back()    ? " and "
                : rateHz == zrk_tarn::kSampleRatesHz.front() ? " "
                                                             : ", ")
            << rateHz / 1000.0;
    out << " kHz.";
    return out.str();
}

std::string uriOf(const Lv2Plugin& plugin)
{
    return std::string("<").append(plugin.uri).append(">");
}

/// A group of ports or a preset.
std::string partOf(const Lv2Plugin& plugin, const std::string& symbol)
{
    return std::string("<").append(plugin.uri).append("#").append(symbol).append(">");
}

Statements audioPort(const Lv2Plugin& plugin, Port port)
{
    const bool isInput = port < kOutput;
    const OutputChannel& channel = isInput ? kLayout20.channels[port] : plugin.plugin.layout.channels[port - kOutput];
    const std::string direction = isInput ? "in" : "out";
    return {isInput ? "a lv2:InputPort , lv2:AudioPort" : "a lv2:OutputPort , lv2:AudioPort",
            "lv2:symbol " + quoted(direction + "_" + channel.symbol),
            "lv2:name " + quoted(std::string(channel.name) + " " + direction), "pg:group " + partOf(plugin, direction),
            "lv2:designation pg:" + std::string(channel.designation)};
}

Statements controlPort(const Lv2Plugin& plugin, Port port)
{
    const ControlText& text = textOf(port);
    Statements statements = {"a lv2:InputPort , lv2:ControlPort",
                             "lv2:symbol " + quoted(text.symbol),
                             "lv2:name " + quoted(text.name),
                             "rdfs:comment " + quoted(text.comment),
                             "lv2:default " + decimal(static_cast<double>(defaultOf(port, plugin.plugin.layout))),
                             "lv2:minimum " + decimal(text.lowest),
                             "lv2:maximum " + decimal(text.highest)};
    if (isToggle(port)) statements.emplace_back("lv2:portProperty lv2:toggled");
    if (text.statement != nullptr) statements.emplace_back(text.statement);
    return statements;
}

Statements latencyPort()
{
    return {"a lv2:OutputPort , lv2:ControlPort",
            "lv2:symbol \"latency\"",
            "lv2:name \"Latency\"",
            "lv2:designation lv2:latency",
            "lv2:portProperty lv2:reportsLatency , lv2:integer , lv2:connectionOptional , pprops:notOnGUI",
            "units:unit units:frame",
            "lv2:minimum 0",
            "lv2:maximum " + std::to_string(Instance::kLatencyFrames)};
}

Statements reductionPort()
{
    return {"a lv2:OutputPort , lv2:ControlPort",
            "lv2:symbol \"reduction\"",
            "lv2:name \"Reduction of the limiter\"",
            "lv2:portProperty lv2:connectionOptional",
            "units:unit units:db",
            "lv2:minimum 0",
            "lv2:maximum 60"};
}

Statements groupPort(const Lv2Plugin& plugin, Port port)
{
    const GroupText& text = kGroupTexts[(port - kLeftRight) / zrk_tarn::kBandGroups];
    const std::string number = std::to_string((port - kLeftRight) % zrk_tarn::kBandGroups + 1);
    Statements statements = {"a lv2:OutputPort , lv2:ControlPort",
                             "lv2:symbol " + quoted(std::string(text.symbol) + "_" + number),
                             "lv2:name " + quoted(std::string(text.name) + ", group " + number),
                             "pg:group " + partOf(plugin, text.symbol),
                             "lv2:portProperty lv2:connectionOptional",
                             "lv2:minimum " + std::to_string(text.lowest),
                             "lv2:maximum " + std::to_string(text.highest)};
    if (text.unit != nullptr) statements.emplace_back(text.unit);
    return statements;
}

Statements portOf(const Lv2Plugin& plugin, Port port)
{
    if (port < kEnabled) return audioPort(plugin, port);
    if (port == kLatency) return latencyPort();
    if (port == kReduction) return reductionPort();
    return port < kLatency ? controlPort(plugin, port) : groupPort(plugin, port);
}

/// Writes "subject statement ; statement ... .".
void write(std::ostream& out, const std::string& subject, const Statements& statements)
{
    out << "\n" << subject;
    for (std::size_t i = 0; i < statements.size(); ++i) out << (i == 0 ? "\n\t" : " ;\n\t") << statements[i];
    out << " .\n";
}

/// "lv2:port [ ... ] , [ ... ]" with the ports of a plug-in in their order.
std::string portsOf(const Lv2Plugin& plugin)
{
    std::string text = "lv2:port";
    const PortList& list = plugin.plugin.ports;
    for (std::size_t i = 0; i < list.count; ++i) {
        text += (i == 0 ? " [\n\t\tlv2:index " : " , [\n\t\tlv2:index ") + std::to_string(i);
        for (const std::string& statement : portOf(plugin, list.ports[i])) text += " ;\n\t\t" + statement;
        text += "\n\t]";
    }
    return text;
}

void writePlugin(std::ostream& out, const Lv2Plugin& plugin, const Statements& versions)
{
    out << "# The ports of a plug-in.\n" << kPrefixes;
    write(out, "<urn:tarn:project>",
          {"a doap:Project", "doap:name \"Tarn\"",
           "doap:shortdesc \"Real-time stereo-to-multichannel matrix upmix engine\"",
           "doap:maintainer [ a foaf:Person ; foaf:name \"The Tarn authors\" ]"});
    write(out, partOf(plugin, "in"),
          {"a pg:StereoGroup , pg:InputGroup", "lv2:symbol \"in\"", "lv2:name \"Stereo in\""});
    write(out, partOf(plugin, "out"),
          {"a pg:" + std::string(plugin.group) + " , pg:OutputGroup", "lv2:symbol \"out\"",
           "lv2:name " + quoted(std::string(plugin.plugin.layout.name) + " out"), "pg:source " + partOf(plugin, "in")});
    for (std::size_t i = 0; i < std::size(kGroupTexts); ++i) {
        if (!hasMeter(plugin.plugin.layout, kGroupMeters[i])) continue;
        const GroupText& text = kGroupTexts[i];
        write(out, partOf(plugin, text.symbol),
              {"a pg:OutputGroup", "lv2:symbol " + quoted(text.symbol), "lv2:name " + quoted(text.title)});
    }
    write(out, uriOf(plugin),
          {"a lv2:Plugin , lv2:SpatialPlugin", versions[0], versions[1], "doap:name " + quoted(plugin.name),
           "doap:license <http://opensource.org/licenses/MIT>", "lv2:project <urn:tarn:project>",
           "rdfs:comment " + quoted(plugin.comment + (" " + ratesText())),
           "lv2:optionalFeature lv2:hardRTCapable , log:log , urid:map", "pg:mainInput " + partOf(plugin, "in"),
           "pg:mainOutput " + partOf(plugin, "out"), portsOf(plugin)});
}

/// Writes the values of all controls of the room in a preset.
void writePreset(std::ostream& out, const Lv2Plugin& plugin, const zrk_tarn::Preset& preset)
{
    const Layout& layout = plugin.plugin.layout;
    std::string values;
    for (const Port control : {kGain, kLimiter, kCentre, kWidth, kBass, kSurrounds}) {
        if (!hasControl(layout, control)) continue;
        values += (values.empty() ? "lv2:port [ lv2:symbol " : " ,\n\t\t[ lv2:symbol ") +
                  quoted(textOf(control).symbol) + " ; pset:value " +
                  decimal(static_cast<double>(valueOf(control, settingsOf(preset, layout)))) + " ]";
    }
    write(out, partOf(plugin, preset.name),
          {"a pset:Preset", "lv2:appliesTo " + uriOf(plugin), "rdfs:label " + quoted(preset.name), values});
}

void writeManifest(std::ostream& out, const Statements& versions)
{
    out << "# Names the plug-ins of the bundle and their presets.\n" << kPrefixes;
    for (const Lv2Plugin& plugin : kPlugins) {
        write(out, uriOf(plugin),
              {"a lv2:Plugin", versions[0], versions[1], "lv2:binary <tarn.so>",
               "rdfs:seeAlso <" + std::string(plugin.file) + ".ttl>"});
        for (const zrk_tarn::Preset& preset : zrk_tarn::kPresets)
            write(out, partOf(plugin, preset.name),
                  {"a pset:Preset", "lv2:appliesTo " + uriOf(plugin), "rdfs:seeAlso <presets.ttl>"});
    }
}

/// Creates a file, whose errors are exceptions.
std::ofstream created(const std::filesystem::path& file)
{
    std::ofstream out;
    out.exceptions(std::ios::failbit | std::ios::badbit);
    out.open(file);
    return out;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 4) {
        std::cerr << "usage: describe FOLDER MINOR_VERSION MICRO_VERSION\n";
        return 2;
    }
    const std::filesystem::path folder = arguments[1];
    const Statements versions = {std::string("lv2:minorVersion ") + arguments[2],
                                 std::string("lv2:microVersion ") + arguments[3]};
    try {
        std::ofstream manifest = created(folder / "manifest.ttl");
        writeManifest(manifest, versions);
        std::ofstream presets = created(folder / "presets.ttl");
        presets << "# The presets of the plug-ins.\n" << kPrefixes;
        for (const Lv2Plugin& plugin : kPlugins) {
            std::ofstream description = created(folder / (std::string(plugin.file) + ".ttl"));
            writePlugin(description, plugin, versions);
            for (const zrk_tarn::Preset& preset : zrk_tarn::kPresets) writePreset(presets, plugin, preset);
        }
    } catch (const std::exception& problem) {
        std::cerr << "describe: " << problem.what() << "\n";
        return 1;
    }
}
