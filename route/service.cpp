#include "route/service.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "core/exec.h"
#include "core/log.h"
#include "core/system.h"
#include "core/text.h"

namespace {

constexpr char kStopCommand[] = "killall killall -9 %s";

struct ServiceProcess {
    const char* service;
    const char* onDesktop;
    const char* onDevice;
};

constexpr ServiceProcess kServiceProcesses[] = {
    {"ssh", "sshd", "dropbear"},
    {"telnetd", "in.telnetd", "telnetd"},
    {"ftpd", "vsftpd", "ftpd"},
};

constexpr char kOwnProcess[] = "tessel_daemon";

}  // namespace

const char* ProcessOfService(const char* serviceName) {
    const auto* const found = std::find_if(std::begin(kServiceProcesses), std::end(kServiceProcesses),
                                           [&](const auto& row) { return strcmp(row.service, serviceName) == 0; });
    if (found == std::end(kServiceProcesses)) return nullptr;
    return IsUbuntuHost() == 1 ? found->onDesktop : found->onDevice;
}

i32 ServiceStop(const char* serviceName) {
    const char* const known = ProcessOfService(serviceName);
    const char* const processName = known != nullptr ? known : serviceName;
    if (!tessel::IsLineWord(processName)) return -1;
    // killall takes a name with '/' for a program file, which could be this daemon's. The daemon never ends itself:
    // nobody would answer.
    if (strchr(processName, '/') != nullptr || strcmp(processName, kOwnProcess) == 0) {
        TESSEL_ERR("the service name [%s] is invalid!", processName);
        return -1;
    }
    tessel::CommandLine command;
    if (!tessel::ComposeCommand(command, kStopCommand, processName)) return -1;
    return tessel::Run(command);
}
