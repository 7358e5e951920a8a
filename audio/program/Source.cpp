#include "audio/program/Source.h"

#include "audio/program/Sound.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace krl::audio {
namespace {

constexpr char kAnotherFile[] = "Take another file of the song.";

int descriptorIn(void* opaque) {
    return *static_cast<const int*>(opaque);
}

int readSong(void* opaque, uint8_t* bytes, int size) {
    const ssize_t count = ::read(descriptorIn(opaque), bytes, static_cast<size_t>(size));
    return count > 0 ? static_cast<int>(count) : count == 0 ? AVERROR_EOF : AVERROR(errno);
}

int64_t seekInSong(void* opaque, int64_t offset, int whence) {
    if (whence == AVSEEK_SIZE) {
        struct stat status = {};
        return ::fstat(descriptorIn(opaque), &status) == 0 ? status.st_size : AVERROR(errno);
    }
    const off_t position = ::lseek(descriptorIn(opaque), offset, whence & ~AVSEEK_FORCE);
    return position >= 0 ? position : AVERROR(errno);
}

Io ioOf(int& descriptor) {
    auto* buffer = static_cast<unsigned char*>(required(av_malloc(kIoBytes)));
    return Io(required(avio_alloc_context(buffer, kIoBytes, /*write_flag=*/0, &descriptor, readSong,
                                          nullptr, seekInSong)));
}

/// A track that only its buyer's devices decode. FFmpeg would give noise for it.
bool isEncrypted(const AVCodecParameters& parameters) {
    const auto tag = parameters.codec_tag;
    return tag == MKTAG('d', 'r', 'm', 's') || tag == MKTAG('e', 'n', 'c', 'a');
}

std::string textIn(const AVDictionary* metadata, const char* key) {
    const AVDictionaryEntry* entry = av_dict_get(metadata, key, nullptr, 0);
    return entry == nullptr ? "" : entry->value;
}

std::string codecName(const AVCodecParameters& parameters) {
    if (parameters.codec_id == AV_CODEC_ID_AAC) {
        return parameters.profile == FF_PROFILE_AAC_LOW ? tags::codec::kAacLc
               : parameters.profile == FF_PROFILE_AAC_HE ||
                       parameters.profile == FF_PROFILE_AAC_HE_V2
                   ? tags::codec::kHeAac
                   : tags::codec::kOtherAac;
    }
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(parameters.codec_id);
    return descriptor == nullptr ? tags::codec::kUnknown : descriptor->name;
}

} // namespace

Source::Source(int descriptor) : descriptor_(descriptor) {
    open();
}

void Source::open() {
    resampler_.reset();
    decoder_.reset();
    demuxer_.reset();
    ::lseek(descriptor_, 0, SEEK_SET);
    io_ = ioOf(descriptor_);
    AVFormatContext* demuxer = required(avformat_alloc_context());
    demuxer->pb = io_.get();
    demuxer->io_open = openNothing;
    demuxer->flags |= AVFMT_FLAG_CUSTOM_IO;
    // A failure lets go of it.
    if (avformat_open_input(&demuxer, "", nullptr, nullptr) < 0) {
        throw CannotPrepare("it is not known as a file with sound", kAnotherFile);
    }
    demuxer_.reset(demuxer);
    if (avformat_find_stream_info(demuxer, nullptr) < 0) {
        throw CannotPrepare("it is damaged", kAnotherFile);
    }
    const AVCodec* codec = nullptr;
    stream_ = av_find_best_stream(demuxer, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (stream_ < 0 || codec == nullptr) {
        throw CannotPrepare("there is no sound in it that can be decoded", kAnotherFile);
    }
    for (unsigned i = 0; i < demuxer->nb_streams; ++i) {
        demuxer->streams[i]->discard =
            static_cast<int>(i) == stream_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    if (isEncrypted(*stream().codecpar)) {
        throw CannotPrepare("it is encrypted, and plays on devices of its buyer's account only",
                            kAnotherFile);
    }
    decoder_.reset(required(avcodec_alloc_context3(codec)));
    required(avcodec_parameters_to_context(decoder_.get(), stream().codecpar));
    decoder_->pkt_timebase = stream().time_base;
    decoder_->thread_count = 1;
    if (avcodec_open2(decoder_.get(), codec, nullptr) < 0) {
        throw CannotPrepare("its sound cannot be decoded", kAnotherFile);
    }
    fresh_ = true;
}

tags::AudioFacts Source::facts() const {
    const AVCodecParameters& parameters = *stream().codecpar;
    tags::AudioFacts facts;
    facts.container = demuxer_->iformat->long_name;
    facts.codec = codecName(parameters);
    facts.channels = parameters.ch_layout.nb_channels;
    facts.sampleRate = parameters.sample_rate;
    facts.bits = std::max(parameters.bits_per_raw_sample, 0);
    facts.kilobits = static_cast<int>(
        (parameters.bit_rate > 0 ? parameters.bit_rate : demuxer_->bit_rate) / 1000);
    facts.lengthMs = demuxer_->duration > 0 ? demuxer_->duration / (AV_TIME_BASE / 1000) : 0;
    facts.title = textIn(demuxer_->metadata, "title");
    facts.artist = textIn(demuxer_->metadata, "artist");
    return facts;
}

double Source::seconds() {
    const bool said = demuxer_->duration > 0 &&
                      demuxer_->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
    if (said) {
        return static_cast<double>(demuxer_->duration) / AV_TIME_BASE;
    }
    size_t samples = 0;
    read(0, [&](std::span<const float> piece) {
        samples += piece.size();
        return true;
    });
    return static_cast<double>(samples / kChannels) / kRate;
}

void Source::read(double startSeconds, const Take& take) {
    // What a seek may cost is decoding from a little earlier; what it may spare, hours.
    constexpr double kWorthSeeking = 20;
    if (startSeconds > kWorthSeeking && readFrom(startSeconds, /*seeking=*/true, take)) {
        return;
    }
    readFrom(startSeconds, /*seeking=*/false, take);
}

bool Source::seekBefore(double seconds) {
    // Decoders need what comes before: MP3 keeps bits of a frame in earlier ones.
    constexpr double kRunUp = 1;
    const int64_t first = stream().start_time == AV_NOPTS_VALUE ? 0 : stream().start_time;
    const int64_t target =
        first + static_cast<int64_t>((seconds - kRunUp) / av_q2d(stream().time_base));
    return avformat_seek_file(demuxer_.get(), stream_, INT64_MIN, target, target, 0) >= 0;
}

double Source::secondsOf(int64_t timestamp) const {
    const int64_t first = stream().start_time == AV_NOPTS_VALUE ? 0 : stream().start_time;
    return static_cast<double>(timestamp - first) * av_q2d(stream().time_base);
}

/// @return false, before anything was given, when a seek did not lead to a place before the start
bool Source::readFrom(double startSeconds, bool seeking, const Take& take) {
    if (!fresh_) {
        open();
    }
    fresh_ = false;
    if (seeking && !seekBefore(startSeconds)) {
        return false;
    }
    const auto wanted = static_cast<int64_t>(std::llround(startSeconds * kRate));
    std::optional<int64_t> left; ///< frames to be left out
    bool lost = false;
    const auto takeWanted = [&](std::span<const float> samples) {
        const size_t dropped = std::min(static_cast<size_t>(*left) * kChannels, samples.size());
        *left -= static_cast<int64_t>(dropped / kChannels);
        return dropped == samples.size() || take(samples.subspan(dropped));
    };
    const auto takeFrame = [&](AVFrame& frame) {
        if (!left) {
            const bool known = frame.best_effort_timestamp != AV_NOPTS_VALUE;
            const double at = known ? secondsOf(frame.best_effort_timestamp) : 0;
            const auto position = static_cast<int64_t>(std::llround(at * kRate));
            lost = seeking && (!known || position > wanted);
            left = seeking ? wanted - position
                           : std::max<int64_t>(0, wanted - std::max<int64_t>(0, position));
        }
        return !lost && convert(&frame, takeWanted);
    };
    const Packet packet = newPacket();
    bool wants = true;
    while (wants && av_read_frame(demuxer_.get(), packet.get()) >= 0) {
        if (packet->stream_index == stream_) {
            wants = decode(packet.get(), takeFrame);
        }
        av_packet_unref(packet.get());
    }
    if (wants) {
        decode(nullptr, takeFrame);
        if (resampler_) {
            convert(nullptr, takeWanted);
        }
    }
    return !lost;
}

bool Source::decode(const AVPacket* packet, const std::function<bool(AVFrame&)>& take) {
    if (avcodec_send_packet(decoder_.get(), packet) < 0 && packet != nullptr) {
        ++damagedParts_;
        return true;
    }
    const Frame frame = newFrame();
    while (avcodec_receive_frame(decoder_.get(), frame.get()) >= 0) {
        if (frame->nb_samples > 0 && frame->sample_rate > 0 && !take(*frame)) {
            return false;
        }
    }
    return true;
}

/// Sound may change its rate or channels on the way.
void Source::adaptTo(const AVFrame& frame) {
    const Form form{frame.format, frame.sample_rate, frame.ch_layout.nb_channels};
    if (resampler_ && form == form_) {
        return;
    }
    form_ = form;
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    AVChannelLayout given;
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&given, frame.ch_layout.nb_channels);
    } else {
        given = frame.ch_layout;
    }
    SwrContext* resampler = resampler_.release();
    const int made = swr_alloc_set_opts2(&resampler, &stereo, AV_SAMPLE_FMT_FLT, kRate, &given,
                                         static_cast<AVSampleFormat>(frame.format),
                                         frame.sample_rate, 0, nullptr);
    resampler_.reset(resampler);
    if (made < 0 || swr_init(resampler) < 0) {
        throw CannotPrepare("its sound has a form that cannot be made stereo", kAnotherFile);
    }
}

bool Source::convert(const AVFrame* frame, const Take& take) {
    if (frame != nullptr) {
        adaptTo(*frame);
    }
    const int given = frame == nullptr ? 0 : frame->nb_samples;
    std::vector<float> samples(
        static_cast<size_t>(required(swr_get_out_samples(resampler_.get(), given))) * kChannels);
    std::array<uint8_t*, 1> out{reinterpret_cast<uint8_t*>(samples.data())};
    const auto** in =
        frame == nullptr ? nullptr : const_cast<const uint8_t**>(frame->extended_data);
    const int frames = required(swr_convert(
        resampler_.get(), out.data(), static_cast<int>(samples.size() / kChannels), in, given));
    return frames == 0 || take(std::span(samples).first(static_cast<size_t>(frames) * kChannels));
}

} // namespace krl::audio
