#include "client/ctl/guard.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"

namespace tessel::ctl {

bool IsSessionAddress(const std::string& address) {
    const char* connection = getenv("SSH_CONNECTION");
    if (connection == nullptr) return false;
    // Client's address and port, server's address and port.
    std::istringstream words(connection);
    std::string word;
    words >> word >> word >> word;
    return words && word == address;
}

bool CarriesSession(const std::string& interfaceName) {
    if (interfaceName.empty()) return IsRemoteSession();
    const auto link = FindKernelLink(interfaceName);
    return link && std::any_of(link->addresses.begin(), link->addresses.end(),
                               [](const ShownAddress& address) { return IsSessionAddress(address.text); });
}

bool IsRemoteSession() {
    return getenv("SSH_CONNECTION") != nullptr;
}

std::optional<TNetGateway> SessionPeer() {
    const char* connection = getenv("SSH_CONNECTION");
    if (connection == nullptr) return std::nullopt;
    const std::string text(connection);
    // Link-local addresses carry their interface: "fe80::1%eth0".
    return ParseHost(text.substr(0, text.find_first_of(" %")));
}

bool MayCutSession(const Options& options) {
    return options.force || options.dryRun;
}

}  // namespace tessel::ctl
