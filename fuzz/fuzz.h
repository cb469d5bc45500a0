// What the targets share. Each is a function on an input, TryInput, and a list of seeds.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "core/types.h"
#include "core/unique_fd.h"

namespace tessel::fuzz {

using namespace std::string_literals;

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
        const std::span<const u8> taken = Cut(bytes.size());
        std::copy(taken.begin(), taken.end(), bytes.begin());
        return std::bit_cast<Value>(bytes);
    }
    // At most so many bytes, in a place of their own: the sanitizer watches both ends.
    std::vector<u8> TakeBytes(std::size_t most) {
        const std::span<const u8> taken = Cut(most);
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
    std::span<const u8> Cut(std::size_t most) {
        const std::span<const u8> cut = rest_.first(std::min(most, rest_.size()));
        rest_ = rest_.subspan(cut.size());
        return cut;
    }

    std::span<const u8> rest_;
};

template <typename Record>
std::string BytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

// A file of these bytes that lies nowhere, read from its beginning.
[[nodiscard]] UniqueFd FileOf(std::span<const u8> bytes);

// What a handler answers to the first `size` bytes of a payload, header included. Empty when it does not.
using Handler = i32(int fd, u32 type, const void* payload, i32 size);
[[nodiscard]] std::string AnswerOf(Handler* handler, u32 type, const std::vector<u8>& payload, std::size_t size);

// Each target has its own: what its corpus begins with, which "fuzz_x --seeds DIRECTORY" writes there, and what it
// does.
[[nodiscard]] std::vector<std::string> Seeds();
void TryInput(Input input);

}  // namespace tessel::fuzz
