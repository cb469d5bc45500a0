// Which process a service is on this kind of system.
#pragma once

#include <string>

namespace tessel::ctl {

// What the daemon kills for "ssh", "telnetd" and "ftpd"; any other name is a process already. The kind of system is
// read from "/etc/issue", as the daemon does.
[[nodiscard]] std::string ProcessOfService(const std::string& service);

}  // namespace tessel::ctl
