// Writing chunks whose sizes are patched once their contents are known.
#include "kelqavi.h"
#include "riff/fourcc_ids.h"
#include "riff/le_bytes.h"
#include "riff/riff_layout.h"

namespace {

using namespace kelq::ids;

constexpr uint32_t placeholder_size = 0xFFFFFFFFu;

// JUNK filler repeats the brand word and a space.
constexpr char filler_word[] = "Kelq ";
constexpr size_t filler_period = sizeof filler_word - 1;
constexpr size_t filler_block = 256 * filler_period;

void or_status(uint32_t *status, int result) {
    if (status != nullptr) *status |= static_cast<uint32_t>(result);
}

bool failed_before(const uint32_t *status) { return status != nullptr && *status != 0; }

int64_t write_header_with_placeholder(uint32_t id, uint32_t type, FILE *stream, uint32_t *status) {
    const int64_t size_pos = chunk_start(stream, status);
    int result = write_fourCC(id, stream);
    result |= write_val32(placeholder_size, stream);
    result |= write_fourCC(type, stream);
    or_status(status, result);
    return size_pos;
}

// One block of the pattern, laid out at compile time: a header rewritten
// at every checkpoint writes it each time.
struct filler_bytes {
    char bytes[filler_block];
};

constexpr filler_bytes make_filler() {
    filler_bytes block{};
    for (size_t i = 0; i < filler_block; ++i) block.bytes[i] = filler_word[i % filler_period];
    return block;
}

constexpr filler_bytes filler = make_filler();

constexpr filler_bytes zero_filler = {};

// Writes count bytes of a filler block; each block starts on a whole
// period, so the pattern runs on unbroken from block to block.
int write_filler(uint32_t count, const filler_bytes &block, FILE *stream) {
    int result = 0;
    while (count > 0) {
        const size_t n = count < filler_block ? count : filler_block;
        result |= file_write(stream, block.bytes, n) == n ? 0 : 1;
        count -= static_cast<uint32_t>(n);
    }
    return result;
}

// A "JUNK" chunk whose filler ends on the alignment boundary; a chunk
// already there gets a whole alignment of filler, never an empty one.
void pad_to(int64_t alignment, const filler_bytes &block, FILE *stream, uint32_t *status) {
    if (failed_before(status)) return;
    if (alignment < 1) {
        or_status(status, 1);
        return;
    }
    int result = write_fourCC(id_junk, stream);
    const int64_t p = file_tell(stream);
    if (p < 0) result |= 1;
    const uint32_t size = static_cast<uint32_t>(alignment - (p + 4) % alignment);
    result |= write_val32(size, stream);
    result |= write_filler(size, block, stream);
    or_status(status, result);
}

}  // namespace

extern "C" {

int64_t chunk_start(FILE *stream, uint32_t *status) {
    const int64_t position = file_tell(stream);
    if (position < 0) or_status(status, 1);
    return position + 4;
}

void chunk_end(int64_t size_pos, FILE *stream, uint32_t *status) {
    if (stream == nullptr) return;
    const int64_t length = file_tell(stream) - size_pos;
    int result = file_seek(stream, -length, 1);
    result |= write_val32(static_cast<uint32_t>(length - 4), stream);
    result |= file_seek(stream, length - 4, 1);
    or_status(status, result);
}

int64_t write_list_header(uint32_t list_type, FILE *stream, uint32_t *status) {
    if (failed_before(status)) return -1;
    return write_header_with_placeholder(id_list, list_type, stream, status);
}

int64_t write_RIFF_form_header(uint32_t form_type, FILE *stream, uint32_t *status) {
    return write_header_with_placeholder(id_riff, form_type, stream, status);
}

uint32_t data_chunk(uint32_t id, const void *data, uint32_t size, FILE *stream, uint32_t *status) {
    uint32_t local = 0;
    uint32_t *word = status != nullptr ? status : &local;
    if (data == nullptr && size != 0) {
        *word |= 1;
        return *word;
    }
    int result = write_fourCC(id, stream);
    result |= write_val32(size, stream);
    if (size != 0) result |= file_write(stream, data, size) == size ? 0 : 1;
    if (size % 2 != 0) result |= write_val8(0, stream);
    *word |= static_cast<uint32_t>(result);
    return *word;
}

void junk_pad(int64_t alignment, FILE *stream, uint32_t *status) { pad_to(alignment, filler, stream, status); }

int64_t padEven(int64_t n) { return n + n % 2; }

}  // extern "C"

void kelq::junk_pad_zeroed(int64_t alignment, FILE *stream, uint32_t *status) {
    pad_to(alignment, zero_filler, stream, status);
}
