// Walks a RIFF tree with the list calls the way a reader does, recording what
// it meets, for the list and chunk-writing tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelqavi.h"

namespace kelqtest {

inline std::string fourcc_text(uint32_t code) {
    char t[5];
    fourCC_to_str(code, t);
    return std::string(t, 4);
}

// At each step: test the end, take the next chunk, enter a LIST, otherwise read
// the chunk whole; then go on at the cursor. Each chunk met is recorded as
// "depth id size data", a LIST as "depth LIST type". Gives up (and says so)
// after max_steps, so a loop in the library cannot hang the test.
struct walker {
    walker(FILE *s, int limit) : stream(s), max_steps(limit) {}
    FILE *stream;
    int max_steps;
    int steps = 0;
    bool gave_up = false;
    std::vector<std::string> seen;

    void walk(list_node *node) {
        while (!end_of_list(node) && !gave_up) {
            gave_up = ++steps > max_steps;
            const int64_t here = node->next_pos;
            const std::string id = fourcc_text(next_chunk_in_list(node));
            EXPECT_EQ(file_tell(stream), here) << "the stream must stand at the chunk's header";
            uint32_t size = 0;
            read_val32(nullptr, stream);
            read_val32(&size, stream);
            const std::string depth = std::to_string(node->depth) + " ";
            list_node *child = nullptr;
            if (id == "LIST" && file_seek(stream, here, 0) == 0 && (child = new_list(node, stream)) != nullptr) {
                seen.push_back(depth + "LIST " + fourcc_text(child->type));
                EXPECT_EQ(child->parent, node);
                EXPECT_EQ(child->depth, node->depth + 1);
                walk(child);
                EXPECT_EQ(ascend_list(child), node);
            } else if (id != "LIST") {
                std::string body(size < 256 ? size : 256, '\0');
                body.resize(file_read(stream, &body[0], body.size()));
                seen.push_back(depth + id + " " + std::to_string(size) + " " + body);
                EXPECT_EQ(node->next_pos, here + 8 + padEven(size));
            }
            file_seek(stream, node->next_pos, 0);
        }
    }
};

}  // namespace kelqtest
