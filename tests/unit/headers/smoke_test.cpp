#include <gtest/gtest.h>

#include "kelqavi.h"
#include "support/byte_image.h"

TEST(Smoke, ReadsValueFromImage) {
    kelqtest::temp_stream s(kelqtest::byte_image().u32(0x01020304));
    uint32_t v = 0;
    EXPECT_EQ(read_val32(&v, s), 0);
    EXPECT_EQ(v, 0x01020304u);
}
