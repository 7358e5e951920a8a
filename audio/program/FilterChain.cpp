#include "audio/program/FilterChain.h"

#include "audio/program/Ffmpeg.h"
#include "audio/program/SoundFrame.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <algorithm>
#include <cstring>

namespace krl::audio {
namespace {

constexpr size_t kPiece = 4096; ///< frames

/// A graph with the filters between a source and a sink, which it owns.
struct Chain {
    FilterGraph graph;
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
};

AVFilterContext* added(AVFilterGraph& graph, const char* filter, const char* arguments) {
    AVFilterContext* context = nullptr;
    required(avfilter_graph_create_filter(&context, required(avfilter_get_by_name(filter)), filter,
                                          arguments, nullptr, &graph));
    return context;
}

Chain chainOf(const std::string& filters) {
    Chain chain{FilterGraph(required(avfilter_graph_alloc()))};
    AVFilterGraph& graph = *chain.graph;
    graph.nb_threads = 1;
    chain.source =
        added(graph, "abuffer",
              "time_base=1/44100:sample_rate=44100:sample_fmt=flt:channel_layout=stereo");
    chain.sink = added(graph, "abuffersink", nullptr);
    AVFilterInOut* in = nullptr;
    AVFilterInOut* out = nullptr;
    const int parsed = avfilter_graph_parse2(&graph, filters.c_str(), &in, &out);
    const int linked =
        parsed < 0 || in == nullptr || out == nullptr
            ? AVERROR(EINVAL)
            : std::min(avfilter_link(chain.source, 0, in->filter_ctx,
                                     static_cast<unsigned>(in->pad_idx)),
                       avfilter_link(out->filter_ctx, static_cast<unsigned>(out->pad_idx),
                                     chain.sink, 0));
    avfilter_inout_free(&in);
    avfilter_inout_free(&out);
    required(linked);
    required(avfilter_graph_config(&graph, nullptr));
    return chain;
}

Frame piece(const Sound& sound, size_t from, size_t frames) {
    Frame frame = soundFrame(AV_SAMPLE_FMT_FLT, frames, from);
    std::memcpy(frame->data[0], sound.samples.data() + from * kChannels,
                frames * kChannels * sizeof(float));
    return frame;
}

} // namespace

void filter(const Sound& sound, const std::string& filters,
            const std::function<void(const AVFrame&)>& take) {
    const Chain chain = chainOf(filters);
    const Frame done = newFrame();
    const auto takeAll = [&] {
        while (av_buffersink_get_frame(chain.sink, done.get()) >= 0) {
            take(*done);
            av_frame_unref(done.get());
        }
    };
    for (size_t from = 0; from < sound.frames(); from += kPiece) {
        const Frame frame = piece(sound, from, std::min(kPiece, sound.frames() - from));
        required(av_buffersrc_add_frame(chain.source, frame.get()));
        takeAll();
    }
    required(av_buffersrc_add_frame(chain.source, nullptr));
    takeAll();
}

Sound filtered(const Sound& sound, const std::string& chain) {
    Sound result;
    result.samples.reserve(sound.samples.size());
    filter(sound, chain + ",aformat=sample_fmts=flt:sample_rates=44100:channel_layouts=stereo",
           [&](const AVFrame& frame) {
               const auto* samples = reinterpret_cast<const float*>(frame.data[0]);
               result.samples.insert(result.samples.end(), samples,
                                     samples + static_cast<size_t>(frame.nb_samples) * kChannels);
           });
    result.samples.resize(sound.samples.size());
    return result;
}

} // namespace krl::audio
