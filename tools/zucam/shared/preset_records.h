// The list of presets: numbered positions of the camera head.
#pragma once

#include "shared/records.h"

namespace tool
{

json presets_as_json(const record_bytes& record); // an array
std::vector<std::string> presets_as_lines(const record_bytes& record);

// KEY is a preset's number, VALUE its position PAN,TILT,ZOOM[,FOCUS], or "none" to take it off the
// list. Throws failure.
void change_presets(record_bytes& record, const std::string& key, const std::string& value);

} // namespace tool
