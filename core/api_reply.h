// What every command handler does around its one operation: take the request out of the buffer, send the reply.
#pragma once

#include <algorithm>
#include <cstring>

#include "core/call_site.h"
#include "core/types.h"
#include "core/wire_record.h"
#include "tessel/ipc.h"

namespace tessel {

// The request record: bytes that were not sent read as zero, bytes after the record are ignored.
template <WireRecord Record>
[[nodiscard]] Record ApiRequest(const void* payload, i32 size) {
    Record record{};
    memcpy(&record, payload, std::min(sizeof(record), static_cast<std::size_t>(size)));
    return record;
}

// The text that follows a record and fills the rest of the payload.
class ApiText {
  public:
    // Logs, in the handler's name, when the payload ends inside the record of `recordBytes`.
    ApiText(const void* payload, i32 size, std::size_t recordBytes, CallSite where = CallSite::Current());

    // NUL-terminated, even if the sender did not terminate it; null when the payload ends inside the record.
    [[nodiscard]] const char* Get() const {
        return hasText_ ? text_ : nullptr;
    }

  private:
    bool hasText_;
    char text_[TESSEL_PAYLOAD_MAX + 1];
};

// Sends `size` payload bytes as the reply. 0, or -1 with a log line in the handler's name.
i32 ApiReplyBytes(int fd, u32 type, const void* data, i32 size, CallSite where);

template <WireRecord Record>
i32 ApiReply(int fd, u32 type, const Record& record, CallSite where = CallSite::Current()) {
    return ApiReplyBytes(fd, type, &record, sizeof(record), where);
}

// The 4-byte status: 0 for success, -1 for every failure, before which `failure` (null: nothing) is logged.
i32 ApiReplyStatus(int fd, u32 type, i32 result, const char* failure = nullptr, CallSite where = CallSite::Current());

}  // namespace tessel
