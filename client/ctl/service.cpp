#include <fmt/format.h>

#include <algorithm>
#include <fstream>

#include "client/ctl/guard.h"
#include "client/ctl/handlers.h"
#include "client/ctl/processes.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

struct ServiceName {
    std::string_view service;
    std::string_view onDesktop;
    std::string_view onDevice;
};

constexpr ServiceName kServices[] = {
    {"ssh", "sshd", "dropbear"},
    {"telnetd", "in.telnetd", "telnetd"},
    {"ftpd", "vsftpd", "ftpd"},
};

bool IsDesktop() {
    std::ifstream issue("/etc/issue");
    for (std::string line; std::getline(issue, line);) {
        if (line.find("ubuntu") != std::string::npos || line.find("Ubuntu") != std::string::npos) return true;
    }
    return false;
}

// What the daemon kills for "ssh", "telnetd" and "ftpd"; any other name is a process already.
std::string ProcessOfService(const std::string& service) {
    for (const ServiceName& row : kServices) {
        if (row.service == service) return std::string(IsDesktop() ? row.onDesktop : row.onDevice);
    }
    return service;
}

// True when the connection that this is typed on is served by one of `process`.
bool CarriesThisSession(const std::string& process) {
    return IsRemoteSession() && (process == "dropbear" || process == "sshd");
}

// Empty: not known.
std::string WhyNotStopped(const std::string& process, std::size_t running) {
    if (process == "tessel_daemon") return "the daemon never stops itself";
    return running == 0 ? fmt::format("no process {} runs here", process) : "";
}

}  // namespace

Outcome ServiceStop(const Invocation& invocation) {
    const std::string service = invocation.words.Get("NAME");
    const std::string process = ProcessOfService(service);
    const std::size_t running = FindProcesses(process).size();
    const std::string asked = "service stop " + service;
    if (CarriesThisSession(process) && !MayCutSession(invocation.options)) {
        return Refused(asked, fmt::format("it would kill every {}, with it the one that carries your session "
                                          "(--force does it)",
                                          process));
    }
    const int error = tessel_service_stop(service.c_str());
    if (error != TESSEL_OK) return CallFailed(asked, error, WhyNotStopped(process, running));
    Outcome outcome;
    outcome.document = {{"service", service}, {"process", process}, {"stopped", running}};
    outcome.done = fmt::format("{} stopped ({} of {})", service, running, process);
    return outcome;
}

}  // namespace tessel::ctl
