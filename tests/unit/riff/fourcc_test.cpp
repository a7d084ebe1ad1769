// FourCC text forms, comparison, and the data-chunk ids in both layouts.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kelqavi.h"
#include "unit/riff/riff_walk.h"

using kelqtest::fourcc_text;

namespace {

// The id of four characters as they stand in the file, NULs included.
uint32_t cc(const char (&text)[5]) { return str2long(reinterpret_cast<const uint8_t *>(text)); }

}  // namespace

TEST(FourCC, TextForms) {
    EXPECT_EQ(make_fourCC("RIFF"), 0x46464952u);
    EXPECT_EQ(make_fourCC("strhXYZ"), cc("strh"));
    // Reading stops at a NUL; a short text leaves zero bytes behind it.
    EXPECT_EQ(make_fourCC("ab"), 0x00006261u);
    EXPECT_EQ(make_fourCC(""), 0u);
    EXPECT_EQ(make_fourCC(nullptr), 0u);

    char t[7] = "xxxxxx";
    fourCC_to_str(0x63643030u, t);
    EXPECT_STREQ(t, "00dc");
    EXPECT_EQ(t[5], 'x') << "only five bytes are written";
    fourCC_to_str(cc("a\0b\0"), t);
    EXPECT_EQ(0, std::memcmp(t, "a\0b\0\0", 5));
    fourCC_to_str(1, nullptr);  // tolerated
}

TEST(FourCC, EqualIgnoresAsciiCaseOnly) {
    struct { uint32_t a, b; int equal; } const cases[] = {
        {cc("strh"), cc("STRH"), 1}, {cc("avih"), cc("AvIh"), 1}, {cc("AVI "), cc("avi "), 1}, {cc("00dc"), cc("00DC"), 1},
        {cc("strh"), cc("strf"), 0}, {cc("strh"), cc("trhs"), 0}, {cc("LIST"), cc("RIFF"), 0}, {cc("1234"), cc("1234"), 1},
        // Characters that differ by the case bit but are not letters.
        {cc("a@cd"), cc("a`cd"), 0}, {cc("[abc"), cc("{abc"), 0},
        // A NUL ends the comparison early.
        {cc("ab\0c"), cc("AB\0d"), 1}, {cc("\0xyz"), cc("\0abc"), 1}, {cc("ab\0\0"), cc("abc\0"), 0}, {0, 0, 1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(fourCC_equal(c.a, c.b), c.equal) << fourcc_text(c.a) << " vs " << fourcc_text(c.b);
        EXPECT_EQ(fourCC_equal(c.b, c.a), c.equal) << fourcc_text(c.b) << " vs " << fourcc_text(c.a);
    }
}

TEST(FourCC, CreateDataChunkIds) {
    struct { int32_t stream, type; uint32_t swapped; uint32_t expected; } const cases[] = {
        {1, 1, 0, cc("01wb")}, {0, 3, 1, cc("dc00")}, {5, 8, 0, cc("05ix")}, {5, 8, 1, cc("ix05")}, {0, 2, 0, cc("00db")},
        {12, 4, 0, cc("12dd")}, {18, 5, 0, cc("18st")}, {3, 6, 1, cc("sb03")}, {7, 7, 0, cc("07ch")}, {19, 1, 7, cc("wb19")},
        {99, 2, 0, cc("99db")}, {90, 8, 1, cc("ix90")}, {45, 3, 1, cc("dc45")},
        // Types outside 1..8 give no id at all, swapped or not.
        {5, 0, 0, 0}, {5, 0, 1, 0}, {5, 9, 0, 0}, {5, 10, 0, 0}, {5, -1, 1, 0},
        // Three-digit and negative numbers: the first four characters of the text.
        {100, 3, 0, cc("100d")}, {12345, 1, 0, cc("1234")}, {-1, 1, 0, cc("-1wb")}, {-5, 3, 1, cc("dc-5")},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(fourcc_text(create_fourCC(c.stream, c.type, c.swapped)), fourcc_text(c.expected))
            << "stream " << c.stream << " type " << c.type << " swapped " << c.swapped;
    }
}

TEST(FourCC, ChunkTypes) {
    struct { const char text[5]; uint32_t swapped; int32_t type; } const cases[] = {
        {"01wb", 0, 1}, {"00db", 0, 2}, {"00dc", 0, 3}, {"00dd", 0, 4}, {"00st", 0, 5}, {"00sb", 0, 6}, {"00ch", 0, 7},
        {"00ix", 0, 8},
        // Normal-layout ids stay recognised with swapped set; swapped ones only when asked for.
        {"01wb", 1, 1}, {"00ix", 1, 8}, {"wb01", 0, 0}, {"wb01", 1, 1}, {"dc00", 1, 3}, {"ix00", 1, 8},
        // Any other "d?" suffix stops at once, with no retry the other way round.
        {"00dx", 0, 0}, {"00dx", 1, 0}, {"wbdx", 1, 0}, {"dcd\0", 1, 0}, {"wbxx", 1, 1},
        // Filler and reserved chunks, case-sensitive, in either flag.
        {"JUNK", 0, 10}, {"junk", 1, 0}, {"res1", 0, 0}, {"RES1", 0, 11}, {"RES3", 1, 11}, {"RES0", 0, 0}, {"RES4", 0, 0},
        // The retry exchanges the pairs of anything not recognised.
        {"NKJU", 0, 0}, {"NKJU", 1, 10}, {"S2RE", 1, 11}, {"LIST", 1, 0}, {"idx1", 1, 0}, {"\0\0\0\0", 1, 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(get_chunk_type(cc(c.text), c.swapped), c.type) << fourcc_text(cc(c.text)) << " swapped " << c.swapped;
    }
}

TEST(FourCC, StreamIds) {
    const uint32_t none = 0xFFFFFFFFu;
    struct { const char text[5]; uint32_t swapped; uint32_t stream; } const cases[] = {
        {"ix12", 0, 12}, {"12ix", 0, 12}, {"00dc", 0, 0}, {"99wb", 0, 99}, {"07dc", 1, 7}, {"dc07", 1, 7},
        {"dc07", 0, none}, {"LIST", 1, none}, {"0adc", 0, none}, {"0adc", 1, none}, {"a1dc", 0, none}, {"  01", 1, 1},
        // After "ix" the characters are taken as digits whatever they are.
        {"ixAB", 0, ('A' - '0') * 10 + ('B' - '0')}, {"ix  ", 0, static_cast<uint32_t>((' ' - '0') * 10 + (' ' - '0'))},
        {"ix0\0", 0, static_cast<uint32_t>(-'0')},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(fourCC_streamID(cc(c.text), c.swapped), c.stream) << fourcc_text(cc(c.text)) << " swapped " << c.swapped;
    }
}
