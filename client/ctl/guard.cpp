#include "client/ctl/guard.h"

#include <cstdlib>
#include <sstream>

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

bool IsRemoteSession() {
    return getenv("SSH_CONNECTION") != nullptr;
}

bool MayCutSession(const Options& options) {
    return options.force || options.dryRun;
}

}  // namespace tessel::ctl
