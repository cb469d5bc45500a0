#include <algorithm>

#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "route/priority.h"
#include "route/priority_table.h"

using tessel::CallSite;

i32 ApidPrioritySet(int fd, u32 type, const void* payload, i32 size) {
    const auto list = tessel::ApiRequest<TNetPrioParamList>(payload, size);
    const std::span entries(list.atPrio, std::min<std::size_t>(list.dwNum, TESSEL_PRIORITIES_MAX));
    // What is missing from a list that was cut short would never get a metric: the first one decides which interfaces
    // count.
    if (static_cast<std::size_t>(size) < offsetof(TNetPrioParamList, atPrio) + entries.size_bytes()) {
        TESSEL_ERR("the size is error:size=%d", size);
    } else {
        PrioritySet(entries, CallSite::Current());
    }
    return tessel::ApiReplyStatus(fd, type, TESSEL_RESULT_OK);  // for a refused list too: clients read the table back
}

i32 ApidPriorityGet(int fd, u32 type, const void* /*payload*/, i32 /*size*/) {
    const TNetPrioParamList list = tessel::PriorityTable();
    for (const TNetPrioParam& entry : list.atPrio) {
        const tessel::FieldText name(entry.achDevName);
        if (!name.IsEmpty()) TESSEL_PRT("interface %s, priority %d", name.Get(), entry.nPriority);
    }
    return tessel::ApiReply(fd, type, list);
}
