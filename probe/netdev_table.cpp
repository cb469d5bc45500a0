#include "probe/netdev_table.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>

#include "core/log.h"
#include "core/memory.h"

TNetdevMember* g_ptNetdevMember = nullptr;

namespace {

constexpr i32 kTableTag = 2;

// Where threads queue for the table's mutex. The holder of the mutex has left it, so at most one thread waits for the
// mutex itself, and one that comes back waits here, behind it.
pthread_mutex_t g_queueMutex = PTHREAD_MUTEX_INITIALIZER;

int g_rebuildFd = -1;

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
    g_rebuildFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return 0;
}

namespace tessel {

NetdevTableLock::NetdevTableLock() {
    pthread_mutex_lock(&g_queueMutex);
    pthread_mutex_lock(&g_ptNetdevMember->tMutex);
    pthread_mutex_unlock(&g_queueMutex);
}

NetdevTableLock::~NetdevTableLock() {
    pthread_mutex_unlock(&g_ptNetdevMember->tMutex);
}

void RebuildNetdevTable() {
    if (g_ptNetdevMember == nullptr) return;
    const NetdevTableLock lock;
    (void)ProbeActiveNetdev(g_ptNetdevMember);
    (void)eventfd_write(g_rebuildFd, 1);
}

int NetdevRebuildFd() {
    return g_rebuildFd;
}

}  // namespace tessel
