// FFmpeg's objects, each held by something that lets go of it, and its errors as exceptions.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <stdexcept>
#include <string>

namespace krl::audio {

/// What is read or written at a time.
constexpr int kIoBytes = 65536;

/// Why a song cannot be made a ringtone: a sentence about "it" without a full stop, and what to do.
class CannotPrepare : public std::runtime_error {
public:
    CannotPrepare(const std::string& problem, std::string advice)
        : std::runtime_error(problem), advice_(std::move(advice)) {}

    const std::string& advice() const { return advice_; }

private:
    std::string advice_;
};

/// A call that fails only when memory is exhausted or this program is wrong.
inline int required(int result) {
    if (result < 0) {
        throw std::runtime_error("FFmpeg fails: " + std::to_string(result));
    }
    return result;
}

template <typename T>
T* required(T* made) {
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

/// Lets go by a function that takes the pointer's address.
template <auto Free>
struct FreeByAddress {
    template <typename T>
    void operator()(T* object) const {
        Free(&object);
    }
};

struct FreeIo {
    void operator()(AVIOContext* io) const {
        av_freep(static_cast<void*>(&io->buffer));
        avio_context_free(&io);
    }
};

struct FreeMuxer {
    void operator()(AVFormatContext* muxer) const { avformat_free_context(muxer); }
};

using Io = std::unique_ptr<AVIOContext, FreeIo>;
using Demuxer = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using Muxer = std::unique_ptr<AVFormatContext, FreeMuxer>;
using Codec = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using Resampler = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;
using FilterGraph = std::unique_ptr<AVFilterGraph, FreeByAddress<avfilter_graph_free>>;

inline Packet newPacket() {
    return Packet(required(av_packet_alloc()));
}

inline Frame newFrame() {
    return Frame(required(av_frame_alloc()));
}

/// FFmpeg would open further files for this one: playlists, parts. None are.
inline int openNothing(AVFormatContext* /*context*/, AVIOContext** /*io*/, const char* /*url*/,
                       int /*flags*/, AVDictionary** /*options*/) {
    return AVERROR(EPERM);
}

} // namespace krl::audio
