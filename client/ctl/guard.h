// Keeps a remote session from cutting itself off.
#pragma once

#include "client/ctl/filter.h"

namespace tessel::ctl {

// A host that is not to be shut out, and as far as known the connection that it has to the device.
struct Session {
    std::string text;  // "your session comes from 192.168.1.77"
    Network peer;
    std::optional<Network> device = {};
    std::optional<u32> devicePort = {};
    std::optional<u32> peerPort = {};
};

// Of --protect's host, else of the one that this is typed from (SSH_CONNECTION); nothing: there is neither.
[[nodiscard]] std::optional<Session> GuardedSession(const Options& options);

// That one, and every host with an established TCP connection to port 22 or 23, as the kernel knows them.
[[nodiscard]] std::vector<Session> KnownSessions(const Options& options);

// The established connections of "tcp" or "udp", without a text.
[[nodiscard]] std::vector<Session> Connections(const std::string& protocol);

// Why losing this address, or every address of this interface (of any, when it is empty), would end the session that
// this is typed in: "your session runs over 192.168.1.20". Empty: it would not.
[[nodiscard]] std::string CutsSessionAt(const Network& address);
[[nodiscard]] std::string CutsSessionOn(const std::string& interfaceName);

// Whether the packets of a session reach the device (INPUT, destination port) and its answers leave it (OUTPUT, source
// port). What cannot be judged does not match.
[[nodiscard]] bool LetsThrough(const Filter& filter, const Session& session);

// Whether an entry of the whitelist covers every address of a network, whatever else the packet is.
[[nodiscard]] bool IsListed(const Filter& filter, const Network& network);

}  // namespace tessel::ctl
