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

struct recording {
    uint32_t odml;
    bool kill_self;
    double checkpoint;
    double index_seconds;   // 2.0: a standard index flushed every second; 60: none flushed
};

// Runs in the child: never returns.
[[noreturn]] void record_and_die(const char *path, const recording &r) {
    aviout_handle *w = open_video_writer(path, r.odml, r.index_seconds, 0);
    if (w == nullptr) _exit(10);
    w->checkpoint_seconds = r.checkpoint;
    for (int i = 0; i < chunks_written; ++i)
        if (put(w, 0, i % 12 == 0 ? AVIOUT_KEY_FRAME : 0, payload(size_of_chunk(i), static_cast<uint32_t>(i))) != 0)
            _exit(11);
    if (r.kill_self) raise(SIGKILL);
    _exit(0);
}

// The data chunks wholly inside the file, walking from movi's first chunk
// on past any size the file declares, and into the "JUNK" chunk that a
// checkpoint leaves running to the end of the file.
size_t complete_data_chunks(const std::vector<uint8_t> &b) {
    const chunk_at movi = find_child(b, 0, "LIST", "movi");
    if (movi.pos == SIZE_MAX) return 0;
    size_t n = 0;
    uint64_t at = movi.pos + 12;
    while (at + 8 <= b.size()) {
        const size_t here = static_cast<size_t>(at);
        const uint64_t end = at + 8 + le32(b, here + 4);
        if (text4(b, here) == "JUNK" && end > b.size()) {
            at += 8;
            continue;
        }
        if (end > b.size()) break;
        if (text4(b, here) == "00dc") ++n;
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
    if (at_list_end)
        EXPECT_EQ(last, 3);
    else
        EXPECT_TRUE(last == 1 || last == 3) << last;
    ASSERT_EQ(got.size(), expected);
    for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_EQ(got[i].type, static_cast<uint32_t>(KELQAVI_CHUNK_VIDEO)) << i;
        ASSERT_TRUE(got[i].data == payload(size_of_chunk(static_cast<int>(i)), static_cast<uint32_t>(i))) << i;
    }
    // Further calls keep failing without moving anywhere bad.
    EXPECT_NE(next_chunk(h).status, 0);
    aviin_close(h);
}

// A file cut after its last checkpoint: sizes and counts as at the
// checkpoint, every chunk before it in movi, idx1 listing them with their
// key frames as long as no later chunk overwrote it.
void expect_checkpointed(const char *path, const std::vector<uint8_t> &b, uint32_t odml) {
    EXPECT_EQ(avih_value(b, 4), checkpointed_chunks) << "total frames";
    EXPECT_EQ(le32(b, strl_chunk(b, 0, "strh") + strh_length), checkpointed_chunks);
    const chunk_at movi = find_child(b, 0, "LIST", "movi");
    ASSERT_NE(movi.pos, SIZE_MAX);
    const uint64_t form_end = 8ull + le32(b, 4);
    const uint64_t movi_end = movi.pos + 8ull + movi.size;
    EXPECT_LE(movi_end, form_end);
    // The writer's own ix## ids send the walk into a resync scan that can
    // run on past the end of movi: with OpenDML the walk may end with 1.
    expect_walk(path, checkpointed_chunks, odml == 0 && b.size() >= movi_end + 8);
    if (odml == 1) {
        // Every chunk before the checkpoint is in the OpenDML index, each
        // entry pointing at its chunk's data.
        const size_t indx = strl_chunk(b, 0, "indx");
        uint64_t indexed = 0, found = 0;
        for (uint32_t e = 0; e < le32(b, indx + 4); ++e) {
            indexed += le32(b, indx + 24 + 16 * e + 12);
            const size_t ix = static_cast<size_t>(le64(b, indx + 24 + 16 * e)) + 8;
            const uint64_t base = le64(b, ix + 12);
            for (uint32_t k = 0; k < le32(b, ix + 4); ++k) {
                const size_t data = static_cast<size_t>(base + le32(b, ix + 24 + 8 * k));
                const uint32_t size = le32(b, ix + 24 + 8 * k + 4) & 0x7FFFFFFFu;
                found += text4(b, data - 8) == "00dc" && le32(b, data - 4) == size ? 1 : 0;
            }
        }
        EXPECT_EQ(indexed, checkpointed_chunks);
        EXPECT_EQ(found, checkpointed_chunks);
    }
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
    if (r.kill_self) {
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        EXPECT_EQ(WTERMSIG(status), SIGKILL);
    } else {
        ASSERT_TRUE(WIFEXITED(status)) << status;
        ASSERT_EQ(WEXITSTATUS(status), 0);
    }

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
        put_file(cut, std::vector<uint8_t>(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(at)));
        expect_checkpointed(cut, file_bytes(cut), r.odml);
    }
}

INSTANTIATE_TEST_SUITE_P(KilledOrExited, WriterInterrupted,
                         testing::Values(recording{0, true, 0.0, 2.0}, recording{0, false, 0.0, 2.0},
                                         recording{1, true, 0.0, 2.0}, recording{1, false, 0.0, 2.0},
                                         recording{0, true, checkpoint_seconds, 2.0},
                                         recording{1, true, checkpoint_seconds, 2.0},
                                         recording{1, false, checkpoint_seconds, 60.0}));

}  // namespace
