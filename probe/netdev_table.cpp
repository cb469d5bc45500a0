#include "probe/netdev_table.h"

#include <cstring>

#include "core/log.h"
#include "core/memory.h"

TNetdevMember* g_ptNetdevMember = nullptr;

namespace {
constexpr i32 kTableTag = 2;
}  // namespace

i32 NetdevTableInit() {
    void* block = xmalloc(kTableTag, sizeof(TNetdevMember));
    if (block == nullptr) {
        TESSEL_PERROR("XMALLOC error");
        return -1;
    }
    memset(block, 0, sizeof(TNetdevMember));
    g_ptNetdevMember = static_cast<TNetdevMember*>(block);
    pthread_mutex_init(&g_ptNetdevMember->tMutex, nullptr);
    return 0;
}
