// The MTU, which the kernel is asked for, and stopping services.
#include "route/mtu.h"
#include "tessel/mtu.h"
#include "tests/support/files.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

Call Set(const char* name, u32 mtu) {
    return {0x111, Named(TNetMtuSetReq{.achDevName = {}, .dwMtu = mtu}, name)};
}

Call Get(const char* name) {
    return {0x112, Name(name)};
}

// The kernel's refusals are logged with a line of the source.
TEST(Mtu, IsLogged) {
    LoggedTools tools;
    const std::string mtu(Bytes(TNetMtuGetReply{.nResult = 0, .dwMtu = 1400}));
    tools.Check({
        {"set", Set("eth0", 1400), 0, "", "ApidMtuSet: ApidMtuSet achDevName : eth0, dwMtu : 1400 "},
        {"get", Get("eth0"), mtu, "", "MtuGet: MtuGet pchIfaceName : eth0; MtuGet mtu : 1400"},
    });
    EXPECT_EQ(tools.Status(0x111, Set("eth0", 1).payload), -1);
    EXPECT_EQ(tools.Status(0x112, Get("-V").payload), -1);
    EXPECT_EQ(MtuGet("eth0", nullptr), -1);
    EXPECT_THAT(
        tools.TakeLog(),
        testing::MatchesRegex(
            "ApidMtuSet: ApidMtuSet achDevName : eth0, dwMtu : 1 ; .*:MtuSet\\([0-9]+\\):ioctl "
            "error\\{errno\\(22\\):.*; MtuSet error!; MtuGet: MtuGet pchIfaceName : -V; .*:MtuGet\\([0-9]+\\):ioctl "
            "error\\{errno\\(19\\):.*; ApidMtuGet: MtuGet error!; MtuGet: the pdwMtu is NULL!"));
}

TEST(Service, IsStoppedByItsNameOnThisSystem) {
    LoggedTools tools;
    tools.Fail({"killall -9 nobody"});
    const auto stop = [](const char* name) { return Call{0x126, Name(name)}; };
    WriteFile("/etc/issue", "Device\n");
    tools.Check({
        {"device", stop("ssh"), 0, "killall -9 dropbear"},
        {"device", stop("telnetd"), 0, "killall -9 telnetd"},
        {"device", stop("ftpd"), 0, "killall -9 ftpd"},
    });
    WriteFile("/etc/issue", "Ubuntu\n");
    tools.Check({
        {"desktop", stop("ssh"), 0, "killall -9 sshd"},
        {"desktop", stop("telnetd"), 0, "killall -9 in.telnetd"},
        {"desktop", stop("ftpd"), 0, "killall -9 vsftpd"},
        {"any other", stop("crond"), 0, "killall -9 crond"},
        {"not running", stop("nobody"), -1, "killall -9 nobody",
         "ExecCmd: killall; No.; ApidServiceStop: ExecCmd Service Stop error!"},
        {"no name", stop(""), -1, ""},
        {"two words", stop("two words"), -1, ""},
        {"an option", stop("-V"), -1, "",
         "ServiceStop: the text [-V] is invalid!; ApidServiceStop: ExecCmd Service Stop error!"},
        {"a file", stop("/proc/1/exe"), -1, ""},
        {"this program", stop("tessel_daemon"), -1, "",
         "ServiceStop: the service name [tessel_daemon] is invalid!; ApidServiceStop: ExecCmd Service Stop error!"},
    });
}

}  // namespace
}  // namespace tessel::test
