// Who may use the daemon. Everybody, unless it is built with -DTESSEL_CLIENT_GROUP=NAME: then root, the daemon's own
// user and the members of that group. The kernel keeps others from the daemon's socket, and they are sent no
// notifications.
#pragma once

#include <sys/types.h>

#include <optional>

#include "core/ipc.h"

namespace tessel {

// How the daemon's socket is to be made; nothing: as it always was, open to everybody. A group unknown to this system
// is logged, and only the daemon's own user and root remain.
[[nodiscard]] std::optional<SocketAccess> ClientAccess();

// Whether a notification may go to a socket file of this owner and group. A file of the clients' group is a member's:
// the kernel lets nobody else assign that group. For other files, the owner must be listed as a member or have it as
// the primary group.
[[nodiscard]] bool MayBeNotified(uid_t owner, gid_t group);

}  // namespace tessel
