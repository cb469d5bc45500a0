#include "client/ctl/addresses.h"
#include "client/ctl/messages.h"
#include "client/ctl/record_text.h"
#include "tessel/command.h"
#include "tessel/conflict.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

ordered_json DescribeConflict(std::span<const u8> bytes) {
    return {{"family", FamilyName(ReadRecord<TNetConflictReq>(bytes).wSinFamily)}};
}

constexpr Message kMessages[] = {
    {TESSEL_CMD_CONFLICT_START,
     "conflict_start",
     TESSEL_RECORD(TNetConflictReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeConflict,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_CONFLICT_STOP,
     "conflict_stop",
     TESSEL_RECORD(TNetConflictReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeConflict,
     &DescribeStatus,
     {}},
};

}  // namespace

std::span<const Message> ProbeMessages() {
    return kMessages;
}

}  // namespace tessel::ctl
