// One picture out of a stream: decoded, and encoded as JPEG or PNG.
#pragma once

#include "media/access_units.h"

#include <string>

namespace tool
{

enum class picture_format { jpeg, png };

struct picture {
    int width = 0;
    int height = 0;
    byte_string bytes; // of the whole file
};

// Of a key frame with its parameter sets. Throws failure when it cannot be decoded; nothing of it
// is concealed.
picture picture_of(const byte_string& key_frame, zu::Codec codec, picture_format format);

} // namespace tool
