#include "core/client_group.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "core/log.h"

namespace tessel {

namespace {

constexpr char kGroup[] = TESSEL_CLIENT_GROUP;
constexpr bool kIsForAll = kGroup[0] == '\0';

constexpr gid_t kNoGroup = static_cast<gid_t>(-1);

// A group or a user. Looked up each time: members may come and go.
template <typename Entry>
struct Found {
    // A group of a directory service may have thousands of members: there is as much room for the texts as they need.
    template <typename Key>
    Found(int (*find)(Key, Entry*, char*, std::size_t, Entry**), Key key) {
        constexpr std::size_t kTextBytesMax = 1 << 20;
        int error = ERANGE;
        for (std::size_t bytes = 4096; error == ERANGE && bytes <= kTextBytesMax; bytes *= 4) {
            texts.resize(bytes);
            Entry* found = nullptr;
            error = find(key, &entry, texts.data(), bytes, &found);
            isKnown = found != nullptr;
        }
    }

    bool isKnown = false;
    Entry entry{};
    std::vector<char> texts;  // what the entry points into
};

using Group = Found<group>;
using User = Found<passwd>;

bool Lists(const group& clients, const char* user) {
    char** member = clients.gr_mem;
    while (*member != nullptr && strcmp(*member, user) != 0)
        ++member;
    return *member != nullptr;
}

}  // namespace

std::optional<SocketAccess> ClientAccess() {
    if (kIsForAll) return std::nullopt;
    const Group clients(&getgrnam_r, kGroup);
    if (clients.isKnown) return SocketAccess{.mode = 0660, .group = clients.entry.gr_gid};
    TESSEL_ERR("the group %s is not known!", kGroup);
    return SocketAccess{.mode = 0600, .group = kNoGroup};
}

bool MayBeNotified(uid_t owner, gid_t group) {
    if (kIsForAll || owner == 0 || owner == geteuid()) return true;
    const Group clients(&getgrnam_r, kGroup);
    if (!clients.isKnown) return false;
    if (group == clients.entry.gr_gid) return true;
    const User user(&getpwuid_r, owner);
    return user.isKnown && (user.entry.pw_gid == clients.entry.gr_gid || Lists(clients.entry, user.entry.pw_name));
}

}  // namespace tessel
