// Decodes Ogg Opus with libopus.
// SPDX-License-Identifier: MIT
#include "cli/opus_decoder.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace tarn
{

namespace
{

constexpr int kRate = 48000;
constexpr int kMaxPacketFrames = kRate * 120 / 1000;

/// The first packet of a stream (RFC 7845, section 5.1).
struct OpusHead
{
    int channels = 0;
    std::uint64_t preSkip = 0; ///< frames
    int gain = 0;              ///< dB * 256
    int streams = 1;
    int coupledStreams = 0;
    std::array<unsigned char, 2> mapping{0, 1};
};

/// Reads the header of a mono or stereo stream.
///
/// Throws std::runtime_error for others.
OpusHead headOf(const ogg_packet& packet)
{
    constexpr std::size_t kFixedBytes = 19;
    constexpr std::size_t kMappingBytes = 2;
    const std::basic_string_view<unsigned char> bytes(packet.packet, static_cast<std::size_t>(packet.bytes));
    if (bytes.size() < kFixedBytes || bytes[8] >> 4 != 0) throw std::runtime_error("its Opus header is damaged");
    OpusHead head;
    head.channels = bytes[9];
    head.preSkip = bytes[10] | static_cast<unsigned>(bytes[11]) << 8;
    head.gain = static_cast<std::int16_t>(bytes[16] | static_cast<unsigned>(bytes[17]) << 8);
    head.coupledStreams = head.channels - 1;
    const int family = bytes[18];
    const auto channels = static_cast<std::size_t>(head.channels);
    if (channels < 1 || channels > 2 || family > 1) throw std::runtime_error("its Opus stream is not mono or stereo");
    if (family == 0) return head;
    if (bytes.size() < kFixedBytes + kMappingBytes + channels) throw std::runtime_error("its Opus header is damaged");
    head.streams = bytes[kFixedBytes];
    head.coupledStreams = bytes[kFixedBytes + 1];
    std::copy_n(bytes.begin() + kFixedBytes + kMappingBytes, channels, head.mapping.begin());
    return head;
}

} // namespace

OpusDecoder::OpusDecoder(int descriptor, ByteRange part, int serial) : OggDecoder(descriptor, part, serial)
{
    const std::int64_t preSkip = readHeader();
    // The first page with audio declares the start of the recording.
    while (!hasFrames() && decodePage()) {
    }
    const OggEnd end = oggEnd(descriptor, part, serial);
    const std::int64_t begin = firstPosition() + preSkip;
    facts.frames = end.isMarked ? std::max<std::int64_t>(end.granule - begin, 0) : SF_COUNT_MAX;
}

/// Reads the header and prepares libopus. Returns the frames to skip at the start.
std::int64_t OpusDecoder::readHeader()
{
    ogg_packet packet;
    if (!stream.nextPage() || stream.nextPacket(packet) != 1) throw std::runtime_error("its Opus header is damaged");
    const OpusHead head = headOf(packet);
    int error = OPUS_OK;
    decoder.reset(opus_multistream_decoder_create(kRate, head.channels, head.streams, head.coupledStreams,
                                                  head.mapping.data(), &error));
    if (decoder == nullptr || opus_multistream_decoder_ctl(decoder.get(), OPUS_SET_GAIN(head.gain)) != OPUS_OK)
        throw std::runtime_error("its Opus header is damaged");
    facts.samplerate = kRate;
    facts.channels = head.channels;
    facts.format = SF_FORMAT_OGG | SF_FORMAT_OPUS;
    positions = {.preSkip = head.preSkip, .maxTrim = std::numeric_limits<std::int64_t>::max()};
    return static_cast<std::int64_t>(head.preSkip);
}

bool OpusDecoder::decode(ogg_packet& packet, std::vector<float>& to)
{
    const std::string_view bytes(reinterpret_cast<const char*>(packet.packet), static_cast<std::size_t>(packet.bytes));
    // The second packet holds the tags. It can span many pages or be lost.
    if (bytes.starts_with("OpusTags")) return true;
    if (bytes.empty()) return false; // libopus would conceal the loss with synthetic audio
    const std::size_t before = to.size();
    const auto channels = static_cast<std::size_t>(facts.channels);
    to.resize(before + kMaxPacketFrames * channels);
    const int frames = opus_multistream_decode_float(
        decoder.get(), packet.packet, static_cast<opus_int32>(bytes.size()), to.data() + before, kMaxPacketFrames, 0);
    to.resize(before + static_cast<std::size_t>(std::max(frames, 0)) * channels);
    if (frames <= 0) return false;
    positions.packetFrames = frames;
    return true;
}

} // namespace tarn
