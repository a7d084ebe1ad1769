// Feeds arbitrary bytes to aviout_repair, through a file since the call
// takes a path. A file it repairs must then be whole: a second repair gives
// 0 and writes nothing, and the file is as long as the report says. The
// repair's memory is fixed whatever the file holds.
#include "fuzz_support.h"
#include "kelqavi.h"

#include <cstdint>

namespace {

// The repair's own state is two blocks of about 125 KB, and the chunks it
// holds between its passes take at most twice the input's length (128 KiB
// for the longest input); no single block may be larger.
constexpr size_t repair_memory = 256 * 1024;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz::scratch_path("repair.avi");
    if (!fuzz::write_file(path, data, size)) return 0;
    const uint32_t swapped = size > 0 ? data[size - 1] & 1 : 0;
    const fuzz::allocation_guard guard(repair_memory);
    aviout_repair_report report;
    const int result = aviout_repair(path, swapped, &report);
    fuzz::check(result == 0 || result == 1 || result == 3, "repair answers 0, 1 or 3");
    if (result == 1) return 0;
    fuzz::check(fuzz::file_length(path) == report.repaired_size, "the file is as long as the report says");
    aviout_repair_report again;
    fuzz::check(aviout_repair(path, swapped, &again) == 0 && again.changed == 0, "a repaired file is whole");
    return 0;
}
