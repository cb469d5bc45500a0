// The device itself: its log, crash reports, services and ARP entries, and requests byte for byte.
#include <dlfcn.h>
#include <linux/if_ether.h>

#include "client/ctl/processes.h"
#include "tests/ctl/tool.h"

// In no namespace: the name that the symbol table has is the one written here.
constexpr int kCrashingLine = __LINE__ + 1;
extern "C" int CrashingFunction() {
    return getpid();
}

namespace tessel::test {
namespace {

TEST(CtlLog, LevelFileAndDebugSwitch) {
    const Daemon daemon;
    WriteFile("/tmp/full", "something");
    ExpectAll({{"log level info", 0, "log level 4 (it cannot be read back)"},
               {"log level loud", 2, "\"loud\" is not one of off, error, info, debug, N"},
               {"log level 2147483648", 2, "\"2147483648\" is"},
               {"log level -j 0x7fffffff", 0, "{\"level\":2147483647}"},
               {"log file log.txt", 2, "give the whole path"},
               {"log file /" + std::string(127, 'x'), 2, "longer than 127"},
               {"log file /tmp/full", 2, "the file has 9 bytes and would be emptied (--yes does it)"},
               {"log file /tmp/nowhere/log", 1, "the daemon cannot create the file"},
               {"log file /tmp/full -n", 0, "0x701"},
               {"log file /tmp/full --yes", 0, "the daemon logs to /tmp/full"},
               {"log debug on -n", 0, "creates /tmp/tesseldebug"}});
    EXPECT_TRUE(Eventually([] { return ReadFile("/tmp/full").find("something") == std::string::npos; }));
    EXPECT_FALSE(std::filesystem::exists("/tmp/tesseldebug"));
    ExpectAll({{"log debug on", 0, "logs everything"}, {"log file off", 0, "no log file any more"}});
    EXPECT_TRUE(std::filesystem::exists("/tmp/tesseldebug"));
    ExpectAll({{"log debug off", 0, "debug lines are off"}, {"log debug off", 0, "off"}});
    std::filesystem::create_symlink("/tmp/elsewhere", "/tmp/tesseldebug");
    ExpectAll({{"log debug on", 1, "symbolic links"}});
}

TEST(CtlLog, FollowsAFileThatGrowsIsEmptiedAndReplaced) {
    EXPECT_EQ(OutputOf("cd /tmp; echo one > log; (sleep 0.5; printf 'two\\nthr' >> log; sleep 0.5; echo ee >> log; "
                       "sleep 0.5; echo 4 > log; sleep 0.5; rm log; sleep 0.5; echo five > new; mv new log) & "
                       "timeout 4 " TESSEL_CTL_PATH " log follow /tmp/log"),
              "one\ntwo\nthree\n4\nfive\n");
    // Of everybody's log the daemon's last lines come first.
    Prepare({"for i in $(seq 12); do echo \"[TESSEL_INFO] $i\"; echo other; done >> /var/log/messages"});
    EXPECT_EQ(OutputOf("(sleep 0.7; echo '[TESSEL_ERR] x' >> /var/log/messages; echo other >> /var/log/messages) & "
                       "timeout 2 " TESSEL_CTL_PATH " log follow"),
              OutputOf("seq -f '[TESSEL_INFO] %g' 3 12") + "[TESSEL_ERR] x\n");
    EXPECT_THAT(OutputOf("timeout 1 " TESSEL_CTL_PATH " log follow -j"),
                HasSubstr(R"({"line":"[TESSEL_ERR] x","kind":"ERR","function":"","text":"[TESSEL_ERR] x"})"));
    ExpectAll({{"log follow /tmp/nothing", 1, "No such file"}});
}

TEST(CtlService, NamesWhatItKillsAndAsks) {
    Prepare({"cp /bin/sleep /tmp/victim", "/tmp/victim 100 &", "cp /bin/sleep /tmp/telnetd", "/tmp/telnetd 100 &"});
    EXPECT_TRUE(Eventually([] { return FindProcesses("victim", "victim 100").size() == 1; }));
    const Daemon daemon;
    const std::string pid = std::to_string(FindProcesses("victim").at(0));
    ExpectAll({{"service stop nothing-here", 2, "every process called nothing-here (none runs) (--yes does it)"},
               {"service stop nothing-here --yes", 1, "Probable cause: no process nothing-here runs here"},
               {"service stop tessel_daemon --yes", 1, "the daemon never stops itself"},
               {"service stop victim", 2, "it would kill every process called victim (pid " + pid + ")"}});
    EXPECT_EQ(FindProcesses("victim").size(), 1U);
    ExpectAll({{"service stop victim --yes", 0, "victim stopped (victim, pid " + pid + ")"},
               {"service stop telnetd", 0, "telnetd stopped (telnetd, pid "}});
    EXPECT_TRUE(Eventually([] { return FindProcesses("victim").empty(); }));
    EnterSession();
    ExpectAll({{"service stop ssh", 2, "it would kill every dropbear, and your session comes from 192.168.1.77"},
               {"service stop ssh --force", 1, "no process dropbear runs here"}});
}

TEST(CtlArp, EntriesAreReadBackFromTheKernel) {
    Prepare({"ip addr add 192.168.1.20/24 dev eth0"});
    const Daemon daemon;
    ExpectAll({{"arp add 192.168.1.77 02:00:00:00:00:77 eth0", 0, "192.168.1.77   is at 02:00:00:00:00:77"},
               {"arp add fe80::1 02:00:00:00:00:77 eth0", 2, "ARP is for IPv4 addresses"},
               {"arp add 10.9.9.9 02:00:00:00:00:77", 1, "10.9.9.9 is in no network of any interface"},
               {"arp show -g address,mac,interface,state", 0, "192.168.1.77\t02:00:00:00:00:77\teth0\tpermanent\n"},
               {"arp del 192.168.1.78 eth0", 1, "there is no such entry"},
               {"arp del 192.168.1.77 dev eth0", 0, "192.168.1.77   deleted"}});
    const FarLink far("far0", ETH_P_ARP);
    ExpectAll(
        {{"arp announce fe80::1", 2, "ARP is for IPv4"}, {"arp announce 192.168.1.99 -j", 0, "\"192.168.1.99\""}});
    EXPECT_TRUE(Eventually([&] { return far.Next().find("\xC0\xA8\x01\x63") != std::string::npos; }));
    ExpectAll({{"arp announce stop", 0, "nothing is announced any more"}});
}

TEST(CtlRaw, SendsBytesFromEverywhere) {
    const Daemon daemon;
    const std::string hex = "65746830000000000000000000000000";
    WriteFile("/tmp/request", Padded("eth0", 16));
    ExpectAll({{"raw mtu_get " + hex, 0, "00000000dc050000\n"},
               {"raw 0x112 @/tmp/request --reply 8 -g reply", 0, "00000000dc050000\n"},
               {"raw mtu_get " + hex + " -j", 0, "\"decoded\":{\"result\":0,\"mtu\":1500}"},
               {"raw mtu_get 656", 2, "pairs of hexadecimal digits"},
               {"raw mtu_get @/tmp/nothing", 2, "cannot read /tmp/nothing"},
               {"raw 0x999", 2, "how long is the reply?"},
               {"raw no_name", 2, "is not a valid code or name of a request"},
               {"raw mtu_get " + std::string(6146, '0'), 2, "3073 bytes are more than 3072"}});
    EXPECT_EQ(OutputOf(TESSEL_CTL_PATH " raw mtu_get - < /tmp/request 2>&-"), "00000000dc050000\n");
}

constexpr char kReport[] =
    "\n=============== Exception Occur =================\n"
    "Version: 1.0.2.4a14bb47\nThread id: 1234\nThread name:ping (eth0)\nSignal num: 11\n"
    "Exception time: 2026-11-21 10:51:52\n"
    "=============CPU registers=============\n"
    "PC:0x14f8, LR:0x1500, SP:0xbeff0000, FP:(nil)\nR0:0x1, R1:0x2, R2:0x3, R3:0x4, R4:0x5\n"
    "\n===========Call Trace(extbl)==========\nObtained 3 stack frames:\n"
    "</usr/sbin/tessel_daemon> (<OnSignal> + 0x10) [0x1010]\n"
    "</usr/sbin/tessel_daemon> (<_Z8SendPingi> + 0x8) [0x14f8]\n"
    "</usr/sbin/tessel_daemon> (<main> + 0x4) [0x1204]\n"
    "\n===========Call Trace(unwind)==========\nObtained 1 stack frames:\n"
    "</usr/sbin/tessel_daemon> (<_Z8SendPingi> + 0x8) [0x14f8]\n"
    "\n--------Process [1230] Maps-------\n"
    "00001000-00002000 r-xp 00000000 b3:02 7 /usr/sbin/tessel_daemon\n";

TEST(CtlCrash, ReportIsReadFromTheFaultOnByTheLongerTrace) {
    setenv("TZ", "UTC-1", 1);
    ExpectAll({{"crash list", 0, "no crash was reported"}, {"crash show /tmp/nothing", 2, "cannot read"}});
    WriteFile("/tmp/report", kReport);
    WriteFile("/usr/tessel_crash.log.0", std::string("the end of a rotated one\n") + kReport + kReport);
    EXPECT_EQ(DocumentOf("crash list").size(), 2U);
    ExpectAll({{"crash list", 0, "2026-11-21 10:51:52  11 (Segmentation fault)  ping (eth0)  SendPing(int)"},
               {"crash show", 0, "#1     main           0x4             /usr/sbin/tessel_daemon  0x1204"}});
    const Json report = DocumentOf("crash show /tmp/report");
    EXPECT_EQ(report["time"], "2026-11-21T09:51:52.000Z");
    EXPECT_EQ(report["frames"].size(), 2U) << "without the handler";
    EXPECT_EQ(report["registers"].size(), 9U);
    EXPECT_EQ(report["thread_id"], 1234);
    const std::string whole = kReport;
    for (std::size_t length = 0; length <= whole.size(); length += 7) {
        WriteFile("/tmp/report", whole.substr(0, length));
        EXPECT_LE(RunLine("crash show /tmp/report").status, 1) << length;
    }
}

TEST(CtlCrash, FunctionsOfAStrippedModuleAreNamedFromTheUnstrippedOne) {
    Dl_info self{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&CrashingFunction), &self), 0);
    const auto offset = reinterpret_cast<u64>(&CrashingFunction) - reinterpret_cast<u64>(self.dli_fbase);
    std::filesystem::create_directories("/tmp/symbols/usr/sbin");
    std::filesystem::create_symlink(std::filesystem::absolute(self.dli_fname), "/tmp/symbols/usr/sbin/tessel_daemon");
    std::filesystem::copy_file("/bin/true", "/tmp/symbols/stripped.so");
    WriteFile("/tmp/report", Format("=============== Exception Occur =================\n"
                                    "===========Call Trace(unwind)==========\n"
                                    "</usr/sbin/tessel_daemon> (<> + 0x{:x}) [0x1]\n"
                                    "</usr/sbin/tessel_daemon> (<> + 0x{:x}) [0x2]\n"
                                    "</usr/lib/stripped.so> (<> + 0x10) [0x3]\n</lib/libc.so.6> (<> + 0x1) [0x4]\n",
                                    offset, offset + 1));
    const ToolRun run = RunLine("crash show /tmp/report --symbols /tmp/symbols");
    EXPECT_EQ(run.status, 0);
    const std::string place = "device_test.cpp:" + std::to_string(kCrashingLine) + " ";
    EXPECT_THAT(run.out,
                AllOf(HasSubstr("#0     CrashingFunction"), HasSubstr("#1     CrashingFunction"), HasSubstr(place)));
    EXPECT_THAT(run.err, AllOf(HasSubstr("/tmp/symbols/stripped.so lacks symbols"),
                               HasSubstr("/tmp/symbols has no file for /lib/libc.so.6")));
    setenv("PATH", "/nowhere", 1);
    ExpectAll({{"crash show /tmp/report --symbols /tmp/symbols", 0,
                "addr2line: No such file or directory (addr2line, from binutils"},
               {"crash show --symbols /tmp/report", 2, "--symbols /tmp/report: it is no directory"}});
}

}  // namespace
}  // namespace tessel::test
