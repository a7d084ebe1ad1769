// A recording cut short: a child process writes chunks and dies before
// aviout_close. Whatever reached the disk must read back: the header area
// (flushed at the first chunk) and every complete chunk, with the walk
// ending cleanly at the cut. With checkpoints, the file on disk is a
// complete AVI of every chunk up to the last checkpoint, whatever the
// chunks after it did to the bytes there, and wherever the file is cut
// later.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

constexpr int chunks_written = 400;
// Checkpoints every 6 s of 25 fps video: after frames 150 and 300; the
// 100 frames after the last one (about 145 KB) reach the disk in part.
constexpr double checkpoint_seconds = 6.0;
constexpr size_t checkpointed_chunks = 300;

uint32_t size_of_chunk(int i) { return 700 + static_cast<uint32_t>(i * 37 % 1500); }

// With OpenDML a standard index is flushed every second.
struct recording {
    uint32_t odml;
    double checkpoint;
};

// Runs in the child: never returns.
[[noreturn]] void record_and_die(const char *path, const recording &r) {
    aviout_handle *w = open_writer(path, "v", {r.odml, 2.0});
    if (w == nullptr) _exit(10);
    w->checkpoint_seconds = r.checkpoint;
    for (int i = 0; i < chunks_written; ++i)
        if (put(w, 0, i % 12 == 0 ? AVIOUT_KEY_FRAME : 0, payload(size_of_chunk(i), static_cast<uint32_t>(i))) != 0)
            _exit(11);
    raise(SIGKILL);
    _exit(0);
}

// The data chunks wholly inside the file, walking from movi's first chunk
// on past any size the file declares, and into the "JUNK" chunk that a
// checkpoint leaves running to the end of the file.
size_t complete_data_chunks(const std::vector<uint8_t> &b) {
    const chunk_at movi = find_child(b, 0, "LIST", "movi");
    size_t n = 0;
    for (uint64_t at = movi.pos + 12; movi.pos != SIZE_MAX && at + 8 <= b.size();) {
        const size_t here = static_cast<size_t>(at);
        const uint64_t end = at + 8 + le32(b, here + 4);
        if (text4(b, here) == "JUNK" && end > b.size()) {
            at += 8;
            continue;
        }
        if (end > b.size()) break;
        n += text4(b, here) == "00dc" ? 1 : 0;
        at = end + (end & 1);
    }
    return n;
}

// The walk of the file at path gives the first `expected` chunks put, then
// ends with one of the results allowed: the end of the list (3) needs the
// header after it to be readable, so a file that ends there gives 1.
void expect_walk(const char *path, size_t expected, bool at_list_end) {
    aviin_handle *h = aviin_open(path, 0);
    ASSERT_NE(h, nullptr);
    int last = 0;
    const std::vector<walked> got = walk_data(h, &last, 2000);
    EXPECT_TRUE(last == 3 || (!at_list_end && last == 1)) << last;
    ASSERT_EQ(got.size(), expected);
    for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_EQ(got[i].type, static_cast<uint32_t>(KELQAVI_CHUNK_VIDEO)) << i;
        ASSERT_TRUE(got[i].data == payload(size_of_chunk(static_cast<int>(i)), static_cast<uint32_t>(i))) << i;
    }
    // Further calls keep failing without moving anywhere bad.
    walk_data(h, &last, 1);
    EXPECT_GT(last, 0);
    aviin_close(h);
}

// A file cut after its last checkpoint: sizes and counts as at the
// checkpoint, every chunk before it in movi, and with OpenDML in the
// standard indexes with its key frame flag.
void expect_checkpointed(const char *path, const std::vector<uint8_t> &b, uint32_t odml) {
    EXPECT_EQ(std::vector<uint32_t>({avih_value(b, 4), strh_value(b, 0, strh_length)}),
              std::vector<uint32_t>(2, checkpointed_chunks)) << "total frames";
    const chunk_at movi = find_child(b, 0, "LIST", "movi");
    ASSERT_NE(movi.pos, SIZE_MAX);
    const uint64_t movi_end = movi.pos + 8ull + movi.size;
    EXPECT_LE(movi_end, 8ull + le32(b, 4));
    // The writer's own ix## ids send the walk into a resync scan that can
    // run on past the end of movi: with OpenDML the walk may end with 1.
    expect_walk(path, checkpointed_chunks, odml == 0 && b.size() >= movi_end + 8);
    if (odml == 0) return;
    std::vector<bool> keys;
    for (size_t i = 0; i < checkpointed_chunks; ++i) keys.push_back(i % 12 == 0);
    expect_indexes_list(b, 0, movi_chunks(b, 0, "00dc"), keys);
}

class WriterInterrupted : public testing::TestWithParam<recording> {};

TEST_P(WriterInterrupted, CompleteChunksReadBack) {
    const recording r = GetParam();
    scratch_path path;
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) GTEST_SKIP() << "fork is not available here";
    if (child == 0) record_and_die(path, r);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;

    const std::vector<uint8_t> b = file_bytes(path);
    // The stdio buffer (64 KiB) was lost, but the header area and the
    // flushed blocks are there.
    ASSERT_GT(b.size(), 4096u);
    const size_t on_disk = complete_data_chunks(b);
    EXPECT_GT(on_disk, checkpointed_chunks) << "most of the recording reached the disk";
    EXPECT_LT(on_disk, static_cast<size_t>(chunks_written)) << "the last buffer was lost";
    if (r.checkpoint == 0.0) {
        EXPECT_EQ(le32(b, 4), 0xFFFFFFFFu);
        EXPECT_EQ(find_child(b, 0, "LIST", "movi").size, 0xFFFFFFFFu);
        EXPECT_EQ(find_child(b, 0, "idx1").pos, SIZE_MAX);
        expect_walk(path, on_disk, false);
        return;
    }
    expect_checkpointed(path, b, r.odml);
    // Cut anywhere after the checkpoint: the same file, as far as it
    // declares. The checkpoint ends with 8 bytes of "JUNK" header.
    const chunk_at movi = find_child(b, 0, "LIST", "movi");
    const size_t checkpoint_end = movi.pos + 8 + movi.size + 8;
    EXPECT_EQ(text4(b, checkpoint_end - 8), "JUNK");
    scratch_path cut;
    for (size_t at = checkpoint_end; at < b.size(); at += 4099) {
        put_file(cut, b, at);
        expect_checkpointed(cut, file_bytes(cut), r.odml);
    }
}

INSTANTIATE_TEST_SUITE_P(Killed, WriterInterrupted,
                         testing::Values(recording{1, 0.0}, recording{0, checkpoint_seconds},
                                         recording{1, checkpoint_seconds}));

}  // namespace
