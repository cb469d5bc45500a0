// Keeps a remote session from cutting itself off.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/ctl/options.h"
#include "core/types.h"
#include "tessel/gateway.h"

namespace tessel::ctl {

constexpr std::string_view kCutsSession = "your session runs over this address (--force does it)";

// True when the connection that this is typed on ends at this address of the device.
[[nodiscard]] bool IsSessionAddress(const std::string& address);

// True when that address is one of this interface; with an empty name, when there is a remote connection at all.
[[nodiscard]] bool CarriesSession(const std::string& interfaceName);

// True when this is typed on a remote connection.
[[nodiscard]] bool IsRemoteSession();

// The host that is not to be shut out, and as far as known the TCP connection that it has to the device.
struct Session {
    std::string text;  // "your session comes from 192.168.1.77"
    TNetGateway peer;
    std::optional<TNetGateway> device;
    std::optional<u32> devicePort;
};

// Of the host that --protect names, else of the one that this is typed from; nothing: there is neither.
[[nodiscard]] std::optional<Session> GuardedSession(const Options& options);

// True when nothing is asked: --force, or nothing will be sent.
[[nodiscard]] bool MayCutSession(const Options& options);

}  // namespace tessel::ctl
