// The fixed parts of RIFF chunks that the commands read beside the reader.
#pragma once

#include "kelqavi.h"

#include <cstdint>

namespace kelqtool {

constexpr int64_t chunk_header_size = 8;            // id and size
constexpr int64_t list_header_size = 12;            // id, size and list type
constexpr uint32_t placeholder_size = 0xFFFFFFFFu;  // a size its writer never patched
inline const uint32_t id_riff = make_fourCC("RIFF");
inline const uint32_t id_list = make_fourCC("LIST");

}  // namespace kelqtool
