// Cutting is moving the plane pointers of a reference to the scene's picture; positions and sizes
// are even, since colour has half the resolution. A scaler is kept for as long as the window keeps
// its size. One thread.
#include "scene_window.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace zucam
{

namespace
{

constexpr double widest = 1000;
constexpr int smallest_part = 8;

int even(double value)
{
    return static_cast<int>(std::lround(value / 2)) * 2;
}

int part_size(int full, double zoom)
{
    return std::clamp(even(full * widest / zoom), std::min(full, smallest_part), full);
}

// Where a part begins in the scene: `turn` is -1000 to 1000.
int part_begin(int scene, int part, double turn)
{
    return std::clamp(even((scene - part) * (turn + 1000) / 2000), 0, scene - part);
}

void fail()
{
    throw std::runtime_error("no memory for a picture");
}

} // namespace

scene_window::scene_window(unsigned width, unsigned height)
    : width_(static_cast<int>(width)), height_(static_cast<int>(height)), part_(av_frame_alloc()),
      whole_(av_frame_alloc())
{
    if (!part_ || !whole_) {
        fail();
    }
}

AVFrame* scene_window::cut(const AVFrame& scene, const head_view& view)
{
    av_frame_unref(part_.get());
    if (av_frame_ref(part_.get(), &scene) < 0) {
        fail();
    }
    const int width = part_size(width_, view.zoom);
    const int height = part_size(height_, view.zoom);
    const int left = part_begin(scene.width, width, view.pan);
    const int top = part_begin(scene.height, height, -view.tilt);
    part_->crop_left = static_cast<std::size_t>(left);
    part_->crop_top = static_cast<std::size_t>(top);
    part_->crop_right = static_cast<std::size_t>(scene.width - width - left);
    part_->crop_bottom = static_cast<std::size_t>(scene.height - height - top);
    if (av_frame_apply_cropping(part_.get(), AV_FRAME_CROP_UNALIGNED) < 0) {
        fail();
    }
    return width == width_ && height == height_ ? part_.get() : scaled();
}

AVFrame* scene_window::scaled()
{
    scaler_.reset(sws_getCachedContext(scaler_.release(), part_->width, part_->height,
                                       AV_PIX_FMT_YUV420P, width_, height_, AV_PIX_FMT_YUV420P,
                                       SWS_BILINEAR, nullptr, nullptr, nullptr));
    av_frame_unref(whole_.get());
    whole_->format = AV_PIX_FMT_YUV420P;
    whole_->width = width_;
    whole_->height = height_;
    if (!scaler_ || av_frame_get_buffer(whole_.get(), 0) < 0) {
        fail();
    }
    (void)sws_scale(scaler_.get(), part_->data, part_->linesize, 0, part_->height, whole_->data,
                    whole_->linesize);
    return whole_.get();
}

} // namespace zucam
