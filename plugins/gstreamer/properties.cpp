// The properties of the element.
// SPDX-License-Identifier: MIT
#include "properties.h"

#include "enum_types.h"
#include "stream/gain.h"

namespace tarn_gst
{

namespace
{

enum Property : guint
{
    kBypass = 1,
    kMode,
    kPreset,
    kCentreGain,
    kWidth,
    kSurroundGain,
    kBass,
    kLfeGain,
    kMakeUpGain,
    kLimiter,
    kPostMessages,
    kInterval
};

/// The properties that a preset sets.
constexpr const char* kRoomProperties[] = {"centre-gain", "width",        "surround-gain", "bass",
                                           "lfe-gain",    "make-up-gain", "limiter"};

/// Changes a setting. Returns whether the property exists.
bool set(Settings& settings, guint id, const GValue* value)
{
    switch (id) {
    case kBypass:
        settings.bypass = g_value_get_boolean(value);
        return true;
    case kMode:
        settings.mode = static_cast<zrk_tarn::SteeringMode>(g_value_get_enum(value));
        return true;
    case kPreset:
        settings.preset = g_value_get_enum(value);
        settings.room = zrk_tarn::kPresets[settings.preset].settings;
        settings.hasMakeUpGain = false;
        return true;
    case kCentreGain:
        settings.room.centreDb = g_value_get_double(value);
        return true;
    case kWidth:
        settings.room.width = g_value_get_double(value);
        return true;
    case kSurroundGain:
        settings.room.surroundDb = g_value_get_double(value);
        return true;
    case kBass:
        settings.room.bass = static_cast<zrk_tarn::BassMode>(g_value_get_enum(value));
        return true;
    case kLfeGain:
        settings.room.lfeDb = g_value_get_double(value);
        return true;
    case kMakeUpGain:
        settings.room.gainDb = g_value_get_double(value);
        settings.hasMakeUpGain = true;
        return true;
    case kLimiter:
        settings.room.limiter = g_value_get_boolean(value);
        return true;
    case kPostMessages:
        settings.postMessages = g_value_get_boolean(value);
        return true;
    case kInterval:
        settings.interval = g_value_get_uint64(value);
        return true;
    default:
        return false;
    }
}

/// Reads a setting. Returns whether the property exists.
bool get(const Settings& settings, guint id, GValue* value)
{
    switch (id) {
    case kBypass:
        g_value_set_boolean(value, settings.bypass);
        return true;
    case kMode:
        g_value_set_enum(value, static_cast<int>(settings.mode));
        return true;
    case kPreset:
        g_value_set_enum(value, settings.preset);
        return true;
    case kCentreGain:
        g_value_set_double(value, settings.room.centreDb);
        return true;
    case kWidth:
        g_value_set_double(value, settings.room.width);
        return true;
    case kSurroundGain:
        g_value_set_double(value, settings.room.surroundDb.value_or(zrk_tarn::kMinGainDb));
        return true;
    case kBass:
        g_value_set_enum(value, static_cast<int>(settings.room.bass));
        return true;
    case kLfeGain:
        g_value_set_double(value, settings.room.lfeDb.value_or(zrk_tarn::kMinGainDb));
        return true;
    case kMakeUpGain:
        g_value_set_double(value, settings.room.gainDb);
        return true;
    case kLimiter:
        g_value_set_boolean(value, settings.room.limiter);
        return true;
    case kPostMessages:
        g_value_set_boolean(value, settings.postMessages);
        return true;
    case kInterval:
        g_value_set_uint64(value, settings.interval);
        return true;
    default:
        return false;
    }
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    State& state = stateOf(object);
    bool isKnown = false;
    {
        const ObjectLock lock(object);
        isKnown = set(state.settings, id, value);
        applySettings(state);
    }
    if (!isKnown) G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    if (id == kPreset)
        for (const char* const name : kRoomProperties) g_object_notify(object, name);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    bool isKnown = false;
    {
        const ObjectLock lock(object);
        isKnown = get(stateOf(object).settings, id, value);
    }
    if (!isKnown) G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
}

constexpr auto kPlain =
    static_cast<GParamFlags>(int{G_PARAM_READWRITE} | int{G_PARAM_STATIC_STRINGS} | int{GST_PARAM_MUTABLE_PLAYING});
constexpr auto kControllable = static_cast<GParamFlags>(int{kPlain} | int{GST_PARAM_CONTROLLABLE});

void installRoomProperties(GObjectClass* objectClass)
{
    using zrk_tarn::kMaxChannelGainDb;
    using zrk_tarn::kMinGainDb;
    const Settings defaults;
    const zrk_tarn::RoomSettings& room = defaults.room;
    const auto install = [&](Property id, GParamSpec* spec) { g_object_class_install_property(objectClass, id, spec); };
    install(kPreset,
            g_param_spec_enum("preset", "Preset",
                              "Sets centre-gain, width, surround-gain, bass, lfe-gain, make-up-gain and limiter "
                              "together",
                              presetType(), defaults.preset, kPlain));
    install(kCentreGain, g_param_spec_double("centre-gain", "Centre gain",
                                             "Gain of the centre in dB: louder or softer voices, in stereo too",
                                             kMinGainDb, kMaxChannelGainDb, room.centreDb, kControllable));
    install(kWidth,
            g_param_spec_double("width", "Width",
                                "Part of the centre that its loudspeaker plays; the rest goes to the front left and "
                                "right",
                                0.0, 1.0, room.width, kControllable));
    install(kSurroundGain,
            g_param_spec_double("surround-gain", "Surround gain", "Gain of the surround channels in dB; -60 is silence",
                                kMinGainDb, kMaxChannelGainDb, room.surroundDb.value_or(kMinGainDb), kControllable));
    install(kBass, g_param_spec_enum("bass", "Bass", "Where the bass below 120 Hz plays", bassType(),
                                     static_cast<int>(room.bass), kControllable));
    install(kLfeGain,
            g_param_spec_double("lfe-gain", "LFE gain",
                                "Gain of the LFE channel in dB, which has the bass of the stereo; -60 is silence",
                                kMinGainDb, kMaxChannelGainDb, room.lfeDb.value_or(kMinGainDb), kControllable));
    install(kMakeUpGain,
            g_param_spec_double("make-up-gain", "Make-up gain",
                                "Gain in dB; 3 makes 3.0 about as loud as the stereo. Stereo has 0 unless the "
                                "gain is set",
                                kMinGainDb, zrk_tarn::kMaxGainDb, room.gainDb, kControllable));
    install(kLimiter,
            g_param_spec_boolean("limiter", "Limiter", "Keep the true peak at about -1 dB instead of clipping",
                                 room.limiter, kControllable));
}

} // namespace

void installProperties(GObjectClass* objectClass)
{
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    const Settings defaults;
    const auto install = [&](Property id, GParamSpec* spec) { g_object_class_install_property(objectClass, id, spec); };
    install(kBypass, g_param_spec_boolean("bypass", "Bypass",
                                          "Plain left and right, the other channels silent, with the same latency; "
                                          "crossfades within 1024 frames",
                                          defaults.bypass, kControllable));
    install(kMode, g_param_spec_enum("mode", "Mode", "How fast strong steering is followed", modeType(),
                                     static_cast<int>(defaults.mode), kControllable));
    installRoomProperties(objectClass);
    install(kPostMessages, g_param_spec_boolean("post-messages", "Post messages",
                                                "Post an element message with the meters after each interval",
                                                defaults.postMessages, kPlain));
    install(kInterval, g_param_spec_uint64("interval", "Interval", "Time between messages, in nanoseconds", GST_MSECOND,
                                           G_MAXUINT64, defaults.interval, kPlain));
    documentEnumTypes();
}

void applySettings(const State& state)
{
    if (!state.stream) return;
    zrk_tarn::RoomSettings room = state.settings.room;
    if (state.isForTwoLoudspeakers && !state.settings.hasMakeUpGain) room.gainDb = 0.0;
    zrk_tarn::applySettings(room, *state.stream);
    state.stream->setBypass(state.settings.bypass);
    state.stream->setMode(state.settings.mode);
}

} // namespace tarn_gst
