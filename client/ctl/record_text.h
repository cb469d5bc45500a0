// Reading records for people, for the tables of messages.
#pragma once

#include <algorithm>
#include <cstring>
#include <span>
#include <string>

#include "core/text.h"
#include "core/types.h"
#include "tessel/ipc.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

// Name and size of a record, as a message's row wants them.
#define TESSEL_RECORD(record) #record, sizeof(record)

// Bytes that are missing read as 0.
template <typename Record>
Record ReadRecord(std::span<const u8> bytes) {
    Record record{};
    memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
    return record;
}

template <std::size_t kBytes>
std::string TextOf(const char (&field)[kBytes]) {
    return FieldText(field).Get();
}

inline nlohmann::ordered_json DescribeStatus(std::span<const u8> bytes) {
    return {{"result", ReadRecord<TNetStatusReply>(bytes).nResult}};
}

}  // namespace tessel::ctl
