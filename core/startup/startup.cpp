#include "core/startup/startup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "core/log.h"
#include "core/server.h"
#include "core/startup/command_table.h"
#include "core/startup/version.h"
#include "probe/conflict/conflict.h"
#include "probe/conflict/netdev_table.h"
#include "probe/ping.h"
#include "probe/router/router_watch.h"
#include "probe/traceroute.h"
#include "route/monitor/monitor.h"
#include "services/dhcp_client.h"
#include "services/dhcp_server.h"
#include "services/ntp_client.h"
#include "services/pppoe.h"
#include "sysdbg/sysdbg.h"

using tessel::CallSite;

namespace {

constexpr char kCrashFile[] = "/usr/tessel_crash.log";

// If whoever started the daemon closed a descriptor below 3, a socket would get its number, and standard output would
// go there.
void OccupyStandardDescriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) close(fd);
}

// Forks and ends the parent.
void ContinueInChild(CallSite where = CallSite::Current()) {
    const pid_t pid = fork();
    if (pid < 0) {
        tessel::LogPerror(where, "fork error");
        _exit(EXIT_FAILURE);
    }
    if (pid > 0) _exit(EXIT_SUCCESS);
}

void SetSignalActions() {
    signal(SIGHUP, SIG_IGN);
    signal(SIGINT, SIG_IGN);
    signal(SIGCHLD, SIG_DFL);  // tools are waited for
}

}  // namespace

void DaemonInit() {
    ContinueInChild();
    setsid();
    ContinueInChild();
    if (chdir("/tmp") != 0) TESSEL_PERROR("chdir error");
    umask(0);
}

i32 TesselDaemonInit() {
    DaemonInit();
    SetSignalActions();
    (void)DaemonDhcpcInit();
    DaemonDhcpsInit();
    DaemonPingInit();
    DaemonTracerouteInit();
    DaemonRouterNotifyInit();
    (void)DaemonNtpcInit();
    DaemonPppoeInit();
    return NetdevTableInit();
}

// The lines of the start are error lines: the log's initial level lets those through.
void TesselDaemonMain() {
    constexpr char kMain[] = "main";  // the only caller
    OccupyStandardDescriptors();
    // A client that is gone makes the write fail, and so does a standard output that nobody reads.
    signal(SIGPIPE, SIG_IGN);
    // Before the forks, so that they are covered: the debug thread does not outlive them, and its message queue stays.
    // The daemon serves without crash reports, too.
    (void)SysdbgInit(nullptr, kCrashFile, 0, 0);
    TESSEL_ERR_AT(CallSite::Current(kMain), "[TESSEL_DAEMON]: sysdbg init done");
    TESSEL_ERR_AT(CallSite::Current(kMain), "[TESSEL_DAEMON]: TESSEL_DAEMON INIT %s %s", __DATE__, __TIME__);
    char banner[256] = {};
    (void)NetQueryVersion(banner, sizeof(banner));  // the banner fits; were it too long, that is logged
    TESSEL_ERR_AT(CallSite::Current(kMain), "[TESSEL_DAEMON]: %s", banner);
    (void)TesselDaemonInit();  // one missing module is no reason not to serve the others
    TESSEL_ERR_AT(CallSite::Current(kMain), "[TESSEL_DAEMON]: daemon init done");
    NetSaveVersionInfo();
    tessel::NoteChangesFromNowOn();
    (void)ConflictCheckInit();
    TESSEL_ERR_AT(CallSite::Current(kMain), "[TESSEL_DAEMON]: conflict check start done");
    (void)NetlinkInit();
    TESSEL_ERR_AT(CallSite::Current(kMain), "[TESSEL_DAEMON]: netlink start done");
    (void)IpcApiRegisterAll();  // always 0
    TESSEL_ERR_AT(CallSite::Current(kMain), "[TESSEL_DAEMON]: api register done");
    (void)IpcApiDaemonInit();
    // Without a socket no command is served; the workers continue.
    while (true)
        sleep(1);
}
