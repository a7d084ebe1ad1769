// A small AVI file written with the library's own chunk and header-record
// writers, for commands run without a file of the user's.
#pragma once

#include <cstdio>
#include <string>

namespace kelqtool {

// Writes the sample to a fresh tmpfile() and returns it positioned at its
// first byte; the caller closes it (the file goes away with it). Null on
// failure, with a reason in error.
//
// The sample is a RIFF 'AVI ' form holding: LIST 'hdrl' (avih; a video
// LIST 'strl' with strh, strf, an odd-length strn name and strd; an audio
// LIST 'strl' with strh, strf and strn), a JUNK chunk that moves the data to
// a 2048-byte boundary, LIST 'movi' with one video frame "00dc" and one
// audio chunk "01wb" of odd size (so it carries a pad byte), and idx1.
FILE *write_sample_file(std::string &error);

}  // namespace kelqtool
