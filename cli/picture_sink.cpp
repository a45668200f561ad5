// Chooses the outputs of a picture by the names of their slots.
// SPDX-License-Identifier: MIT
#include "cli/picture_sink.h"

#include <array>
#include <utility>

namespace tarn
{

namespace
{

/// A slot name and its place. A picture has its lanes in this order.
struct NamedPlace
{
    const char* name;
    ChannelPlace place;
};

constexpr std::array kPlaces{NamedPlace{"FL", ChannelPlace::Left},        NamedPlace{"FC", ChannelPlace::Centre},
                             NamedPlace{"FR", ChannelPlace::Right},       NamedPlace{"SL", ChannelPlace::LeftBehind},
                             NamedPlace{"SR", ChannelPlace::RightBehind}, NamedPlace{"BL", ChannelPlace::LeftBehind},
                             NamedPlace{"BR", ChannelPlace::RightBehind}, NamedPlace{"LFE", ChannelPlace::Bass}};

/// Whether a slot is never silent.
bool hasSignal(const zrk_tarn::OutputSlot& slot, const EngineSettings& settings) noexcept
{
    using enum zrk_tarn::OutputSlot::Source;
    if (slot.source == Silence) return false;
    if (slot.source == Surround) return settings.room.surroundDb.has_value();
    if (slot.source == Lfe) return settings.room.lfeDb.has_value();
    return true;
}

PictureSource sourceOf(const Layout& layout, const EngineSettings& settings, std::uint32_t sampleRate)
{
    PictureSource source{.sampleRate = sampleRate, .slots = layout.slots, .channels = {}};
    for (const NamedPlace& named : kPlaces) {
        const auto slot = slotNamed(layout, named.name);
        const bool isSide = named.place == ChannelPlace::Left || named.place == ChannelPlace::Right;
        if (!slot || (settings.bypass ? !isSide : !hasSignal(layout.outputs[*slot], settings))) continue;
        source.channels.push_back({.name = named.name, .place = named.place, .slot = *slot});
    }
    return source;
}

} // namespace

PictureSink::PictureSink(const Layout& layout, const EngineSettings& settings, std::uint32_t sampleRate,
                         AudioSink* next)
    : collected(sourceOf(layout, settings, sampleRate)), sink(next)
{}

void PictureSink::write(const std::int32_t* samples, std::size_t frames)
{
    collected.push(samples, frames);
    if (sink != nullptr) sink->write(samples, frames);
}

void PictureSink::finish()
{
    if (sink != nullptr) sink->finish();
}

} // namespace tarn
