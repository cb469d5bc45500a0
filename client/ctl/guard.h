// Keeps a remote session from cutting itself off.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

// A host that is not to be shut out, and as far as known the TCP connection that it has to the device.
struct Session {
    std::string text;  // "your session comes from 192.168.1.77"
    Network peer;
    std::optional<Network> device;
    std::optional<u32> devicePort;
};

// Of the host that --protect names, else of the one that this is typed from (SSH_CONNECTION); nothing: there is
// neither.
[[nodiscard]] std::optional<Session> GuardedSession(const Options& options);

// That one, and every host with an established TCP connection to port 22 or 23, as the kernel knows them.
[[nodiscard]] std::vector<Session> KnownSessions(const Options& options);

// An address in the tables of connections in "/proc/net": "0100007F:0016". A mapped one is one of IPv4.
[[nodiscard]] Network AddressInTable(const std::string& word);

// Why losing this address, or every address of this interface (of any, when it is empty), would end the session that
// this is typed in: "your session runs over 192.168.1.20". Empty: it would not.
[[nodiscard]] std::string CutsSessionAt(const Network& address);
[[nodiscard]] std::string CutsSessionOn(const std::string& interfaceName);

}  // namespace tessel::ctl
