// Checkpoints and write failures: a checkpoint leaves a complete file on
// disk without changing what the finished file holds, and a file system
// that fills up is reported by every call from then on.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "unit/writer/writer_files.h"

using namespace kelqtest;

namespace {

uint32_t size_of_chunk(int i) { return 300 + static_cast<uint32_t>(i * 53 % 900); }

// A video and an audio stream; frame f is chunk 2f, its audio 2f + 1.
aviout_handle *open_av_writer(const char *path, uint32_t odml, uint32_t profile = 0) {
    return open_writer(path, "va", {odml, 2.0, 0, profile});
}

int put_frame(aviout_handle *w, int f) {
    int r = put(w, 0, f % 10 == 0 ? AVIOUT_KEY_FRAME : 0, payload(size_of_chunk(f), static_cast<uint32_t>(f)));
    return r | put(w, 1, 0, payload(1280, static_cast<uint32_t>(f + 7)));
}

struct schedule {
    uint32_t odml;
    int every;                 // frames between explicit checkpoints, 0: none
    double seconds;            // checkpoint_seconds
    int checkpoints;           // made over 240 frames at 25 a second
    uint32_t profile = 0;      // the writer's standard_profile
    // Non-zero: after frame 0 an audio chunk that ends this many bytes
    // before 64 KiB into the file, and there a checkpoint (in both files:
    // the plain one gets the chunk too), so that the header the checkpoint
    // leaves in the stream's buffer runs past that multiple.
    int short_of_64k = 0;
};

// What a player gets from the finished file, whatever the layout: the
// chunks as the reader walks them, every idx1 entry and the frame count. A
// standard-profile file is walked with swapped ids read as well, so that
// its "ix00" chunks are passed whole.
struct contents {
    std::vector<std::vector<uint8_t>> chunks;
    std::vector<std::array<uint32_t, 4>> idx1;
    uint32_t frames;
};

contents read_contents(const char *path, uint32_t profile) {
    int last = 0;
    contents c{read_back(path, profile, &last), {}, avih_value(file_bytes(path), 4)};
    EXPECT_EQ(last, 3);
    aviin_handle *h = aviin_open(path, profile);
    for (std::array<uint32_t, 4> v{}; h != nullptr && aviin_get_idx1_entry(h, static_cast<uint32_t>(c.idx1.size()), &v[0], &v[1], &v[2], &v[3]) == 0;)
        c.idx1.push_back(v);
    aviin_close(h);
    return c;
}

void write_recording(const char *path, const schedule &s, int frames) {
    aviout_handle *w = open_av_writer(path, s.odml, s.profile);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(aviout_checkpoint(w, 1), 0) << "before the first chunk: nothing to do";
    EXPECT_EQ(file_bytes(path).size(), 0u);
    w->checkpoint_seconds = s.seconds;
    for (int f = 0; f < frames; ++f) {
        ASSERT_EQ(put_frame(w, f), 0) << f;
        if (f == 0 && s.short_of_64k > 0) {
            const int64_t end = 65536 - s.short_of_64k - file_tell(w->file) - 8;
            ASSERT_EQ(put(w, 1, 0, payload(static_cast<uint32_t>(end), 5)), 0);
            if (s.every > 0) {
                ASSERT_EQ(aviout_checkpoint(w, 0), 0);
            }
        }
        if (s.every > 0 && (f + 1) % s.every == 0) {
            ASSERT_EQ(aviout_checkpoint(w, f % 2), 0) << f;
        }
    }
    EXPECT_EQ(aviout_close2(w), 0);
}

}  // namespace

class CheckpointSchedule : public testing::TestWithParam<schedule> {};

// Checkpoints change no chunk, no index entry and no count of the finished
// file: each one followed by chunks leaves an empty 8-byte "JUNK" chunk in
// movi, and with OpenDML the ix## chunks stand elsewhere, both indexes
// still listing every chunk of both tracks.
TEST_P(CheckpointSchedule, FinishedFileHoldsTheSame) {
    const schedule s = GetParam();
    constexpr int frames = 240;
    scratch_path plain, checkpointed;
    write_recording(plain, schedule{s.odml, 0, 0.0, 0, s.profile, s.short_of_64k}, frames);
    write_recording(checkpointed, s, frames);
    const contents a = read_contents(plain, s.profile), b = read_contents(checkpointed, s.profile);
    EXPECT_EQ(b.frames, static_cast<uint32_t>(frames));
    // The standard profile lists every chunk put in idx1, with OpenDML too.
    if (s.profile != 0) {
        EXPECT_EQ(b.idx1.size(), 2u * frames);
    }
    EXPECT_TRUE(a.chunks == b.chunks && a.idx1 == b.idx1 && a.frames == b.frames);
    const std::vector<uint8_t> bytes = file_bytes(checkpointed);
    const std::vector<chunk_at> junk = movi_chunks(bytes, 0, "JUNK");
    EXPECT_EQ(junk.size(), static_cast<size_t>(s.checkpoints));
    for (const chunk_at &c : junk) EXPECT_EQ(c.size, 0u) << c.pos;
    if (s.odml == 0) {
        EXPECT_EQ(bytes.size(), file_bytes(plain).size() + 8 * junk.size());
    }
    for (const std::vector<uint8_t> &image : {bytes, file_bytes(plain)}) {
        if (s.odml == 0) continue;
        std::vector<bool> keys;
        for (int f = 0; f < frames; ++f) keys.push_back(f % 10 == 0);
        expect_indexes_list(image, 0, movi_chunks(image, 0, "00dc"), keys);
        expect_indexes_list(image, 1, movi_chunks(image, 0, "01wb"), std::vector<bool>(frames, false));
    }
}

// Every 0.5 s with explicit ones every 50 frames, which restart the clock:
// 13, 26, 39, 50, 63, ... 200, 213, 226, 239: 19 in all.
INSTANTIATE_TEST_SUITE_P(Schedules, CheckpointSchedule,
                         testing::Values(schedule{0, 1, 0.0, 240}, schedule{0, 37, 0.0, 6},
                                         schedule{0, 0, 1.0, 9}, schedule{1, 1, 0.0, 240},
                                         schedule{1, 37, 0.0, 6}, schedule{1, 0, 1.0, 9},
                                         schedule{1, 50, 0.5, 19}, schedule{1, 1, 0.0, 240, 1},
                                         schedule{1, 50, 0.5, 19, 1}, schedule{0, 1, 0.0, 240, 0, 4}));

// A file that starts at 0 has its header area rendered in memory; one
// appended after other data has it rewritten through the stream. Both lay
// the same bytes (a 4096-byte prefix keeps the 2048-byte alignment), and
// the file on disk after each checkpoint declares exactly what was put.
TEST(Checkpoint, InMemoryAndInFileHeadersAgree) {
    EXPECT_EQ(aviout_checkpoint(nullptr, 0) + aviout_close2(nullptr), 2);
    scratch_path fresh, appended;
    put_file(appended, std::vector<uint8_t>(4096, 0xEE));
    std::vector<uint8_t> images[2];
    for (int i = 0; i < 2; ++i) {
        const char *path = i == 0 ? fresh : appended;
        aviout_handle *w = aviout_open(path, 0, i);
        ASSERT_NE(w, nullptr);
        ASSERT_EQ(add_stream(w, 'v'), 0);
        for (int f = 0; f < 70; ++f) {
            ASSERT_EQ(put(w, 0, AVIOUT_KEY_FRAME, payload(size_of_chunk(f), static_cast<uint32_t>(f))), 0);
            if (f == 59 || f == 69) {
                ASSERT_EQ(aviout_checkpoint(w, 0), 0);
            }
        }
        // A second checkpoint with nothing new changes nothing.
        images[i] = file_bytes(path);
        ASSERT_EQ(aviout_checkpoint(w, 1), 0);
        EXPECT_TRUE(file_bytes(path) == images[i]);
        EXPECT_EQ(aviout_close2(w), 0);
    }
    ASSERT_EQ(images[1].size(), images[0].size() + 4096);
    EXPECT_TRUE(std::equal(images[0].begin(), images[0].end(), images[1].begin() + 4096));
    const std::vector<uint8_t> &b = images[0];
    EXPECT_EQ(avih_value(b, 4), 70u);
    EXPECT_EQ(avih_value(b, 3), 0x100u) << "no idx1 yet";
    // The JUNK header that opens what comes next waits for the next chunks.
    EXPECT_EQ(le32(b, 4) + 8u, b.size()) << "the form ends where the file ends";
    EXPECT_EQ(movi_chunks(b, 0, "00dc").size(), 70u);
}

// --- A card that fills up -------------------------------------------------

namespace {

constexpr long card_bytes = 2 * 1024 * 1024;

// What the recorder saw, as bits: bit 0 a put or a checkpoint gave 0 after
// one failed, bit 1 no call ever failed, bit 2 the last checkpoint gave 0,
// bit 3 aviout_close2 gave 0. A checkpoint every second may be the first to
// meet the full card, at its flush.
int record_until_full(const char *path) {
    aviout_handle *w = open_av_writer(path, 0);
    if (w == nullptr) return 64;
    int seen = 0;
    bool failed = false;
    const auto note = [&](int r) {
        if (r == 0 && failed) seen |= 1;
        if (r != 0) failed = true;
    };
    for (int f = 0; f < 3000; ++f) {
        note(put_frame(w, f));
        if (f % 25 == 24) note(aviout_checkpoint(w, 0));
    }
    if (!failed) seen |= 2;
    if (aviout_checkpoint(w, 1) == 0) seen |= 4;
    if (aviout_close2(w) == 0) seen |= 8;
    return seen;
}

// A child process (a file-size signal cannot end the test) records on a
// 2 MiB tmpfs it mounts, or under a 2 MiB file-size limit (writes past it
// fail with EFBIG): -1 when neither can be had.
int run_on_full_card(const char *how) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) return -1;
    if (child == 0) {
        char dir[] = "/tmp/kelqavi-card-XXXXXX";
        if (mkdtemp(dir) == nullptr) _exit(65);
        const std::string path = std::string(dir) + "/rec.avi";
        const bool tmpfs = std::strcmp(how, "tmpfs") == 0;
        const rlimit limit{static_cast<rlim_t>(card_bytes), static_cast<rlim_t>(card_bytes)};
        signal(SIGXFSZ, SIG_IGN);
        const bool ready = tmpfs ? mount("card", dir, "tmpfs", 0, "size=2m") == 0 : setrlimit(RLIMIT_FSIZE, &limit) == 0;
        const int seen = ready ? record_until_full(path.c_str()) : 66;
        if (tmpfs && ready) umount(dir);
        std::remove(path.c_str());
        rmdir(dir);
        _exit(seen);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

}  // namespace

class FullCard : public testing::TestWithParam<const char *> {};

// Once a write has failed, every put and checkpoint says so, and closing
// reports the file incomplete.
TEST_P(FullCard, EveryCallAfterTheFailureReportsIt) {
    const int seen = run_on_full_card(GetParam());
    if (seen == 66) GTEST_SKIP() << GetParam() << " cannot be had here";
    ASSERT_GE(seen, 0);
    ASSERT_LT(seen, 64) << "the child could not start: " << seen;
    EXPECT_EQ(seen & 2, 0) << "the card never filled";
    EXPECT_EQ(seen & 1, 0) << "a call gave 0 after one failed";
    EXPECT_EQ(seen & 4, 0) << "the last checkpoint gave 0";
    EXPECT_EQ(seen & 8, 0) << "aviout_close2 called the file complete";
}

INSTANTIATE_TEST_SUITE_P(Cards, FullCard, testing::Values("tmpfs", "file-size-limit"));
