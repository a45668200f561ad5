// The caps that the element upmixes and those that it passes through.
// SPDX-License-Identifier: MIT
#include "upmix_caps.h"

#include "layouts.h"

#include <memory>
#include <utility>

namespace tarn_gst
{

namespace
{

using zrk_tarn::SampleFormat;

/// Owned caps.
class Caps
{
public:
    explicit Caps(GstCaps* owned) : caps(owned) {}

    const GstCaps* get() const { return caps.get(); }
    GstCaps* release() { return caps.release(); }
    guint size() const { return gst_caps_get_size(get()); }
    const GstStructure* at(guint i) const { return gst_caps_get_structure(get(), i); }

    /// Adds a structure and takes ownership, unless present structures contain it.
    void merge(GstStructure* structure) { caps.reset(gst_caps_merge_structure(release(), structure)); }

    /// Adds the structures that are new.
    void merge(Caps&& other) { caps.reset(gst_caps_merge(release(), other.release())); }

    /// The intersection, in the order of these caps.
    Caps operator&(const Caps& other) const
    {
        return Caps(gst_caps_intersect_full(caps.get(), other.caps.get(), GST_CAPS_INTERSECT_FIRST));
    }

private:
    struct Unref
    {
        void operator()(GstCaps* owned) const { gst_caps_unref(owned); }
    };
    std::unique_ptr<GstCaps, Unref> caps;
};

constexpr char kUpmixable[] = "audio/x-raw, format={ S16LE, S24LE, S24_32LE, S32LE, F32LE }, layout=interleaved, "
                              "channels=2";

/// Stereo that can be upmixed.
Caps upmixable()
{
    GValue rates = G_VALUE_INIT;
    gst_value_list_init(&rates, zrk_tarn::kSampleRatesHz.size());
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        GValue rate = G_VALUE_INIT;
        g_value_init(&rate, G_TYPE_INT);
        g_value_set_int(&rate, static_cast<int>(rateHz));
        gst_value_list_append_and_take_value(&rates, &rate);
    }
    GstCaps* const caps = gst_caps_from_string(kUpmixable);
    gst_caps_set_value(caps, "rate", &rates);
    g_value_unset(&rates);
    return Caps(caps);
}

/// The caps that upmixable caps become.
Caps upmixed(const Caps& stereo)
{
    Caps wide(gst_caps_new_empty());
    for (guint i = 0; i < stereo.size(); ++i)
        for (const Layout& layout : kUpmixLayouts) {
            GstStructure* const structure = gst_structure_copy(stereo.at(i));
            gst_structure_set(structure, "channels", G_TYPE_INT, layout.channels, "channel-mask", GST_TYPE_BITMASK,
                              layout.mask, nullptr);
            wide.merge(structure);
        }
    return wide;
}

/// The caps that upmixed caps come from.
Caps narrowed(const Caps& wide)
{
    Caps stereo(gst_caps_new_empty());
    for (guint i = 0; i < wide.size(); ++i) {
        GstStructure* const structure = gst_structure_copy(wide.at(i));
        gst_structure_set(structure, "channels", G_TYPE_INT, 2, nullptr);
        gst_structure_remove_field(structure, "channel-mask"); // stereo often has none
        stereo.merge(structure);
    }
    return stereo;
}

/// Caps that both sides can have. Upmixable stereo stays stereo if downstream accepts stereo only; the others pass
/// through: mono and more than two channels, and stereo in the formats for upmixing, at other rates.
///
/// Stereo in other formats is refused: a converter upstream would keep such a format, or even choose another rate for
/// it, instead of converting to upmixable caps. Each range of rates is a separate structure, because GStreamer cannot
/// fixate a list of ranges.
Caps sameOnBothSides()
{
    Caps caps(gst_caps_from_string("audio/x-raw, channels=[ 3, 2147483647 ]; audio/x-raw, channels=1"));
    const Caps stereo = upmixable();
    const auto add = [&](int lowestHz, int highestHz) {
        GstStructure* const structure = gst_structure_copy(stereo.at(0));
        gst_structure_set(structure, "rate", GST_TYPE_INT_RANGE, lowestHz, highestHz, nullptr);
        caps.merge(structure);
    };
    int lowestHz = 1;
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        add(lowestHz, static_cast<int>(rateHz) - 1);
        lowestHz = static_cast<int>(rateHz) + 1;
    }
    add(lowestHz, G_MAXINT);
    caps.merge(upmixable());
    return caps;
}

/// Returns whether a structure has two channels other than front left and front right.
bool isOtherPair(const GstStructure* structure)
{
    int channels = 0;
    guint64 mask = 0;
    return gst_structure_get_int(structure, "channels", &channels) && channels == 2 &&
           gst_structure_get(structure, "channel-mask", GST_TYPE_BITMASK, &mask, nullptr) && mask != kStereoLayout.mask;
}

SampleFormat formatOf(const GstAudioInfo& info)
{
    switch (GST_AUDIO_INFO_FORMAT(&info)) {
    case GST_AUDIO_FORMAT_S16LE:
        return SampleFormat::S16;
    case GST_AUDIO_FORMAT_S24LE:
        return SampleFormat::S24;
    case GST_AUDIO_FORMAT_S24_32LE:
        return SampleFormat::S24In32;
    case GST_AUDIO_FORMAT_S32LE:
        return SampleFormat::S32;
    default:
        return SampleFormat::F32;
    }
}

} // namespace

GstCaps* sinkCaps()
{
    Caps caps = upmixable();
    caps.merge(sameOnBothSides());
    return caps.release();
}

GstCaps* sourceCaps()
{
    Caps caps = upmixed(upmixable());
    caps.merge(sameOnBothSides());
    return caps.release();
}

GstCaps* transformedCaps(GstPadDirection direction, const GstCaps* caps)
{
    Caps candidates(gst_caps_new_empty());
    Caps otherPairs(gst_caps_new_empty());
    for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
        const GstStructure* const structure = gst_caps_get_structure(caps, i);
        (isOtherPair(structure) ? otherPairs : candidates).merge(gst_structure_copy(structure));
    }
    Caps transformed =
        direction == GST_PAD_SINK ? upmixed(candidates & upmixable()) : narrowed(candidates & upmixed(upmixable()));
    transformed.merge(candidates & sameOnBothSides());
    transformed.merge(std::move(otherPairs));
    return transformed.release();
}

GstCaps* fixatedCaps(GstPadDirection direction, GstCaps* possible)
{
    const Caps all(possible);
    const Caps wide = all & upmixed(upmixable());
    const bool upmix = direction == GST_PAD_SINK && wide.size() > 0;
    return gst_caps_fixate(gst_caps_copy((upmix ? wide : all).get()));
}

bool isUpmixable(const GstCaps* input)
{
    return gst_caps_can_intersect(input, upmixable().get()) != FALSE && !isOtherPair(gst_caps_get_structure(input, 0));
}

zrk_tarn::StreamConfiguration configurationFor(const GstAudioInfo& input, const GstAudioInfo& output)
{
    const Layout* layout = &kStereoLayout;
    for (const Layout& upmix : kUpmixLayouts)
        if (upmix.channels == GST_AUDIO_INFO_CHANNELS(&output)) layout = &upmix;
    return {.sampleRateHz = static_cast<std::uint32_t>(GST_AUDIO_INFO_RATE(&input)),
            .format = formatOf(input),
            .outputSlots = static_cast<std::uint32_t>(layout->channels),
            .outputs = layout->outputs,
            .limiter = true};
}

bool isForTwoLoudspeakers(const zrk_tarn::StreamConfiguration& configuration)
{
    return configuration.outputSlots == static_cast<std::uint32_t>(kStereoLayout.channels);
}

} // namespace tarn_gst
