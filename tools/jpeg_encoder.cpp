#include "jpeg_encoder.h"

#include <cmath>

namespace kelqtool {

namespace {

// Position in the block (row * 8 + column) of each coefficient in the order
// the entropy coder sends them.
constexpr uint8_t zigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The example tables that come with the baseline format, in block order.
constexpr uint8_t luma_quant[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                                    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                                    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                                    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr uint8_t chroma_quant[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                      24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                      99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                      99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// Huffman tables: the number of codes of each length 1..16, then the values.
struct huffman_table {
    uint8_t counts[16];
    const uint8_t *values;
    int value_count;
};

constexpr uint8_t dc_values[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr uint8_t luma_ac_values[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22, 0x71,
    0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72,
    0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37,
    0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59,
    0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3,
    0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3,
    0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2,
    0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};
constexpr uint8_t chroma_ac_values[162] = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13, 0x22,
    0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1,
    0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36,
    0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58,
    0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a,
    0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a,
    0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba,
    0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda,
    0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

constexpr huffman_table luma_dc = {{0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}, dc_values, 12};
constexpr huffman_table chroma_dc = {{0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, dc_values, 12};
constexpr huffman_table luma_ac = {{0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d}, luma_ac_values, 162};
constexpr huffman_table chroma_ac = {{0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77}, chroma_ac_values, 162};

// Code and length of each value, built the canonical way from the counts.
struct huffman_code {
    uint16_t code[256] = {};
    uint8_t length[256] = {};

    explicit huffman_code(const huffman_table &table) {
        uint16_t next = 0;
        int k = 0;
        for (int len = 1; len <= 16; ++len) {
            for (int i = 0; i < table.counts[len - 1]; ++i, ++k) {
                code[table.values[k]] = next++;
                length[table.values[k]] = static_cast<uint8_t>(len);
            }
            next = static_cast<uint16_t>(next << 1);
        }
    }
};

class bit_writer {
public:
    explicit bit_writer(std::vector<uint8_t> &out) : out_(out) {}
    void put(uint32_t bits, int count) {
        for (int i = count - 1; i >= 0; --i) {
            acc_ = static_cast<uint8_t>((acc_ << 1) | ((bits >> i) & 1));
            if (++filled_ == 8) emit();
        }
    }
    // Pads the last byte with one bits, as decoders expect.
    void flush() {
        while (filled_ != 0) put(1, 1);
    }

private:
    void emit() {
        out_.push_back(acc_);
        if (acc_ == 0xFF) out_.push_back(0);  // a data byte 0xFF is followed by 0 so it is not read as a marker
        acc_ = 0;
        filled_ = 0;
    }
    std::vector<uint8_t> &out_;
    uint8_t acc_ = 0;
    int filled_ = 0;
};

int bit_count(int value) {
    int n = 0;
    for (unsigned v = static_cast<unsigned>(value < 0 ? -value : value); v != 0; v >>= 1) ++n;
    return n;
}

void put_value(bit_writer &bits, int value, int size) {
    // Negative values are sent as their one's complement in size bits.
    if (size > 0) bits.put(static_cast<uint32_t>(value < 0 ? value - 1 : value) & ((1u << size) - 1), size);
}

struct encoder_state {
    double cosines[8][8];  // cos((2x + 1) u pi / 16)
    uint8_t luma_q[64], chroma_q[64];
    huffman_code ldc{luma_dc}, lac{luma_ac}, cdc{chroma_dc}, cac{chroma_ac};

    explicit encoder_state(int quality) {
        const double pi = std::acos(-1.0);
        for (int x = 0; x < 8; ++x)
            for (int u = 0; u < 8; ++u) cosines[x][u] = std::cos((2 * x + 1) * u * pi / 16);
        if (quality < 1) quality = 1;
        if (quality > 100) quality = 100;
        const int scale = quality < 50 ? 5000 / quality : 200 - quality * 2;
        for (int i = 0; i < 64; ++i) {
            luma_q[i] = scaled(luma_quant[i], scale);
            chroma_q[i] = scaled(chroma_quant[i], scale);
        }
    }
    static uint8_t scaled(int q, int scale) {
        const int v = (q * scale + 50) / 100;
        return static_cast<uint8_t>(v < 1 ? 1 : v > 255 ? 255 : v);
    }

    // Transforms, quantises and codes one 8x8 block of samples (0..255).
    void block(const double samples[64], const uint8_t *quant, const huffman_code &dc, const huffman_code &ac,
               int &previous_dc, bit_writer &bits) const {
        int coeff[64];
        for (int u = 0; u < 8; ++u) {
            for (int v = 0; v < 8; ++v) {
                double sum = 0;
                for (int y = 0; y < 8; ++y)
                    for (int x = 0; x < 8; ++x) sum += (samples[y * 8 + x] - 128) * cosines[x][u] * cosines[y][v];
                const double cu = u == 0 ? std::sqrt(0.5) : 1.0, cv = v == 0 ? std::sqrt(0.5) : 1.0;
                coeff[v * 8 + u] = static_cast<int>(std::lround(0.25 * cu * cv * sum / quant[v * 8 + u]));
            }
        }
        const int diff = coeff[0] - previous_dc;
        previous_dc = coeff[0];
        const int size = bit_count(diff);
        bits.put(dc.code[size], dc.length[size]);
        put_value(bits, diff, size);
        int run = 0;
        for (int k = 1; k < 64; ++k) {
            const int c = coeff[zigzag[k]];
            if (c == 0) {
                ++run;
                continue;
            }
            for (; run > 15; run -= 16) bits.put(ac.code[0xF0], ac.length[0xF0]);
            const int s = bit_count(c);
            const int symbol = (run << 4) | s;
            bits.put(ac.code[symbol], ac.length[symbol]);
            put_value(bits, c, s);
            run = 0;
        }
        if (run > 0) bits.put(ac.code[0], ac.length[0]);
    }
};

void put16(std::vector<uint8_t> &out, int v) {
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v));
}

void put_huffman_table(std::vector<uint8_t> &out, int table_class_id, const huffman_table &table) {
    out.push_back(0xFF);
    out.push_back(0xC4);
    put16(out, 2 + 1 + 16 + table.value_count);
    out.push_back(static_cast<uint8_t>(table_class_id));
    out.insert(out.end(), table.counts, table.counts + 16);
    out.insert(out.end(), table.values, table.values + table.value_count);
}

}  // namespace

std::vector<uint8_t> encode_jpeg(const rgb_image &image, int quality) {
    const encoder_state enc(quality);
    std::vector<uint8_t> out = {0xFF, 0xD8,                                           // start of image
                                0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0};
    for (int table = 0; table < 2; ++table) {
        out.insert(out.end(), {0xFF, 0xDB, 0, 67, static_cast<uint8_t>(table)});
        const uint8_t *q = table == 0 ? enc.luma_q : enc.chroma_q;
        for (int k = 0; k < 64; ++k) out.push_back(q[zigzag[k]]);
    }
    // Frame header: three components, luma sampled 2x2 against chroma.
    out.insert(out.end(), {0xFF, 0xC0, 0, 17, 8});
    put16(out, image.height);
    put16(out, image.width);
    out.insert(out.end(), {3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1});
    put_huffman_table(out, 0x00, luma_dc);
    put_huffman_table(out, 0x10, luma_ac);
    put_huffman_table(out, 0x01, chroma_dc);
    put_huffman_table(out, 0x11, chroma_ac);
    out.insert(out.end(), {0xFF, 0xDA, 0, 12, 3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0});

    // Samples outside the picture repeat its last row and column.
    auto ycc = [&](int x, int y, double &Y, double &Cb, double &Cr) {
        x = x < image.width ? x : image.width - 1;
        y = y < image.height ? y : image.height - 1;
        const uint8_t *p = &image.pixels[(static_cast<size_t>(y) * image.width + x) * 3];
        Y = 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2];
        Cb = -0.168736 * p[0] - 0.331264 * p[1] + 0.5 * p[2] + 128;
        Cr = 0.5 * p[0] - 0.418688 * p[1] - 0.081312 * p[2] + 128;
    };
    bit_writer bits(out);
    int dc_y = 0, dc_cb = 0, dc_cr = 0;
    for (int my = 0; my < image.height; my += 16) {
        for (int mx = 0; mx < image.width; mx += 16) {
            double y_samples[4][64], cb[64] = {}, cr[64] = {};
            for (int y = 0; y < 16; ++y) {
                for (int x = 0; x < 16; ++x) {
                    double Y, Cb, Cr;
                    ycc(mx + x, my + y, Y, Cb, Cr);
                    y_samples[(y / 8) * 2 + x / 8][(y % 8) * 8 + x % 8] = Y;
                    cb[(y / 2) * 8 + x / 2] += Cb / 4;
                    cr[(y / 2) * 8 + x / 2] += Cr / 4;
                }
            }
            for (const double *block : y_samples) enc.block(block, enc.luma_q, enc.ldc, enc.lac, dc_y, bits);
            enc.block(cb, enc.chroma_q, enc.cdc, enc.cac, dc_cb, bits);
            enc.block(cr, enc.chroma_q, enc.cdc, enc.cac, dc_cr, bits);
        }
    }
    bits.flush();
    out.insert(out.end(), {0xFF, 0xD9});
    return out;
}

}  // namespace kelqtool
