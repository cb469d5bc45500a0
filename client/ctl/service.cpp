// Stopping services of the device by name.
#include <fstream>

#include "client/ctl/guard.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

// What the daemon kills for a service: on a development machine, and on the device.
constexpr std::string_view kRemoteAccess[][3] = {
    {"ssh", "sshd", "dropbear"}, {"telnetd", "in.telnetd", "telnetd"}, {"ftpd", "vsftpd", "ftpd"}};

bool IsDesktop() {
    std::ifstream issue("/etc/issue");
    for (std::string line; std::getline(issue, line);) {
        if (line.find("ubuntu") != std::string::npos || line.find("Ubuntu") != std::string::npos) return true;
    }
    return false;
}

Outcome StopService(const Invocation& invocation) {
    const std::string service = invocation.words.Text("SERVICE");
    const auto* const known = std::find_if(std::begin(kRemoteAccess), std::end(kRemoteAccess),
                                           [&](const auto& names) { return names[0] == service; });
    const bool isKnown = known != std::end(kRemoteAccess);
    const std::string process(isKnown ? (*known)[IsDesktop() ? 1 : 2] : service);
    const auto pids = FindProcesses(process);
    if (!isKnown) {
        const std::string what = Format("every process called {} ({})", process, PidsText(pids));
        Agree(invocation, "Kill " + what, "it would kill " + what);
    }
    const auto guard = [&] {
        const bool carriesIt = process == "sshd" || process == "dropbear";
        const auto session = carriesIt ? GuardedSession(invocation.options) : std::nullopt;
        return session ? Format("it would kill every {}, and {}", process, session->text) : "";
    };
    const auto cause = [&] {
        if (process == "tessel_daemon") return std::string("the daemon never stops itself");
        return pids.empty() ? Format("no process {} runs here", process) : "";
    };
    const auto read = [&] { return Json{{"service", service}, {"process", process}, {"pids", pids}}; };
    return Perform(invocation, {.send = [&] { return tessel_service_stop(service.c_str()); },
                                .guard = guard,
                                .cause = cause,
                                .read = read,
                                .done = Format("{} stopped ({}, {})", service, process, PidsText(pids))});
}

constexpr Command kServiceCommands[] = {
    Row("stop", "SERVICE=ssh|telnetd|ftpd|NAME", &StopService, "kill every process of a service",
        "service stop telnetd")
        .Sends(TESSEL_CMD_SERVICE_STOP)
        .More("Signal 9, by process name; whatever starts the service may start it again. Asks first when it is "
              "none of the three."),
};

}  // namespace

extern const Object kService = {.name = "service", .summary = "services of the device", .commands = kServiceCommands};

}  // namespace tessel::ctl
