// Gateways: single addresses that lie in a network of one of our interfaces.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "tessel/gateway.h"

namespace tessel::ctl {

// From "192.168.1.1" or "fe80::1". Nothing for anything else, a zero address included: it stands for no gateway.
[[nodiscard]] std::optional<TNetGateway> ParseHost(const std::string& text);

// From "192.168.1.10-192.168.1.20", both of one family, the first one not behind the last one.
[[nodiscard]] std::optional<std::pair<TNetGateway, TNetGateway>> ParseRange(const std::string& text);

// "192.168.1.1"; empty for a zero address.
[[nodiscard]] std::string HostText(const TNetGateway& host);

// Why no route can go through this gateway, as far as addresses and interfaces tell: "there is no interface eth9",
// "eth0 is down", "192.168.9.1 is in no network of eth0 (192.168.1.20/24)". Empty: the cause lies elsewhere. An empty
// name stands for whatever interface.
[[nodiscard]] std::string WhyUnreachable(const TNetGateway& gateway, const std::string& interfaceName);

}  // namespace tessel::ctl
