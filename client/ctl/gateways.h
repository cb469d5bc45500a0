// Default gateways as the daemon tells them and as the kernel has them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/ctl/kernel_routes.h"
#include "client/ctl/pattern.h"
#include "core/types.h"
#include "tessel/gateway.h"
#include "tessel/priority.h"

namespace tessel::ctl {

// Where a default route is looked for.
struct GatewayPlace {
    std::string interfaceName;  // empty: whichever
    u32 table = 0;              // 0: the main table
};

// From the words "dev IF" and "table N", which may be missing.
[[nodiscard]] GatewayPlace PlaceOf(const Arguments& words);

// " dev eth0 table 5", as typed.
[[nodiscard]] std::string PlaceWords(const GatewayPlace& place);

// "eth0", or "the device" for whichever interface.
[[nodiscard]] std::string OwnerText(const GatewayPlace& place);

// The table's number as the kernel knows it.
[[nodiscard]] u32 KernelTable(const GatewayPlace& place);

// "there is no interface eth9"; empty when there is one, or none was named.
[[nodiscard]] std::string MissingAt(const GatewayPlace& place);

struct ToldGateway {
    TNetGateway record{};
    std::string text;  // empty: none
    bool isLearnt = false;
};

// What the daemon tells; an error of libtessel. A table that does not exist has no gateway.
[[nodiscard]] int AskForGateway(const GatewayPlace& place, int family, ToldGateway& told);

// The kernel's default routes there, in its order. Empty also when the daemon is known to live in another network.
[[nodiscard]] std::vector<KernelRoute> KernelDefaults(const GatewayPlace& place, int family);

// The metric that the list gives to the IPv4 default routes of an interface.
[[nodiscard]] std::optional<i32> PriorityOf(const TNetPrioParamList& list, const std::string& name);

// Why the daemon's -1 to setting a gateway there; empty: not known.
[[nodiscard]] std::string WhyNotSet(const GatewayPlace& place, const TNetGateway& gateway);

}  // namespace tessel::ctl
