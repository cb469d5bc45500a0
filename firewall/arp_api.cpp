#include "firewall/arp_api.h"

#include "core/api_reply.h"
#include "firewall/arp.h"
#include "tessel/firewall.h"

using tessel::ApiRequest;

i32 ApidAddArp(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<ArpEntryInfo>(payload, size);
    return tessel::ApiReplyStatus(fd, type, AddArpEntry(&request));
}

i32 ApidDelArp(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<ArpEntryInfo>(payload, size);
    return tessel::ApiReplyStatus(fd, type, DelArpEntry(&request));
}
