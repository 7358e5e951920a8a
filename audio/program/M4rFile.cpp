#include "audio/program/M4rFile.h"

#include "audio/program/Ffmpeg.h"
#include "audio/program/SoundFrame.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace krl::audio {
namespace {

constexpr int kBitRate = 160'000;

/// A file in memory and a place in it.
struct Place {
    std::vector<uint8_t>* file;
    size_t position = 0;
};

int readBytes(void* opaque, uint8_t* bytes, int size) {
    auto& [file, position] = *static_cast<Place*>(opaque);
    const size_t count =
        std::min(static_cast<size_t>(size), file->size() - std::min(position, file->size()));
    std::memcpy(bytes, file->data() + position, count);
    position += count;
    return count == 0 ? AVERROR_EOF : static_cast<int>(count);
}

int writeBytes(void* opaque, uint8_t* bytes, int size) {
    auto& [file, position] = *static_cast<Place*>(opaque);
    const size_t end = position + static_cast<size_t>(size);
    file->resize(std::max(file->size(), end));
    std::memcpy(file->data() + position, bytes, static_cast<size_t>(size));
    position = end;
    return size;
}

int64_t seekTo(void* opaque, int64_t offset, int whence) {
    auto& [file, position] = *static_cast<Place*>(opaque);
    if (whence == AVSEEK_SIZE) {
        return static_cast<int64_t>(file->size());
    }
    if (whence != SEEK_SET || offset < 0) {
        return AVERROR(EINVAL);
    }
    position = static_cast<size_t>(offset);
    return offset;
}

Io ioOf(Place& place, bool writing) {
    auto* buffer = static_cast<unsigned char*>(required(av_malloc(kIoBytes)));
    return Io(required(avio_alloc_context(buffer, kIoBytes, writing ? 1 : 0, &place, readBytes,
                                          writeBytes, seekTo)));
}

/// A muxer into memory. Putting the index in front makes it read what it has written, over a
/// second connection to the same bytes.
class File {
public:
    File() : place_{&bytes_}, secondPlace_{&bytes_}, io_(ioOf(place_, /*writing=*/true)) {
        AVFormatContext* muxer = nullptr;
        required(avformat_alloc_output_context2(&muxer, nullptr, "ipod", nullptr));
        muxer_.reset(muxer);
        muxer->pb = io_.get();
        muxer->opaque = this;
        muxer->io_open = [](AVFormatContext* context, AVIOContext** io, const char* /*url*/,
                            int /*flags*/, AVDictionary** /*options*/) {
            auto* file = static_cast<File*>(context->opaque);
            file->secondPlace_.position = 0;
            *io = ioOf(file->secondPlace_, /*writing=*/false).release();
            return 0;
        };
        muxer->io_close2 = [](AVFormatContext* /*context*/, AVIOContext* io) {
            FreeIo()(io);
            return 0;
        };
        muxer->flags |= AVFMT_FLAG_BITEXACT;
    }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    AVFormatContext& muxer() { return *muxer_; }

    std::vector<uint8_t> takeBytes() {
        avio_flush(io_.get());
        return std::move(bytes_);
    }

private:
    std::vector<uint8_t> bytes_;
    Place place_;
    Place secondPlace_;
    Io io_;
    Muxer muxer_;
};

Codec openEncoder(const AVFormatContext& muxer) {
    const AVCodec* codec = required(avcodec_find_encoder(AV_CODEC_ID_AAC));
    Codec encoder(required(avcodec_alloc_context3(codec)));
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->sample_rate = kRate;
    av_channel_layout_default(&encoder->ch_layout, static_cast<int>(kChannels));
    encoder->bit_rate = kBitRate;
    encoder->profile = FF_PROFILE_AAC_LOW;
    encoder->time_base = {1, kRate};
    encoder->thread_count = 1;
    encoder->flags |= AV_CODEC_FLAG_BITEXACT;
    if ((muxer.oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    required(avcodec_open2(encoder.get(), codec, nullptr));
    return encoder;
}

/// A frame of the encoder's size, filled up with silence at the end.
Frame frameAt(const Sound& sound, size_t from, int size) {
    Frame frame = soundFrame(AV_SAMPLE_FMT_FLTP, static_cast<size_t>(size), from);
    for (size_t channel = 0; channel < kChannels; ++channel) {
        auto* samples = reinterpret_cast<float*>(frame->data[channel]);
        for (size_t i = 0; i < static_cast<size_t>(size); ++i) {
            samples[i] =
                from + i < sound.frames() ? sound.samples[(from + i) * kChannels + channel] : 0.0F;
        }
    }
    return frame;
}

/// Decodes what was encoded, as a phone will: that may overshoot.
class OvershootMeter {
public:
    explicit OvershootMeter(const AVCodecContext& encoder) {
        const AVCodec* codec = required(avcodec_find_decoder(encoder.codec_id));
        decoder_.reset(required(avcodec_alloc_context3(codec)));
        const std::unique_ptr<AVCodecParameters, FreeByAddress<avcodec_parameters_free>> parameters(
            required(avcodec_parameters_alloc()));
        required(avcodec_parameters_from_context(parameters.get(), &encoder));
        required(avcodec_parameters_to_context(decoder_.get(), parameters.get()));
        decoder_->thread_count = 1;
        required(avcodec_open2(decoder_.get(), codec, nullptr));
    }

    void hear(const AVPacket* packet) {
        required(avcodec_send_packet(decoder_.get(), packet));
        while (avcodec_receive_frame(decoder_.get(), frame_.get()) >= 0) {
            for (size_t channel = 0; channel < kChannels; ++channel) {
                const auto* samples = reinterpret_cast<const float*>(frame_->data[channel]);
                for (int i = 0; i < frame_->nb_samples; ++i) {
                    peak_ = std::max(peak_, std::abs(samples[i]));
                }
            }
        }
    }

    float peak() const { return peak_; }

private:
    Codec decoder_;
    Frame frame_ = newFrame();
    float peak_ = 0;
};

void encode(AVCodecContext& encoder, const AVFrame* frame, File& file, OvershootMeter& meter) {
    required(avcodec_send_frame(&encoder, frame));
    const Packet packet = newPacket();
    while (avcodec_receive_packet(&encoder, packet.get()) >= 0) {
        meter.hear(packet.get());
        av_packet_rescale_ts(packet.get(), encoder.time_base, file.muxer().streams[0]->time_base);
        required(av_write_frame(&file.muxer(), packet.get()));
        av_packet_unref(packet.get());
    }
}

void writeHead(AVFormatContext& muxer, const AVCodecContext& encoder, const std::string& title,
               const std::string& artist) {
    AVStream* stream = required(avformat_new_stream(&muxer, nullptr));
    stream->time_base = encoder.time_base;
    required(avcodec_parameters_from_context(stream->codecpar, &encoder));
    if (!title.empty()) {
        required(av_dict_set(&muxer.metadata, "title", title.c_str(), 0));
    }
    if (!artist.empty()) {
        required(av_dict_set(&muxer.metadata, "artist", artist.c_str(), 0));
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+faststart", 0);
    // Early readers ignore an edit list or stumble over it.
    av_dict_set(&options, "use_editlist", "0", 0);
    const int written = avformat_write_header(&muxer, &options);
    av_dict_free(&options);
    required(written);
}

} // namespace

M4rFile m4rFile(const Sound& sound, const std::string& title, const std::string& artist) {
    File file;
    const Codec encoder = openEncoder(file.muxer());
    OvershootMeter meter(*encoder);
    writeHead(file.muxer(), *encoder, title, artist);
    for (size_t from = 0; from < sound.frames(); from += static_cast<size_t>(encoder->frame_size)) {
        encode(*encoder, frameAt(sound, from, encoder->frame_size).get(), file, meter);
    }
    encode(*encoder, nullptr, file, meter);
    meter.hear(nullptr);
    required(av_write_trailer(&file.muxer()));
    return {file.takeBytes(), meter.peak()};
}

} // namespace krl::audio
