// What the daemon costs when nobody asks, and how soon it answers.
#include <dlfcn.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "bench/table.h"

namespace tessel::bench {

namespace {

// Of all threads.
long WakeupsOf(pid_t pid) {
    long wakeups = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
        wakeups += ProcessField(pid, ("task/" + task.path().filename().string() + "/status").c_str(),
                                "voluntary_ctxt_switches:");
    return wakeups;
}

struct IdleCosts {
    long residentKib, aloneKib, privateKib;
    double wakeups, binaryKib;
};

IdleCosts MeasureIdle(std::size_t i) {
    constexpr int kSettleSeconds = 3;  // what changes at the start is looked at for a while
    constexpr int kSeconds = 20;
    const StartedDaemon daemon = Start(i);
    std::this_thread::sleep_for(std::chrono::seconds(kSettleSeconds));
    const long before = WakeupsOf(daemon.pid);
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    IdleCosts costs{};
    costs.wakeups = static_cast<double>(WakeupsOf(daemon.pid) - before) / kSeconds;
    costs.residentKib = ProcessField(daemon.pid, "status", "VmRSS:");
    costs.aloneKib = PrivateKib(daemon.pid);
    // Another user of the library, as most devices and desktops have one: its clean pages are no longer the daemon's
    // alone.
    void* const glib = dlopen("libglib-2.0.so.0", RTLD_NOW);
    costs.privateKib = PrivateKib(daemon.pid);
    if (glib != nullptr) dlclose(glib);
    struct stat binary {};
    stat(g_daemons[i].c_str(), &binary);
    costs.binaryKib = static_cast<double>(binary.st_size) / 1024;
    EndProcess(daemon.pid);
    return costs;
}

}  // namespace

void PrintIdleCosts() {
    constexpr char kName[] = "Idle daemon";
    if (!IsWanted(kName)) return;
    std::vector<IdleCosts> costs;
    for (std::size_t i = 0; i < g_daemons.size(); ++i)
        costs.push_back(MeasureIdle(i));
    const auto column = [&costs](auto member, int decimals = 0) {
        return
            [&costs, member, decimals](std::size_t i) { return Text(static_cast<double>(costs[i].*member), decimals); };
    };
    printf("%s\n", kName);
    PrintRow("resident memory, KiB", column(&IdleCosts::residentKib), "3277");
    PrintRow("of it private, KiB", column(&IdleCosts::privateKib), "650");
    PrintRow("  when nobody else uses GLib", column(&IdleCosts::aloneKib), "");
    PrintRow("wake-ups a second", column(&IdleCosts::wakeups, 2), "0.45");
    PrintRow("binary, KiB", column(&IdleCosts::binaryKib), "400");
}

void PrintStartTimes() {
    constexpr char kName[] = "Start to first answer";
    if (!IsWanted(kName)) return;
    std::vector<std::vector<double>> times(g_daemons.size());
    for (int round = 0; round < 41; ++round) {
        for (std::size_t i = 0; i < g_daemons.size(); ++i) {
            const StartedDaemon daemon = Start(i);
            times[i].push_back(daemon.firstAnswerMs);
            EndProcess(daemon.pid);
        }
    }
    printf("%s\n", kName);
    PrintRow(
        "median, ms", [&](std::size_t i) { return Text(Median(times[i]), 2); }, "5");
    PrintRow(
        "worst, ms", [&](std::size_t i) { return Text(*std::max_element(times[i].begin(), times[i].end()), 2); }, "");
}

}  // namespace tessel::bench
