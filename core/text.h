// Reading text: fields of records, words of tool output, bytes in hexadecimal.
#pragma once

#include <cstddef>
#include <cstring>

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

// The text of a fixed-width field that comes from outside, terminated even if the sender did not.
template <std::size_t kFieldBytes>
class FieldText {
  public:
    explicit FieldText(const char (&field)[kFieldBytes]) {
        memcpy(text_, field, kFieldBytes);
    }
    [[nodiscard]] const char* Get() const {
        return text_;
    }
    [[nodiscard]] bool IsEmpty() const {
        return text_[0] == '\0';
    }

  private:
    char text_[kFieldBytes + 1] = {};
};

// True when `text` can be one word of a command line that no tool takes for an option: not null, not empty, no blank or
// control character, no '-' in front. Text from outside is checked with this first. False with a log line.
[[nodiscard]] bool IsLineWord(const char* text, CallSite where = CallSite::Current());

// The same without a log line.
[[nodiscard]] bool CanBeLineWord(const char* text);

// Passes on whether a text from outside is what it has to be. If it is not, logs that.
[[nodiscard]] bool AcceptText(const char* text, bool isRight, CallSite where);

// True for six bytes in hexadecimal of one or two digits each, joined by colons, and for nothing else.
[[nodiscard]] bool IsMacText(const char* text);

}  // namespace tessel

// Copies the word that follows `key` in `buf` into `dst`, NUL-terminated: one `sep` directly after the key is skipped,
// the word runs to the next `sep` or to the end. A null key means the start of `buf`. `dst` has room for dstLen + 1
// bytes. Returns 0, or -1 with a log line (null buf, key not found, word longer than dstLen).
i32 TesselFindStrMatchHead(const char* buf, const char* key, char sep, char* dst, i32 dstLen);

// Reads hexadecimal bytes separated by `sep` ("00:1a:..") from `src`, which is cut at its separators, into dst[dstLen].
// Returns 0, or -1 with a log line (null source, a character that is not a hexadecimal digit, a value above 255, more
// than dstLen bytes). It does not say how many bytes there were.
i32 StrToU8WitchoutSepchar(char* src, char sep, u8* dst, i32 dstLen);
