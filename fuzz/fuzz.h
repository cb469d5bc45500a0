// What the targets share. Each is a function on bytes, LLVMFuzzerTestOneInput, and a list of seeds.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "core/types.h"
#include "core/unique_fd.h"

namespace tessel::fuzz {

// A finding unless it holds.
inline void Require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (holds) return;
    fprintf(stderr, "%s:%d: does not hold\n", file, line);
    abort();
}

// An input, taken apart from its beginning. What is not there reads as zero.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    template <typename Value>
    Value Take() {
        std::array<u8, sizeof(Value)> bytes{};
        const std::size_t count = std::min(bytes.size(), rest_.size());
        std::copy_n(rest_.begin(), count, bytes.begin());
        rest_ = rest_.subspan(count);
        Value value;
        memcpy(&value, bytes.data(), bytes.size());
        return value;
    }
    // At most so many bytes, in a place of their own: the sanitizer watches both ends.
    std::vector<u8> TakeBytes(std::size_t most) {
        const std::span<const u8> taken = rest_.first(std::min(most, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    std::vector<u8> TakeRest() {
        return TakeBytes(rest_.size());
    }
    // Up to the first NUL, as tools' output and files are seen by readers of text.
    std::string TakeText() {
        const std::vector<u8> bytes = TakeRest();
        return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
    }
    [[nodiscard]] std::size_t Left() const {
        return rest_.size();
    }

  private:
    std::span<const u8> rest_;
};

template <typename Record>
std::string BytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

// A file of these bytes that lies nowhere, read from its beginning.
[[nodiscard]] UniqueFd FileOf(std::span<const u8> bytes);

// What the target's corpus begins with, written there by "fuzz_x --seeds DIRECTORY". Each target has its own.
[[nodiscard]] std::vector<std::string> Seeds();

}  // namespace tessel::fuzz
