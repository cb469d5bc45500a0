// The MTU, which the kernel is asked for, and stopping services.
#include <cstring>

#include "route/mtu.h"
#include "tessel/mtu.h"
#include "tests/support/conversation.h"
#include "tests/support/files.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;

constexpr u32 kMtuSet = 0x111;
constexpr u32 kMtuGet = 0x112;
constexpr u32 kStop = 0x126;

std::string Mtu(const char* name, u32 mtu) {
    TNetMtuSetReq request{.achDevName = {}, .dwMtu = mtu};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

TEST(Mtu, IsLogged) {
    NotedTools tools;
    LoggedLines log(5);
    EXPECT_EQ(tools.Status(kMtuSet, Mtu("eth0", 1400)), 0);
    EXPECT_EQ(*tools.Request(kMtuGet, Name("eth0")), Bytes(TNetMtuGetReply{.nResult = 0, .dwMtu = 1400}));
    EXPECT_THAT(TakeLines(log), ElementsAre("ApidMtuSet: ApidMtuSet achDevName : eth0, dwMtu : 1400 ",
                                            "MtuGet: MtuGet pchIfaceName : eth0", "MtuGet: MtuGet mtu : 1400"));
    EXPECT_EQ(tools.Status(kMtuSet, Mtu("eth0", 1)), -1);
    EXPECT_THAT(TakeLines(log), ElementsAre("ApidMtuSet: ApidMtuSet achDevName : eth0, dwMtu : 1 ",
                                            ContainsRegex(":MtuSet\\([0-9]+\\):ioctl error\\{errno\\(22\\):"),
                                            "ApidMtuSet: MtuSet error!"));
    EXPECT_EQ(tools.Status(kMtuGet, Name("-V")), -1);
    EXPECT_EQ(MtuGet("eth0", nullptr), -1);
    EXPECT_THAT(TakeLines(log), ElementsAre("MtuGet: MtuGet pchIfaceName : -V",
                                            ContainsRegex(":MtuGet\\([0-9]+\\):ioctl error\\{errno\\(19\\):"),
                                            "ApidMtuGet: MtuGet error!", "MtuGet: the pdwMtu is NULL!"));
}

TEST(Service, IsStoppedByItsNameOnThisSystem) {
    NotedTools tools;
    tools.Answer("killall -9 nobody", "nobody: no process found", 1);
    WriteFile("/etc/issue", "Device\n");
    tools.Check({"device", kStop, Name("ssh"), {"killall -9 dropbear"}, 0});
    tools.Check({"device", kStop, Name("telnetd"), {"killall -9 telnetd"}, 0});
    tools.Check({"device", kStop, Name("ftpd"), {"killall -9 ftpd"}, 0});
    WriteFile("/etc/issue", "Ubuntu\n");
    tools.Check({"desktop", kStop, Name("ssh"), {"killall -9 sshd"}, 0});
    tools.Check({"desktop", kStop, Name("telnetd"), {"killall -9 in.telnetd"}, 0});
    tools.Check({"desktop", kStop, Name("ftpd"), {"killall -9 vsftpd"}, 0});
    tools.Check({"any other", kStop, Name("crond"), {"killall -9 crond"}, 0});
    tools.Check({"not running", kStop, Name("nobody"), {"killall -9 nobody"}, -1});
    for (const char* refused : {"", "two words", "-V", "/proc/1/exe", "tessel_daemon"})
        tools.Check({refused, kStop, Name(refused), {}, -1});

    LoggedLines log(5);
    EXPECT_EQ(tools.Status(kStop, Name("nobody")), -1);
    EXPECT_EQ(tools.Status(kStop, Name("-V")), -1);
    EXPECT_EQ(tools.Status(kStop, Name("tessel_daemon")), -1);
    EXPECT_THAT(TakeLines(log),
                ElementsAre("ExecCmd: killall", "ExecCmd: nobody: no process found",
                            "ApidServiceStop: ExecCmd Service Stop error!", "ServiceStop: the text [-V] is invalid!",
                            "ApidServiceStop: ExecCmd Service Stop error!",
                            "ServiceStop: the service name [tessel_daemon] is invalid!",
                            "ApidServiceStop: ExecCmd Service Stop error!"));
}

}  // namespace
}  // namespace tessel::test
