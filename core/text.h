// Reading text: fields of records, words of tool output, bytes in hexadecimal.
#pragma once

#include <cstddef>
#include <cstring>

#include "core/types.h"

namespace tessel {

// The text of a fixed-width field that comes from outside, terminated whether or not the sender did.
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

// True when `text` stays exactly one word when a command line with it is split at blanks. What comes from outside and
// has to be one word of a command line is checked with this first.
[[nodiscard]] bool IsOneWord(const char* text);

}  // namespace tessel

// Copies the word that follows `key` in `buf` into `dst`, NUL-terminated: one `sep` directly behind the key is skipped,
// the word runs to the next `sep` or to the end. A null key means the start of `buf`. `dst` has room for dstLen + 1
// bytes. Returns 0, or -1 with a log line (null buf, key not found, word longer than dstLen).
i32 TesselFindStrMatchHead(const char* buf, const char* key, char sep, char* dst, i32 dstLen);

// Reads hexadecimal bytes separated by `sep` ("00:1a:..") from `src`, which is cut at its separators, into dst[dstLen].
// Returns 0, or -1 with a log line (null source, a character that is no hexadecimal digit, a value above 255, more than
// dstLen bytes). How many bytes there were is not told.
i32 StrToU8WitchoutSepchar(char* src, char sep, u8* dst, i32 dstLen);
