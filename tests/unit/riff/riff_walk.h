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

struct visit {
    int64_t pos;       // of the chunk header
    uint32_t depth;    // of the list holding the chunk
    std::string id;
    uint32_t size;     // as read from the chunk header
    std::string body;  // list type of a LIST, else the chunk's data as read

    // "depth id size body", the size left out for lists.
    std::string line() const {
        return std::to_string(depth) + " " + id + " " + (id == "LIST" ? body : std::to_string(size) + " " + body);
    }
};

// At each step: test the end, take the next chunk, enter a LIST, otherwise read
// the chunk whole; then go on at the cursor. Gives up (and says so) after
// max_steps, so a loop in the library cannot hang the test.
struct walker {
    walker(FILE *s, int limit) : stream(s), max_steps(limit) {}
    FILE *stream;
    int max_steps;
    int steps = 0;
    bool gave_up = false;
    std::vector<visit> seen;

    void walk(list_node *node) {
        while (!end_of_list(node)) {
            if (++steps > max_steps) {
                gave_up = true;
                return;
            }
            const int64_t here = node->next_pos;
            const uint32_t id = next_chunk_in_list(node);
            EXPECT_EQ(file_tell(stream), here) << "the stream must stand at the chunk's header";
            visit v{here, node->depth, fourcc_text(id), 0, {}};
            read_val32(nullptr, stream);
            read_val32(&v.size, stream);
            if (fourCC_equal(id, make_fourCC("LIST"))) {
                file_seek(stream, here, 0);
                list_node *child = new_list(node, stream);
                if (child != nullptr) v.body = fourcc_text(child->type);
                seen.push_back(v);
                if (child != nullptr) {
                    EXPECT_EQ(child->parent, node);
                    EXPECT_EQ(child->depth, node->depth + 1);
                    walk(child);
                    EXPECT_EQ(ascend_list(child), node);
                }
                if (gave_up) return;
            } else {
                v.body.resize(v.size < 256 ? v.size : 256);
                v.body.resize(file_read(stream, &v.body[0], v.body.size()));
                seen.push_back(v);
                EXPECT_EQ(node->next_pos, here + 8 + padEven(v.size));
            }
            file_seek(stream, node->next_pos, 0);
        }
    }

    std::vector<std::string> lines() const {
        std::vector<std::string> out;
        for (const visit &v : seen) out.push_back(v.line());
        return out;
    }
};

}  // namespace kelqtest
