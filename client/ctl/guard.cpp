#include "client/ctl/guard.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>

#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/values.h"

namespace tessel::ctl {

namespace {

// Client's address and port, server's address and port; nothing where this is no remote connection.
std::optional<std::array<std::string, 4>> Connection() {
    const char* connection = getenv("SSH_CONNECTION");
    if (connection == nullptr) return std::nullopt;
    std::istringstream text(connection);
    std::array<std::string, 4> words;
    for (std::string& word : words)
        text >> word;
    return words;
}

// Link-local addresses carry their interface: "fe80::1%eth0". A server for both families writes "::ffff:192.168.1.77".
std::string PlainAddress(const std::string& word) {
    constexpr std::string_view kMapped = "::ffff:";
    const std::string address = word.substr(0, word.find('%'));
    const bool isMapped = address.starts_with(kMapped) && address.find('.') != std::string::npos;
    return isMapped ? address.substr(kMapped.size()) : address;
}

}  // namespace

bool IsSessionAddress(const std::string& address) {
    const auto connection = Connection();
    return connection && !address.empty() && PlainAddress((*connection)[2]) == address;
}

bool CarriesSession(const std::string& interfaceName) {
    if (interfaceName.empty()) return IsRemoteSession();
    const auto link = FindKernelLink(interfaceName);
    return link && std::any_of(link->addresses.begin(), link->addresses.end(),
                               [](const ShownAddress& address) { return IsSessionAddress(address.text); });
}

bool IsRemoteSession() {
    return Connection().has_value();
}

std::optional<Session> GuardedSession(const Options& options) {
    if (!options.protect.empty()) {
        return Session{.text = "--protect names " + options.protect,
                       .peer = *ParseHost(options.protect),
                       .device = std::nullopt,
                       .devicePort = std::nullopt};
    }
    const auto connection = Connection();
    if (!connection) return std::nullopt;
    const auto peer = ParseHost(PlainAddress((*connection)[0]));
    if (!peer) return std::nullopt;
    return Session{.text = "your session comes from " + HostText(*peer),
                   .peer = *peer,
                   .device = ParseHost(PlainAddress((*connection)[2])),
                   .devicePort = ParseNumber((*connection)[3])};
}

bool MayCutSession(const Options& options) {
    return options.force || options.dryRun;
}

}  // namespace tessel::ctl
