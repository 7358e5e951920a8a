#pragma once

#include "audio/program/Ffmpeg.h"
#include "audio/program/Sound.h"

namespace krl::audio {

/// A frame of FFmpeg's with room for so much stereo sound at 44.1 kHz, which is at this position.
inline Frame soundFrame(AVSampleFormat format, size_t frames, size_t position) {
    Frame frame = newFrame();
    frame->format = format;
    frame->sample_rate = kRate;
    av_channel_layout_default(&frame->ch_layout, static_cast<int>(kChannels));
    frame->nb_samples = static_cast<int>(frames);
    frame->pts = static_cast<int64_t>(position);
    required(av_frame_get_buffer(frame.get(), 0));
    return frame;
}

} // namespace krl::audio
