// Pictures without end, of one size and rate, from a libavfilter graph or a file.
//
// The graph is source, then fitting: whole picture scaled into the size (bars where the shapes
// differ), the frame rate made constant, planar 4:2:0. What is to be done to the scene before it is
// fitted belongs in front of fitting_filters(). A source that ends begins again; one that is over
// before it fills a frame time, such as a picture file, stands still. Used by one thread.
#ifndef ZUCAM_PICTURE_SOURCE_H
#define ZUCAM_PICTURE_SOURCE_H

#include "av.h"

#include <string>

namespace zucam
{

class picture_source
{
public:
    // Throws std::runtime_error with one clear line.
    picture_source(std::string source, unsigned width, unsigned height, unsigned fps);

    // The next picture; it stays the source's and is valid until the next call. Throws like above.
    AVFrame* next();

private:
    void build();
    AVFilterContext* add_file();
    AVFilterContext* add_graph();
    AVFilterContext* add_sink();
    void join(AVFilterContext* from, unsigned pad, AVFilterContext* to, const std::string& between);
    std::string graph_text() const;
    std::string fitting_filters() const;
    bool pull();
    void pull_or_begin_again();
    [[noreturn]] void fail(const std::string& why) const;

    const std::string source_;
    const unsigned width_;
    const unsigned height_;
    const unsigned fps_;
    av::graph graph_;
    AVFilterContext* sink_ = nullptr; // the graph's
    unsigned source_pad_ = 0;
    bool stands_still_ = false;
    av::frame frame_;
    bool first_waits_ = true; // pulled by the constructor, not handed out yet
};

} // namespace zucam

#endif
