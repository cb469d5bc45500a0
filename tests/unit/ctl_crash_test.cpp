// Crash reports as the tool reads them.
#include <dlfcn.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "client/ctl/crash_report.h"
#include "client/ctl/crash_symbols.h"

// In no namespace: the name that the symbol table has is the one written here.
extern "C" int CrashingFunction() {
    return getpid();
}

namespace tessel::ctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
    const auto reports = ParseCrashReports(std::string("the end of a rotated one\n") + kReport + kReport);
    ASSERT_EQ(reports.size(), 2U);
    const CrashReport& report = reports[1];
    EXPECT_THAT((std::vector{report.time, report.signal, report.threadId, report.threadName}),
                ElementsAre("2026-11-21 10:51:52", "11", "1234", "ping (eth0)"));
    EXPECT_THAT(report.registers, ElementsAre("PC:0x14f8", "LR:0x1500", "SP:0xbeff0000", "FP:(nil)", "R0:0x1", "R1:0x2",
                                              "R2:0x3", "R3:0x4", "R4:0x5"));
    ASSERT_EQ(report.frames.size(), 2U) << "without the handler";
    EXPECT_EQ(report.frames[0].function, "SendPing(int)");
    EXPECT_EQ(report.frames[0].offset, "0x8");
    EXPECT_EQ(report.frames[1].function, "main");
    EXPECT_EQ(report.frames[1].module, "/usr/sbin/tessel_daemon");
    EXPECT_EQ(report.frames[1].address, "0x1204");
}

TEST(CtlCrash, CutAndStrangeReportsAreReadAsFarAsTheyGo) {
    const std::string whole = kReport;
    for (std::size_t length = 0; length <= whole.size(); ++length)
        EXPECT_LE(ParseCrashReports(whole.substr(0, length)).size(), 1U) << length;
    const std::string begin = whole.substr(0, whole.find("Version"));
    for (const char* line : {"<> (<> + (nil)) [0x8]", "<a> (<b> + c) [d", "<a> (<b", "<> + ) [", "]", "<"}) {
        const auto reports = ParseCrashReports(begin + "===========Call Trace(unwind)==========\n" + line + "\n");
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].frames.size(), std::string(line).ends_with("[0x8]") ? 1U : 0U) << line;
    }
    EXPECT_THAT(ParseCrashReports("no report"), IsEmpty());
}

TEST(CtlCrash, FunctionsOfAStrippedModuleAreNamedFromTheUnstrippedOne) {
    Dl_info self{};
    auto address = reinterpret_cast<std::uintptr_t>(&CrashingFunction);
#if defined(__arm__)
    address &= ~std::uintptr_t{1};  // which says that its code is Thumb
#endif
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&CrashingFunction), &self), 0);
    const auto offset = address - reinterpret_cast<std::uintptr_t>(self.dli_fbase);
    std::filesystem::create_directories("/tmp/symbols/usr/lib");
    std::filesystem::create_symlink(std::filesystem::absolute(self.dli_fname), "/tmp/symbols/tessel_daemon");
    std::filesystem::create_symlink(std::filesystem::absolute(self.dli_fname), "/tmp/symbols/usr/lib/libtessel.so.1");
    const auto frame = [&](const char* module, std::uintptr_t at) {
        return CrashFrame{.module = module, .function = "", .offset = fmt::format("0x{:x}", at), .address = "0x1"};
    };
    std::vector<CrashFrame> frames = {
        frame("/usr/sbin/tessel_daemon", offset), frame("/usr/lib/libtessel.so.1", offset + 1),
        frame("/usr/lib/libc.so.6", offset),      frame("/usr/sbin/tessel_daemon", 0),
        frame("/usr/lib/libc.so.6", 1),           frame("", 1)};
    EXPECT_THAT(AddSymbols("/tmp/symbols", frames), ElementsAre("/usr/lib/libc.so.6"));
    EXPECT_EQ(frames[0].function + frames[0].offset, "CrashingFunction0x0");
    EXPECT_EQ(frames[1].function + frames[1].offset, "CrashingFunction0x1");
    for (std::size_t i = 2; i < frames.size(); ++i)
        EXPECT_EQ(frames[i].function, "") << i;
}

}  // namespace
}  // namespace tessel::ctl
