#include "cli/upmixer.h"

#include <algorithm>

namespace tarn
{

namespace
{

constexpr std::size_t kBlockFrames = 64;
constexpr std::size_t kCapacity = 4096;

} // namespace

Upmixer::Upmixer(const Layout& outputLayout, StreamFormat streamFormat, const EngineSettings& settings, bool aligned,
                 AudioSink& outputSink)
    : layout(outputLayout),
      format(streamFormat),
      align(aligned),
      sink(outputSink),
      frameBytes(std::size_t{outputLayout.slots} * streamFormat.bytesPerSample()),
      codes(outputLayout.codes),
      slots(kCapacity * frameBytes),
      toSkip(aligned ? kDelayFrames : 0)
{
    // The processor counts its modes from zero and wants a matrix that it may write to.
    processor.setup(settings.mode - 1, 0, settings.mixFraction);
    unsigned matrix[3][4];
    for (std::size_t row = 0; row < 3; ++row)
        std::copy(settings.remap[row].begin(), settings.remap[row].end(), matrix[row]);
    processor.set_remap_coeff(matrix);
}

void Upmixer::push(const std::int32_t* stereo, std::size_t frames)
{
    while (frames > 0) {
        const std::size_t taken = append(stereo, frames);
        consumed += taken;
        stereo += 2 * taken;
        frames -= taken;
        processWholeBlocks();
    }
}

void Upmixer::finish()
{
    if (align) appendSilence(kDelayFrames);
    appendSilence((kBlockFrames - filled % kBlockFrames) % kBlockFrames);
}

/// Takes as many frames as there is room for, which leaves all slots but the first two silent.
std::size_t Upmixer::append(const std::int32_t* stereo, std::size_t frames)
{
    const std::size_t taken = std::min(frames, kCapacity - filled);
    const std::uint32_t bytes = format.bytesPerSample();
    std::uint8_t* frame = slots.data() + filled * frameBytes;
    std::fill_n(frame, taken * frameBytes, std::uint8_t{0});
    for (std::size_t i = 0; i < taken; ++i, frame += frameBytes) {
        storePcm(frame, toWidth(stereo[2 * i], format.bits), bytes);
        storePcm(frame + bytes, toWidth(stereo[2 * i + 1], format.bits), bytes);
    }
    filled += taken;
    return taken;
}

void Upmixer::appendSilence(std::size_t frames)
{
    const std::vector<std::int32_t> silence(2 * frames);
    for (std::size_t done = 0; done < frames;) {
        done += append(silence.data() + 2 * done, frames - done);
        processWholeBlocks();
    }
}

void Upmixer::processWholeBlocks()
{
    const std::size_t whole = filled / kBlockFrames * kBlockFrames;
    if (whole == 0) return;
    processor.process(slots.data(), static_cast<std::uint32_t>(whole), layout.slots, format.sampleRate, format.bits,
                      &codes);
    deliver(whole);

    const auto from = slots.begin() + static_cast<std::ptrdiff_t>(whole * frameBytes);
    filled -= whole;
    std::copy_n(from, filled * frameBytes, slots.begin());
}

/// Writes the processed frames that are due: neither before the first of the input nor after its last.
void Upmixer::deliver(std::size_t frames)
{
    const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(frames, toSkip));
    const auto due = static_cast<std::size_t>(std::min<std::uint64_t>(frames - skipped, consumed - delivered));
    toSkip -= skipped;
    delivered += due;
    if (due > 0) sink.write(slots.data() + skipped * frameBytes, due);
}

} // namespace tarn
