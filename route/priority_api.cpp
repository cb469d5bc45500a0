#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "route/priority.h"
#include "route/priority_table.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

i32 ApidPrioritySet(int fd, u32 type, const void* payload, i32 size) {
    PrioritySet(ApiRequest<TNetPrioParamList>(payload, size));
    return ApiReplyStatus(fd, type, TESSEL_RESULT_OK);  // whatever took of it: clients read it back
}

i32 ApidPriorityGet(int fd, u32 type, const void* /*payload*/, i32 /*size*/) {
    const TNetPrioParamList list = tessel::PriorityTable();
    for (const TNetPrioParam& entry : list.atPrio) {
        const tessel::FieldText name(entry.achDevName);
        if (!name.IsEmpty()) TESSEL_PRT("interface %s, priority %d", name.Get(), entry.nPriority);
    }
    return tessel::ApiReply(fd, type, list);
}

i32 ApidRouteMetricSet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpRouteParam>(payload, size);
    const i32 result = RouteMetricSet(&request);
    if (result != 0) TESSEL_ERR("RouteMetricSet error!");
    return ApiReplyStatus(fd, type, result);
}
