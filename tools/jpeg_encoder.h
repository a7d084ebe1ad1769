// A small baseline JPEG encoder for the tool's built-in sample: 8-bit
// YCbCr with 2x2 chroma subsampling, the usual example quantisation and
// Huffman tables, no restart markers. It favours few lines over speed; a few
// dozen frames of a small picture take milliseconds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelqtool {

// An RGB picture, three bytes per pixel, rows top to bottom.
struct rgb_image {
    int width = 0, height = 0;
    std::vector<uint8_t> pixels;  // width * height * 3

    rgb_image(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h * 3) {}
    void set(int x, int y, uint8_t r, uint8_t g, uint8_t b) {
        uint8_t *p = &pixels[(static_cast<size_t>(y) * width + x) * 3];
        p[0] = r;
        p[1] = g;
        p[2] = b;
    }
};

// The whole JPEG file (SOI to EOI) of the picture; quality 1..100 scales the
// quantisation tables the usual way (50 keeps them as they are).
std::vector<uint8_t> encode_jpeg(const rgb_image &image, int quality);

}  // namespace kelqtool
