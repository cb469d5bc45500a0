// Keeps a remote session from cutting itself off.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/ctl/options.h"
#include "tessel/gateway.h"

namespace tessel::ctl {

constexpr std::string_view kCutsSession = "your session runs over this address (--force does it)";

// True when the connection that this is typed on ends at this address of the device.
[[nodiscard]] bool IsSessionAddress(const std::string& address);

// True when that address is one of this interface; with an empty name, when there is a remote connection at all.
[[nodiscard]] bool CarriesSession(const std::string& interfaceName);

// True when this is typed on a remote connection.
[[nodiscard]] bool IsRemoteSession();

// The host that this is typed from; nothing: there is no remote connection.
[[nodiscard]] std::optional<TNetGateway> SessionPeer();

// True when nothing is asked: --force, or nothing will be sent.
[[nodiscard]] bool MayCutSession(const Options& options);

}  // namespace tessel::ctl
