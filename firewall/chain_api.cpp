#include "firewall/chain_api.h"

#include "core/api_reply.h"
#include "core/log.h"
#include "firewall/chain.h"
#include "tessel/firewall.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

i32 ApidFilterEnable(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFilterSwitchReq>(payload, size);
    const i32 result = FilterEnable(request.eType);
    if (result != 0) TESSEL_ERR("FilterEnable error!");
    return ApiReplyStatus(fd, type, result);
}

i32 ApidFilterDisable(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetFilterSwitchReq>(payload, size);
    const i32 result = FilterDisable(request.eType);
    if (result != 0) TESSEL_ERR("FilterDisable error!");
    return ApiReplyStatus(fd, type, result);
}

i32 ApidAddChain(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetChainAddReq>(payload, size);
    const tessel::ApiText name(payload, size, sizeof(request));
    return ApiReplyStatus(fd, type, AddChain(request.wIpType, name.Get()));
}
