// Chunk ids, list types and form types the library looks for, as FourCC
// values (first character in the least significant byte).
#pragma once

#include "riff/le_bytes.h"

namespace kelq::ids {

constexpr uint32_t id_avih = fourcc("avih");
constexpr uint32_t id_idx1 = fourcc("idx1");
constexpr uint32_t id_idx1_swapped = fourcc("1idx");
constexpr uint32_t id_indx = fourcc("indx");
constexpr uint32_t id_junk = fourcc("JUNK");
constexpr uint32_t id_list = fourcc("LIST");
constexpr uint32_t id_menu = fourcc("MENU");
constexpr uint32_t id_mrif = fourcc("MRIF");
constexpr uint32_t id_mtda = fourcc("MTDA");
constexpr uint32_t id_odml = fourcc("odml");
constexpr uint32_t id_riff = fourcc("RIFF");
constexpr uint32_t id_strd = fourcc("strd");
constexpr uint32_t id_strf = fourcc("strf");
constexpr uint32_t id_strh = fourcc("strh");
constexpr uint32_t id_strl = fourcc("strl");
constexpr uint32_t id_strn = fourcc("strn");
constexpr uint32_t bitmap_caption_code = fourcc("KQSB");
constexpr uint32_t type_auds = fourcc("auds");
constexpr uint32_t type_avi = fourcc("AVI ");
constexpr uint32_t type_hdrl = fourcc("hdrl");
constexpr uint32_t type_kmnu = fourcc("KMNU");
constexpr uint32_t type_kqdt = fourcc("KQDT");
constexpr uint32_t type_movi = fourcc("movi");
constexpr uint32_t type_txts = fourcc("txts");
constexpr uint32_t type_vids = fourcc("vids");

}  // namespace kelq::ids
