#include "core/file_rights.h"

#include <sys/fsuid.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>

namespace tessel {

namespace {

// The C library's own function changes every thread; the system call changes this one alone.
bool SetThreadGroups(int count, const gid_t* groups) {
#ifdef SYS_setgroups32
    constexpr long kCall = SYS_setgroups32;
#else
    constexpr long kCall = SYS_setgroups;
#endif
    return syscall(kCall, static_cast<std::size_t>(count), groups) == 0;
}

}  // namespace

ucred PeerOf(int connection) {
    ucred peer{.pid = 0, .uid = static_cast<uid_t>(-1), .gid = static_cast<gid_t>(-1)};
    socklen_t length = sizeof(peer);
    (void)getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length);
    return peer;
}

FileRights::FileRights(const ucred& process) : isForeign_(process.uid != geteuid()) {
    if (!isForeign_) {
        areTaken_ = true;
        return;
    }
    dumpable_ = prctl(PR_GET_DUMPABLE);
    groupCount_ = getgroups(kGroupsMax, groups_);
    if (groupCount_ < 0 || !SetThreadGroups(0, nullptr)) return;
    setfsgid(process.gid);
    setfsuid(process.uid);
    // They return the previous value, whether or not they changed it; -1 changes nothing.
    areTaken_ = static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1))) == process.uid &&
                static_cast<gid_t>(setfsgid(static_cast<gid_t>(-1))) == process.gid;
}

FileRights::~FileRights() {
    if (!isForeign_) return;
    setfsuid(geteuid());
    setfsgid(getegid());
    if (groupCount_ >= 0) (void)SetThreadGroups(groupCount_, groups_);
    // A change of user makes the kernel stop writing core files.
    (void)prctl(PR_SET_DUMPABLE, dumpable_);
}

}  // namespace tessel
