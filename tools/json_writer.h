// A small JSON writer for the tool's --json output: objects and arrays with
// two-space indentation, or written on one line ("inline") where one line per
// record reads better, as for the chunk lists. Keys keep the order in which
// they are written, so the output is stable from run to run.
#pragma once

#include "output_format.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace kelqtool {

class json_writer {
public:
    // Values, as JSON text for field() and element().
    static std::string number(int64_t n) { return std::to_string(n); }
    static std::string number(uint64_t n) { return std::to_string(n); }
    static std::string number(int32_t n) { return std::to_string(n); }
    static std::string number(uint32_t n) { return std::to_string(n); }
    // Up to 6 significant digits, never in exponent form for the values
    // shown (rates, durations); a value that is not finite is null.
    static std::string decimal(double x) {
        if (!(x == x) || x > 1e15 || x < -1e15) return "null";
        char text[64];
        std::snprintf(text, sizeof text, "%.6g", x);
        if (std::string_view(text).find('e') != std::string_view::npos) std::snprintf(text, sizeof text, "%.3f", x);
        return text;
    }
    static std::string text(std::string_view s) { return json_string(s); }
    static std::string fourcc(uint32_t code) { return json_bytes(fourcc_bytes(code)); }
    static std::string boolean(bool b) { return b ? "true" : "false"; }
    static std::string null() { return "null"; }

    void begin_object(const char *key = nullptr, bool on_one_line = false) { open(key, '{', on_one_line); }
    void end_object() { close('}'); }
    void begin_array(const char *key = nullptr, bool on_one_line = false) { open(key, '[', on_one_line); }
    void end_array() { close(']'); }

    // A member of the object being written.
    void field(const char *key, const std::string &value) {
        separate();
        out_ += json_string(key) + ": " + value;
    }
    // An element of the array being written.
    void element(const std::string &value) {
        separate();
        out_ += value;
    }

    // The text so far; complete once every container is closed.
    const std::string &str() const { return out_; }
    bool write(FILE *out) const { return std::fputs(out_.c_str(), out) >= 0 && std::fputc('\n', out) != EOF; }

private:
    struct level {
        bool one_line;
        bool empty;
    };

    void separate() {
        if (stack_.empty()) return;
        level &top = stack_.back();
        if (!top.empty) out_ += ',';
        if (top.one_line) {
            if (!top.empty) out_ += ' ';
        } else {
            out_ += '\n';
            out_.append(2 * stack_.size(), ' ');
        }
        top.empty = false;
    }

    void open(const char *key, char bracket, bool on_one_line) {
        separate();
        if (key != nullptr) out_ += json_string(key) + ": ";
        out_ += bracket;
        const bool inside_one_line = !stack_.empty() && stack_.back().one_line;
        stack_.push_back({on_one_line || inside_one_line, true});
    }

    void close(char bracket) {
        const level top = stack_.back();
        stack_.pop_back();
        if (!top.one_line && !top.empty) {
            out_ += '\n';
            out_.append(2 * stack_.size(), ' ');
        }
        out_ += bracket;
    }

    std::vector<level> stack_;
    std::string out_;
};

}  // namespace kelqtool
