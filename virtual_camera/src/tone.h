// The camera's sound: a sine tone, one channel, as G.711
// bytes. Each stream has a pitch of its own, so that an ear can tell streams
// apart. The two conversions keep no state and may be called from any thread; a
// tone is used by one thread, its stream's.
#ifndef ZUCAM_TONE_H
#define ZUCAM_TONE_H

#include "virtual_camera/camera.h"
#include "wire.h"

#include <cstdint>

namespace zucam
{

// One sample of 16-bit linear sound as a G.711 byte.
std::uint8_t ulaw_byte(std::int16_t sample);
std::uint8_t alaw_byte(std::int16_t sample);

class tone
{
public:
    // `rate` samples a second, volume 0 to 100.
    tone(audio_kind kind, unsigned hertz, unsigned rate, unsigned volume);

    // Appends the next samples.
    void append(wire::bytes& out, unsigned samples);

private:
    audio_kind kind_;
    double step_;     // radians per sample
    double loudness_; // of 32767
    double phase_ = 0;
};

} // namespace zucam

#endif
