// The built-in sample: a short AVI file made with the library's writer, for
// 'kelqavi sample' and for commands run without a file of the user's.
#pragma once

#include "avi_output.h"

#include <cstdio>
#include <string>

namespace kelqtool {

// Writes the sample to path: three seconds at 10 frames a second of a
// 160x120 MJPEG picture with a bar moving across it (stream 0, named
// "Moving bar", with a strd block), a 440 Hz tone in 16-bit PCM at 8000 Hz
// (stream 1, "Tone"), a text-caption stream ("Subtitle (English)"), a
// bitmap-subtitle stream ("Subtitle bitmap", compression KQSB; each chunk
// begins with its time span "HH:MM:SS.mmm-HH:MM:SS.mmm" and a NUL, then a
// 32x8 picture of 4-bit pixels), a chapter stream ("Chapter list"), a
// metadata block and a menu block (in a LIST 'KQDT') and a LIST 'KMNU' menu list
// in the header area, and OpenDML indexes that are written out every
// second or so. out is left closed, holding the summary. False, with a
// reason in error, when the file cannot be written.
// standard: the writer's standard profile (what `kelqavi sample` writes by
// default), else the designed bytes.
bool write_sample_avi(const char *path, avi_output &out, bool standard, std::string &error);

// The same sample in a temporary file, returned open for reading at its
// first byte; the file goes away when the caller closes it. Null on failure,
// with a reason in error.
FILE *write_sample_file(std::string &error);

}  // namespace kelqtool
