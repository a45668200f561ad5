// The properties of the element.
// SPDX-License-Identifier: MIT
#include "properties.h"

#include "stream/gain.h"
#include "stream/steering_mode_names.h"

namespace tarn_gst
{

namespace
{

using zrk_tarn::SteeringMode;

enum Property : guint
{
    kBypass = 1,
    kMode,
    kMakeUpGain,
    kPostMessages,
    kInterval
};

GType modeType()
{
    static const GEnumValue kValues[] = {
        {static_cast<int>(SteeringMode::Fast), "Strong steering is followed fast", nameOf(SteeringMode::Fast)},
        {static_cast<int>(SteeringMode::Calm), "Strong steering is followed at medium speed",
         nameOf(SteeringMode::Calm)},
        {0, nullptr, nullptr}};
    static const GType kType = g_enum_register_static("GstTarnUpmixMode", kValues);
    return kType;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    State& state = stateOf(object);
    const ObjectLock lock(object);
    switch (id) {
    case kBypass:
        state.settings.bypass = g_value_get_boolean(value);
        break;
    case kMode:
        state.settings.mode = static_cast<SteeringMode>(g_value_get_enum(value));
        break;
    case kMakeUpGain:
        state.settings.makeUpGainDb = g_value_get_double(value);
        break;
    case kPostMessages:
        state.settings.postMessages = g_value_get_boolean(value);
        break;
    case kInterval:
        state.settings.interval = g_value_get_uint64(value);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    applySettings(state);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    const State& state = stateOf(object);
    const ObjectLock lock(object);
    switch (id) {
    case kBypass:
        g_value_set_boolean(value, state.settings.bypass);
        break;
    case kMode:
        g_value_set_enum(value, static_cast<int>(state.settings.mode));
        break;
    case kMakeUpGain:
        g_value_set_double(value, state.settings.makeUpGainDb);
        break;
    case kPostMessages:
        g_value_set_boolean(value, state.settings.postMessages);
        break;
    case kInterval:
        g_value_set_uint64(value, state.settings.interval);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

} // namespace

void installProperties(GObjectClass* objectClass)
{
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    const Settings defaults;
    constexpr auto kPlain =
        static_cast<GParamFlags>(int{G_PARAM_READWRITE} | int{G_PARAM_STATIC_STRINGS} | int{GST_PARAM_MUTABLE_PLAYING});
    constexpr auto kControllable = static_cast<GParamFlags>(int{kPlain} | int{GST_PARAM_CONTROLLABLE});
    const auto install = [&](Property id, GParamSpec* spec) { g_object_class_install_property(objectClass, id, spec); };
    install(kBypass, g_param_spec_boolean("bypass", "Bypass",
                                          "Plain left and right, the other channels silent, with the same latency; "
                                          "crossfades within 1024 frames",
                                          defaults.bypass, kControllable));
    install(kMode, g_param_spec_enum("mode", "Mode", "How fast strong steering is followed", modeType(),
                                     static_cast<int>(defaults.mode), kControllable));
    install(kMakeUpGain,
            g_param_spec_double("make-up-gain", "Make-up gain",
                                "Gain of the upmix in dB, reached within 1024 frames; exact at 0", zrk_tarn::kMinGainDb,
                                zrk_tarn::kMaxGainDb, defaults.makeUpGainDb, kControllable));
    install(kPostMessages, g_param_spec_boolean("post-messages", "Post messages",
                                                "Post an element message with the meters after each interval",
                                                defaults.postMessages, kPlain));
    install(kInterval, g_param_spec_uint64("interval", "Interval", "Time between messages, in nanoseconds", GST_MSECOND,
                                           G_MAXUINT64, defaults.interval, kPlain));
    gst_type_mark_as_plugin_api(modeType(), static_cast<GstPluginAPIFlags>(0));
}

void applySettings(const State& state)
{
    if (!state.stream) return;
    state.stream->setBypass(state.settings.bypass);
    state.stream->setMode(state.settings.mode);
    state.stream->setMakeUpGain(zrk_tarn::gainFactor(state.settings.makeUpGainDb));
}

} // namespace tarn_gst
