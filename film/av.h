// Owners of FFmpeg's objects, and its errors as failures.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/failure.h"

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace tarn
{

/// Frees an object of FFmpeg with a function that takes a pointer to the pointer.
template <auto kFree>
struct Free
{
    template <typename T>
    void operator()(T* object) const noexcept
    {
        kFree(&object);
    }
};

using Packet = std::unique_ptr<AVPacket, Free<av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, Free<av_frame_free>>;
using Codec = std::unique_ptr<AVCodecContext, Free<avcodec_free_context>>;
using Resampler = std::unique_ptr<SwrContext, Free<swr_free>>;
using InputContext = std::unique_ptr<AVFormatContext, Free<avformat_close_input>>;

/// The text of an error of FFmpeg.
inline std::string textOf(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    return av_strerror(error, text, sizeof text) == 0 ? text : "unknown error";
}

/// Throws Failure (EX_SOFTWARE) for a null pointer: out of memory.
template <typename T>
T allocated(T object)
{
    if (!object) throw Failure(EX_SOFTWARE, "out of memory");
    return object;
}

/// Throws Failure for an error of FFmpeg; else returns the result.
///
/// what  begins with the name of the file
inline int checked(int result, int exitCode, const std::string& what)
{
    if (result < 0) throw Failure(exitCode, what + ": " + textOf(result));
    return result;
}

inline Packet newPacket()
{
    return allocated(Packet(av_packet_alloc()));
}

inline Frame newFrame()
{
    return allocated(Frame(av_frame_alloc()));
}

} // namespace tarn
