// The camera's window onto its scene: cuts the part that the head looks at out of a picture of the
// whole scene, in the stream's size.
//
// The scene has one and a half times the stream's sides. At the widest zoom the window is as large
// as the stream, and nothing is copied; closer in, it is a smaller part, scaled up. Used by one
// thread, the stream's.
#ifndef ZUCAM_SCENE_WINDOW_H
#define ZUCAM_SCENE_WINDOW_H

#include "av.h"
#include "camera_head.h"

namespace zucam
{

// A side of the scene for a side of the stream; even.
constexpr unsigned scene_side(unsigned side)
{
    return side * 3 / 2 & ~1U;
}

class scene_window
{
public:
    scene_window(unsigned width, unsigned height);

    // The picture stays the window's and is valid until the next call, and no longer than `scene`.
    AVFrame* cut(const AVFrame& scene, const head_view& view);

private:
    AVFrame* scaled();

    int width_;
    int height_;
    av::frame part_;
    av::frame whole_; // the scaled picture
    av::scaler scaler_;
};

} // namespace zucam

#endif
