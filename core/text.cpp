#include "core/text.h"

#include <algorithm>
#include <cstdlib>

#include "core/log.h"

namespace tessel {

namespace {

constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

}  // namespace

bool CanBeLineWord(const char* text) {
    const auto isOfWord = [](char c) { return static_cast<u8>(c) > ' ' && c != '\x7f'; };
    return text != nullptr && text[0] != '\0' && text[0] != '-' && std::all_of(text, text + strlen(text), isOfWord);
}

bool AcceptText(const char* text, bool isRight, CallSite where) {
    if (!isRight) TESSEL_ERR_AT(where, "the text [%s] is invalid!", text != nullptr ? text : "");
    return isRight;
}

bool IsLineWord(const char* text, CallSite where) {
    return AcceptText(text, CanBeLineWord(text), where);
}

bool IsMacText(const char* text) {
    constexpr int kBytes = 6;
    for (int byte = 0; byte < kBytes; ++byte) {
        const std::size_t digits = strspn(text, kHexDigits);
        const char end = byte == kBytes - 1 ? '\0' : ':';
        if (digits < 1 || digits > 2 || text[digits] != end) return false;
        text += digits + 1;
    }
    return true;
}

}  // namespace tessel

i32 TesselFindStrMatchHead(const char* buf, const char* key, char sep, char* dst, i32 dstLen) {
    if (buf == nullptr) {
        TESSEL_ERR("buf is null");
        return -1;
    }
    const char* value = buf;
    if (key != nullptr) {
        value = strstr(buf, key);
        if (value == nullptr) {
            TESSEL_DBG("can't find the string %s", key);
            return -1;
        }
        value += strlen(key);
    }
    if (*value == sep && *value != '\0') ++value;
    const char* end = strchrnul(value, sep);
    const std::size_t length = static_cast<std::size_t>(end - value);
    if (dstLen < 0 || length > static_cast<std::size_t>(dstLen)) {
        TESSEL_ERR("the buf is too long:%d,%d", static_cast<i32>(length), dstLen);
        return -1;
    }
    memcpy(dst, value, length);
    dst[length] = '\0';
    TESSEL_DBG("buf_ret=%s", dst);
    return 0;
}

namespace {

// Bytes read so far and where they go.
struct ByteList {
    u8* bytes;
    i32 capacity;
    i32 count = 0;
};

bool StoreHexByte(const char* piece, ByteList& list, tessel::CallSite where) {
    constexpr unsigned long kByteMax = 255;
    const unsigned long value = strtoul(piece, nullptr, 16);
    if (value > kByteMax) {
        TESSEL_ERR_AT(where, "is  not an hex char: %u", static_cast<u32>(value));
        return false;
    }
    if (list.count >= list.capacity) {
        TESSEL_ERR_AT(where, "dst is too small: size_dst=%d,dst_count =%d", list.capacity, list.count);
        return false;
    }
    TESSEL_DBG_AT(where, "dst[%d]:%x", list.count, static_cast<u32>(value));
    list.bytes[list.count++] = static_cast<u8>(value);
    return true;
}

}  // namespace

// NOLINTNEXTLINE(readability-non-const-parameter): written through the list
i32 StrToU8WitchoutSepchar(char* src, char sep, u8* dst, i32 dstLen) {
    if (src == nullptr) {
        TESSEL_ERR("the source address is unvalid!");
        return -1;
    }
    ByteList list{.bytes = dst, .capacity = dstLen};
    char* piece = src;
    while (true) {
        char* separator = sep == '\0' ? nullptr : strchr(piece, sep);
        if (separator != nullptr) *separator = '\0';
        const std::size_t digits = strspn(piece, tessel::kHexDigits);
        if (piece[digits] != '\0') {
            const int offset = static_cast<int>(piece - src);
            const int position = static_cast<int>(digits);
            if (separator != nullptr) {
                TESSEL_ERR("is not an hex char: %s:%d:%d", piece, offset, position);
            } else {
                TESSEL_ERR("is not an hex char: [%s]:%d:%d", piece, offset, position);
            }
            return -1;
        }
        if (!StoreHexByte(piece, list, tessel::CallSite::Current())) return -1;
        if (separator == nullptr) return 0;
        piece = separator + 1;
    }
}
