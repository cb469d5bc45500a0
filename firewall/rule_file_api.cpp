#include "firewall/rule_file_api.h"

#include "core/api_reply.h"
#include "firewall/rule_file.h"
#include "tessel/firewall.h"

using tessel::ApiRequest;
using tessel::ApiText;

i32 ApidFirewallSave(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFirewallFileReq>(payload, size);
    const ApiText path(payload, size, sizeof(request));
    return tessel::ApiReplyStatus(fd, type, SaveFirewall(request.eIpType, path.Get()));
}

i32 ApidFirewallRestore(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFirewallFileReq>(payload, size);
    const ApiText path(payload, size, sizeof(request));
    return tessel::ApiReplyStatus(fd, type, RestoreFirewall(request.eIpType, path.Get()));
}
