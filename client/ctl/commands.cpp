#include "client/ctl/commands.h"

#include <algorithm>

#include "client/ctl/command.h"

namespace tessel::ctl {

namespace {

struct ObjectText {
    std::string_view object;
    std::string_view summary;
};

constexpr ObjectText kObjects[] = {
    {"addr", "addresses"},
    {"link", "interfaces: state, MTU, hardware address"},
    {"gateway", "default gateways"},
    {"priority", "which uplink is preferred"},
    {"route", "static routes through a gateway"},
    {"table", "routing tables that all traffic asks"},
    {"rule", "rules that choose a routing table"},
    {"firewall", "the packet filter: lists, echo requests, ports"},
    {"arp", "neighbours and their hardware addresses"},
    {"service", "remote-access services"},
    {"log", "the daemon's log"},
    {"conflict", "other hosts that use the device's addresses"},
    {"crash", "reports of the daemon's crashes"},
    {"raw", "any request as bytes"},
    {"status", "the daemon and the interfaces at a glance"},
    {"help", "help on an object"},
};

std::vector<Command> JoinedCommands() {
    std::vector<Command> commands;
    for (const auto rows : {AddressCommands(), GatewayCommands(), RouteCommands(), FirewallCommands(), DeviceCommands(),
                            ProbeCommands(), ToolCommands()})
        commands.insert(commands.end(), rows.begin(), rows.end());
    return commands;
}

}  // namespace

std::span<const Command> Commands() {
    static const std::vector<Command> commands = JoinedCommands();
    return commands;
}

std::vector<std::string> ObjectNames() {
    std::vector<std::string> names;
    for (const ObjectText& text : kObjects)
        names.emplace_back(text.object);
    return names;
}

std::string_view ObjectSummary(std::string_view object) {
    const auto* const found = std::find_if(std::begin(kObjects), std::end(kObjects),
                                           [&](const ObjectText& text) { return text.object == object; });
    return found == std::end(kObjects) ? std::string_view{} : found->summary;
}

}  // namespace tessel::ctl
