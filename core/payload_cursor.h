// Reading a payload whose parts state their own lengths.
#pragma once

#include <algorithm>
#include <cstring>
#include <span>

#include "core/types.h"
#include "core/wire_record.h"

namespace tessel {

// Goes through the bytes once. The first step for which too little is left fails, and so does every later one.
class PayloadCursor {
  public:
    PayloadCursor(const void* payload, i32 size)
        : rest_(static_cast<const u8*>(payload), size > 0 ? static_cast<std::size_t>(size) : 0) {}

    // Copies a whole record. False, with the record untouched, when it is not all there.
    template <WireRecord Record>
    [[nodiscard]] bool Read(Record& record) {
        std::span<const u8> bytes;
        if (!Take(sizeof(record), bytes)) return false;
        memcpy(&record, bytes.data(), sizeof(record));
        return true;
    }

    // Copies a text of `length` bytes, which may end earlier with a NUL, into the field and terminates it. False when
    // it is not all there or the field has no room for it and a NUL.
    [[nodiscard]] bool ReadText(u32 length, std::span<char> field) {
        std::span<const u8> bytes;
        if (length >= field.size()) isWhole_ = false;
        if (!Take(length, bytes)) return false;
        std::fill(std::copy(bytes.begin(), bytes.end(), field.begin()), field.end(), '\0');
        return true;
    }

    [[nodiscard]] std::size_t Left() const {
        return rest_.size();
    }

  private:
    bool Take(std::size_t count, std::span<const u8>& bytes) {
        isWhole_ = isWhole_ && count <= rest_.size();
        if (!isWhole_) return false;
        bytes = rest_.first(count);
        rest_ = rest_.subspan(count);
        return true;
    }

    std::span<const u8> rest_;
    bool isWhole_ = true;
};

}  // namespace tessel
