#pragma once

#include "audio/program/Ffmpeg.h"
#include "tags/AudioFacts.h"

#include <functional>
#include <optional>
#include <span>
#include <string>

namespace krl::audio {

/// An audio file, or the sound of a video, as stereo at 44.1 kHz. Reads from a descriptor and
/// nothing else; what the file is, its content alone says.
class Source {
public:
    /// @param descriptor lent; another source of it may follow, not be there at the same time
    /// @throw CannotPrepare when there is no sound in it
    explicit Source(int descriptor);

    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// What the file says of itself.
    tags::AudioFacts facts() const;

    /// How long it is; exact where the file says so, found out by decoding where it only guesses.
    double seconds();

    /// Takes frames; false when it has enough.
    using Take = std::function<bool(std::span<const float> samples)>;

    /// Gives the sound from a time on, exact to the sample.
    void read(double startSeconds, const Take& take);

    /// Parts of the file that could not be decoded so far.
    int damagedParts() const { return damagedParts_; }

private:
    void open();
    bool seekBefore(double seconds);
    bool readFrom(double startSeconds, bool seeking, const Take& take);
    bool decode(const AVPacket* packet, const std::function<bool(AVFrame&)>& take);
    bool convert(const AVFrame* frame, const Take& take);
    void adaptTo(const AVFrame& frame);

    /// What the resampler was made for.
    struct Form {
        int format = -1;
        int rate = 0;
        int channels = 0;

        friend bool operator==(const Form&, const Form&) = default;
    };

    double secondsOf(int64_t timestamp) const;

    const AVStream& stream() const { return *demuxer_->streams[stream_]; }

    int descriptor_;
    Io io_;
    Demuxer demuxer_;
    Codec decoder_;
    Resampler resampler_;
    Form form_;
    int stream_ = -1;
    int damagedParts_ = 0;
    bool fresh_ = true; ///< nothing was read yet
};

} // namespace krl::audio
