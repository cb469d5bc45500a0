#include "core/client_group.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>

#include "core/log.h"

namespace tessel {

namespace {

constexpr char kGroup[] = TESSEL_CLIENT_GROUP;
constexpr bool kIsForAll = kGroup[0] == '\0';

constexpr gid_t kNoGroup = static_cast<gid_t>(-1);

// Looked up each time: members may come and go.
struct Group {
    Group() {
        group* found = nullptr;
        (void)getgrnam_r(kGroup, &entry, text, sizeof(text), &found);
        isKnown = found != nullptr;
    }
    [[nodiscard]] bool Lists(const char* user) const {
        char** member = entry.gr_mem;
        while (*member != nullptr && strcmp(*member, user) != 0)
            ++member;
        return *member != nullptr;
    }

    bool isKnown;
    group entry{};
    char text[16384];
};

struct User {
    explicit User(uid_t id) {
        passwd* found = nullptr;
        (void)getpwuid_r(id, &entry, text, sizeof(text), &found);
        isKnown = found != nullptr;
    }

    bool isKnown;
    passwd entry{};
    char text[4096];
};

}  // namespace

const SocketAccess* ClientAccess() {
    static SocketAccess access;
    if (kIsForAll) return nullptr;
    const Group clients;
    if (!clients.isKnown) TESSEL_ERR("the group %s is not known!", kGroup);
    access = clients.isKnown ? SocketAccess{.mode = 0660, .group = clients.entry.gr_gid}
                             : SocketAccess{.mode = 0600, .group = kNoGroup};
    return &access;
}

bool MayBeNotified(uid_t owner, gid_t group) {
    if (kIsForAll || owner == 0 || owner == geteuid()) return true;
    const Group clients;
    if (!clients.isKnown) return false;
    if (group == clients.entry.gr_gid) return true;
    const User user(owner);
    return user.isKnown && (user.entry.pw_gid == clients.entry.gr_gid || clients.Lists(user.entry.pw_name));
}

}  // namespace tessel
