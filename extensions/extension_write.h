// Writing the extension data (metadata and menu blocks) and copying prepared
// menu-form files into the output.
#pragma once

#include "kelqavi.h"

#include <cstdint>

namespace kelq {

constexpr size_t menu_copy_block = 1000;
constexpr size_t menu_position_at = 20;       // bytes 20..27 of a menu file
constexpr size_t menu_position_width = 8;

// The "MTDA" and "MENU" chunks, in a LIST "KQDT" when extension_list is set.
// Returns the writer's error word.
uint32_t write_kqdt(aviout_handle *w);
// Copies the file at path in at the current position.
void write_menu_chunk(const char *path, aviout_handle *w);

}  // namespace kelq
