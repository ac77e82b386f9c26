// Builds the filter graph and pulls pictures from its sink. A file is read by libavfilter's movie
// source, whose options are set one by one: no file name needs quoting that way. Filter threads are
// switched off; a stream's thread is enough for its pictures. The libraries' own lines are
// silenced, since a refusal here is an exception with one line. One thread.
#include "picture_source.h"

#include "virtual_camera/camera.h"

#include <cstring>
#include <stdexcept>
#include <unistd.h>
#include <utility>

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

namespace zucam
{

namespace
{

bool is_readable_file(const std::string& name)
{
    return access(name.c_str(), R_OK) == 0;
}

av::ends make_end(AVFilterContext* filter, unsigned pad, const char* name)
{
    av::ends end(avfilter_inout_alloc());
    if (end) {
        end->name = av_strdup(name);
        end->filter_ctx = filter;
        end->pad_idx = static_cast<int>(pad);
        end->next = nullptr;
    }
    return end;
}

} // namespace

picture_source::picture_source(std::string source, unsigned width, unsigned height, unsigned fps)
    : source_(std::move(source)), width_(width), height_(height), fps_(fps),
      frame_(av_frame_alloc())
{
    build();
    pull_or_begin_again();
}

// The constructor has already pulled the first picture, to find out early that there is one.
AVFrame* picture_source::next()
{
    if (std::exchange(first_waits_, false)) {
        return frame_.get();
    }
    pull_or_begin_again();
    return frame_.get();
}

void picture_source::pull_or_begin_again()
{
    if (pull()) {
        return;
    }
    build();
    if (pull()) {
        return;
    }
    stands_still_ = true;
    build();
    if (!pull()) {
        fail("it has no picture");
    }
}

void picture_source::build()
{
    av_log_set_level(AV_LOG_QUIET);
    sink_ = nullptr;
    graph_.reset(avfilter_graph_alloc());
    if (!graph_) {
        fail("no memory");
    }
    graph_->nb_threads = 1;
    AVFilterContext* const from = is_readable_file(source_) ? add_file() : add_graph();
    sink_ = add_sink();
    join(from, source_pad_, sink_, fitting_filters());
    const int result = avfilter_graph_config(graph_.get(), nullptr);
    if (result < 0) {
        fail(av::reason(result));
    }
}

AVFilterContext* picture_source::add_file()
{
    AVFilterContext* const movie =
        avfilter_graph_alloc_filter(graph_.get(), avfilter_get_by_name("movie"), "file");
    if (movie == nullptr) {
        fail("this FFmpeg cannot read files in a filter graph");
    }
    (void)av_opt_set(movie->priv, "filename", source_.c_str(), 0);
    const int result = avfilter_init_dict(movie, nullptr);
    if (result < 0) {
        fail(av::reason(result));
    }
    return movie;
}

// The default source makes its pictures in the right size and rate by itself.
std::string picture_source::graph_text() const
{
    if (source_ != "testsrc2") {
        return source_;
    }
    return source_ + "=size=" + std::to_string(width_) + "x" + std::to_string(height_) +
           ":rate=" + std::to_string(fps_);
}

AVFilterContext* picture_source::add_graph()
{
    AVFilterInOut* open_inputs = nullptr;
    AVFilterInOut* open_outputs = nullptr;
    const int result =
        avfilter_graph_parse2(graph_.get(), graph_text().c_str(), &open_inputs, &open_outputs);
    const av::ends inputs(open_inputs);
    const av::ends outputs(open_outputs);
    if (result < 0) {
        fail(av::reason(result));
    }
    if (inputs || !outputs || outputs->next != nullptr) {
        fail("a graph without inputs and with one output is wanted");
    }
    source_pad_ = static_cast<unsigned>(outputs->pad_idx);
    return outputs->filter_ctx;
}

AVFilterContext* picture_source::add_sink()
{
    AVFilterContext* made = nullptr;
    const int result = avfilter_graph_create_filter(&made, avfilter_get_by_name("buffersink"),
                                                    "sink", nullptr, nullptr, graph_.get());
    if (result < 0) {
        fail(av::reason(result));
    }
    return made;
}

void picture_source::join(AVFilterContext* from, unsigned pad, AVFilterContext* to,
                          const std::string& between)
{
    av::ends outputs = make_end(from, pad, "in");
    av::ends inputs = make_end(to, 0, "out");
    AVFilterInOut* open_outputs = outputs.release();
    AVFilterInOut* open_inputs = inputs.release();
    const int result = avfilter_graph_parse_ptr(graph_.get(), between.c_str(), &open_inputs,
                                                &open_outputs, nullptr);
    outputs.reset(open_outputs);
    inputs.reset(open_inputs);
    if (result < 0) {
        fail(av::reason(result));
    }
}

std::string picture_source::fitting_filters() const
{
    const std::string size = std::to_string(width_) + ":" + std::to_string(height_);
    const std::string still = stands_still_ ? "loop=loop=-1:size=1," : "";
    return still + "scale=" + size + ":force_original_aspect_ratio=decrease,pad=" + size +
           ":(ow-iw)/2:(oh-ih)/2,setsar=1,fps=" + std::to_string(fps_) + ",format=yuv420p";
}

// False at the source's end.
bool picture_source::pull()
{
    av_frame_unref(frame_.get());
    const int result = av_buffersink_get_frame(sink_, frame_.get());
    if (result < 0 && result != AVERROR_EOF) {
        fail(av::reason(result));
    }
    return result >= 0;
}

void picture_source::fail(const std::string& why) const
{
    const char* const kind = is_readable_file(source_)
                                 ? "' cannot be read as a picture or video file ("
                                 : "' is neither a readable file nor a filter graph (";
    throw std::runtime_error("'" + source_ + kind + why +
                             "); give a video file or a graph such as testsrc2");
}

void try_source(const std::string& source, unsigned width, unsigned height, unsigned fps)
{
    const picture_source tried(source, width, height, fps);
}

} // namespace zucam
