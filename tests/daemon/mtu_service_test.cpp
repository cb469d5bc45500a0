// The MTU, which the kernel is asked for, stopping services, and where the log goes.
#include "tessel/log.h"
#include "tessel/mtu.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

Call Set(const char* name, u32 mtu) {
    return {0x111, Named(TNetMtuSetReq{.achDevName = {}, .dwMtu = mtu}, name)};
}

Call Get(const char* name) {
    return {0x112, Padded(name, 16)};
}

TEST(Mtu, IsLogged) {
    LoggedTools tools;
    const std::string mtu(Bytes(TNetMtuGetReply{.nResult = 0, .dwMtu = 1400}));
    tools.Check({
        {"set", Set("eth0", 1400), 0, "", "ApidMtuSet: ApidMtuSet achDevName : eth0, dwMtu : 1400 "},
        {"get", Get("eth0"), mtu, "", "MtuGet: MtuGet pchIfaceName : eth0; MtuGet mtu : 1400"},
        {"too small", Set("eth0", 1), -1, "",
         "ApidMtuSet: ApidMtuSet achDevName : eth0, dwMtu : 1 ; MtuSet: ioctl error{errno(22):Invalid argument}; "
         "ApidMtuSet: MtuSet error!"},
        {"no interface", Get("-V"), -1, "",
         "MtuGet: MtuGet pchIfaceName : -V; ioctl error{errno(19):No such device}; ApidMtuGet: MtuGet error!"},
    });
}

TEST(Service, IsStoppedByItsNameOnThisSystem) {
    LoggedTools tools;
    tools.Fail({"killall -9 nobody"});
    const auto stop = [](const char* name) {
        return Call{0x126, Padded(name, 16), "ApidServiceStop: ExecCmd Service Stop error!"};
    };
    WriteFile("/etc/issue", "Device\n");
    tools.Check({{"device", stop("ssh"), 0, "killall -9 dropbear"},
                 {"device", stop("telnetd"), 0, "killall -9 telnetd"},
                 {"device", stop("ftpd"), 0, "killall -9 ftpd"}});
    WriteFile("/etc/issue", "Ubuntu\n");
    tools.Check({
        {"desktop", stop("ssh"), 0, "killall -9 sshd"},
        {"desktop", stop("telnetd"), 0, "killall -9 in.telnetd"},
        {"desktop", stop("ftpd"), 0, "killall -9 vsftpd"},
        {"any other", stop("crond"), 0, "killall -9 crond"},
        {"not running", stop("nobody"), -1, "killall -9 nobody", "ExecCmd: killall; No."},
        {"an option", stop("-V"), -1, "", "ServiceStop: the text [-V] is invalid!"},
        {"a file", stop("/proc/1/exe"), -1, ""},
        {"this program", stop("tessel_daemon"), -1, "", "ServiceStop: the service name [tessel_daemon] is invalid!"},
    });
}

TEST(LogCommands, SteerTheLog) {
    LoggedTools tools(2);
    // What a refused MTU logs: an error, and what was asked for before that.
    const auto logged = [&] {
        EXPECT_EQ(tools.Status(Set("eth9", 1)), -1);
        return tools.TakeLog();
    };
    EXPECT_EQ(tools.Status(0x702, Number(4)), 0);
    EXPECT_THAT(logged(), HasSubstr("dwMtu : 1 "));
    EXPECT_EQ(tools.Status(0x702, Number(~0U)), 0);
    EXPECT_EQ(tools.Status(0x702, "12"), -1) << "no level, nothing set";
    EXPECT_EQ(logged(), "");
    EXPECT_EQ(tools.Status(0x702, Number(2)), 0);
    for (const auto& [code, status] : {std::pair{6U, 0}, {TESSEL_LOG_OPEN_LIB, 0}, {0U, -1}, {7U, -1}, {~0U, -1}}) {
        const LogFileCtl file{.eCmd = code, .achLibPath = {}, .achDaemonPath = "/tmp/daemon.log"};
        EXPECT_EQ(tools.Status(0x701, Bytes(file)), status) << code;
    }
    EXPECT_EQ(logged(), "") << "closed, and the library's log is not the daemon's";
}

}  // namespace
}  // namespace tessel::test
