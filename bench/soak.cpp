// Everything that the daemon serves at once, for a long time, with tools that go wrong; afterwards it has to be what it
// was. Run by bench/soak.sh, which makes the tools; bench/README.md says what is counted.
//
//     bench_soak SECONDS DIRECTORY DAEMON
//
// The tools look into the DIRECTORY: its file "faults" switches their faults on, "hang" stops one for good.
#include <sys/prctl.h>

#include <map>
#include <thread>

#include "bench/clients.h"
#include "bench/daemon.h"
#include "bench/far.h"
#include "client/libtessel.h"
#include "core/thread.h"

namespace {

using namespace tessel::bench;
using std::chrono::seconds;

constexpr int kRestarts = 10;
constexpr long kMemorySlackKib = 64;                          // what the allocator keeps for the next time
constexpr long kKeptStacks = (40 << 20) / kThreadStackBytes;  // the GNU C library keeps 40 MiB for the next threads

std::string g_directory;
const char* g_daemonPath = nullptr;
std::FILE* g_report = nullptr;  // what was standard output, which tools write to
std::atomic<bool> g_isOver{false};
std::atomic<pid_t> g_daemon{0};
std::atomic<long> g_storms{0}, g_frames{0};

void Switch(const char* name, bool isOn) {
    const std::string path = g_directory + "/" + name;
    if (isOn) {
        const std::ofstream file(path);
    } else {
        unlink(path.c_str());
    }
}

void SendFrames() {
    const tessel::UniqueFd far = OpenFarSocket();
    while (!g_isOver)
        g_frames += SendFlood(far, seconds(1)).packets;
}

// Every sixty storms, which are three minutes, a tool never ends: the daemon kills it after one.
void Storm() {
    for (int storm = 0; !g_isOver; ++storm) {
        if (storm % 60 == 10) Switch("hang", true);
        if (std::system("for i in $(seq 1 250); do echo addr add 10.9.0.$i/32 dev eth2; echo addr del 10.9.0.$i/32 dev "
                        "eth2; done | /sbin/ip -batch -") != 0)
            Fail("ip -batch");
        ++g_storms;
        std::this_thread::sleep_for(seconds(3));
    }
    Switch("hang", false);
}

void StartDaemonAgain() {
    if (g_daemon != 0) EndProcess(g_daemon);
    g_daemon = StartDaemon(Message(TESSEL_CMD_MTU_GET, TNetMtuGetReq{.achDevName = "lo"}), g_daemonPath).pid;
    (void)tessel_log_level_set(0);
    const TNetPrioParamList priorities{2, {{"eth0", 10}, {"eth1", 20}}};
    (void)tessel_priority_set(&priorities);
}

// All of the load, for so long; meanwhile(), which may take longer.
template <typename Work>
void Load(seconds time, Work meanwhile) {
    g_isOver = false;
    Switch("faults", true);
    std::vector<std::thread> threads;
    for (int client = 0; client < kClients; ++client)
        threads.emplace_back(BeClient, client, std::cref(g_isOver));
    for (unsigned seed = 1; seed <= 3; ++seed)
        threads.emplace_back(Listen, seed, std::cref(g_isOver));
    for (void (*work)() : {&SendFrames, &Storm}) {
        threads.emplace_back([work] {
            (void)!nice(10);  // a slow device would have time for nothing else
            work();
        });
    }
    const auto end = Clock::now() + time;
    meanwhile();
    std::this_thread::sleep_until(end);
    g_isOver = true;
    Switch("faults", false);
    for (std::thread& thread : threads)
        thread.join();
}

std::string OutputOf(const std::string& line) {
    std::FILE* const pipe = popen(line.c_str(), "re");
    std::string text;
    char buffer[4096];
    while (const std::size_t count = fread(buffer, 1, sizeof(buffer), pipe))
        text.append(buffer, count);
    pclose(pipe);
    return text;
}

// What the daemon has written to, and nobody else has: how many clean pages are its alone depends on what else runs.
// How many stacks there are depends on how many threads once ran at the same time, so they are counted separately.
struct Memory {
    long stacks = 0, stacksKib = 0, otherKib = 0;
};

Memory MemoryOf(const std::string& process) {
    Memory memory;
    bool isStack = false;
    std::ifstream lines(process + "/smaps");
    for (std::string line; std::getline(lines, line);) {
        char permissions[5] = "";
        char path = 0;
        unsigned long start = 0;
        unsigned long end = 0;
        long kib = 0;
        if (sscanf(line.c_str(), "%lx-%lx %4s %*s %*s %*s %c", &start, &end, permissions, &path) >= 3) {
            isStack = path == 0 && strcmp(permissions, "rw-p") == 0 && end - start == kThreadStackBytes;
            memory.stacks += isStack;
        } else if (sscanf(line.c_str(), "Private_Dirty: %ld", &kib) == 1) {
            (isStack ? memory.stacksKib : memory.otherKib) += kib;
        }
    }
    return memory;
}

constexpr char kThreads[] = "threads";
constexpr char kMemory[] = "written memory, KiB";
constexpr char kStacks[] = "thread stacks";
constexpr char kStackMemory[] = "thread stacks, KiB";

// What the daemon and the kernel have once everything is stopped.
struct State {
    std::map<std::string, long> numbers;
    std::string texts;
};

// The kernel's own processes have no command line; pppoe leaves an interface promiscuous.
constexpr char kTexts[] = R"(
    processes=$(for file in /proc/[0-9]*/cmdline; do tr '\0' ' ' <$file; echo; done)
    printf %s "$processes" | grep '^[^ ]' | sort; iptables -S; ip6tables -S; /sbin/ip -o link | sed 's/PROMISC,//; s/ qdisc.*//'
    /sbin/ip -o addr show; /sbin/ip route show table all; /sbin/ip rule; /sbin/ip -6 rule; /sbin/ip neigh show nud permanent
    )";

State TakeState() {
    const std::string daemon = "/proc/" + std::to_string(g_daemon);
    const auto count = [](const std::string& line) { return std::stol(OutputOf(line)); };
    const std::string children = "cat " + daemon + "/task/*/children | wc -w";
    UndoEverything();
    // Workers that have a notice to deliver give up, and tools that lost theirs end by themselves; the daemon kills
    // what hangs after a minute.
    std::this_thread::sleep_for(seconds(45));
    for (int wait = 0; wait < 60 && count(children) > 0; ++wait)
        std::this_thread::sleep_for(seconds(1));
    while (waitpid(-1, nullptr, WNOHANG) > 0) {  // what the daemon started for good, and leaves to process 1
    }
    const Memory memory = MemoryOf(daemon);
    return {.numbers = {{"descriptors", count("ls " + daemon + "/fd | wc -l")},
                        {kThreads, count("ls " + daemon + "/task | wc -l")},
                        {"children", count(children)},
                        {"System V objects", count("cat /proc/sysvipc/* | wc -l")},
                        {kMemory, memory.otherKib},
                        {kStacks, memory.stacks},
                        {kStackMemory, memory.stacksKib}},
            .texts = OutputOf(kTexts)};
}

bool Compare(const State& fresh, const State& warm, const State& end) {
    const bool areTextsSame = fresh.texts == warm.texts && warm.texts == end.texts;
    bool isFine = areTextsSame;
    fprintf(g_report, "\n%-22s %10s %10s %10s\n", "", "fresh", "warm", "at the end");
    for (const auto& [name, number] : end.numbers) {
        const long first = fresh.numbers.at(name);
        const long middle = warm.numbers.at(name);
        bool isGood = number == first;
        if (name == kMemory) isGood = number <= middle + kMemorySlackKib;
        if (name == kStacks) isGood = number <= end.numbers.at(kThreads) + kKeptStacks;
        if (name == kStackMemory) isGood = true;  // grows with their number
        const char* const verdict = isGood ? "" : "   WRONG";
        fprintf(g_report, "%-22s %10ld %10ld %10ld%s\n", name.c_str(), first, middle, number, verdict);
        isFine = isFine && isGood;
    }
    fprintf(g_report, "processes, addresses, routes, rules: %s\n", areTextsSame ? "the same" : "WRONG");
    for (const State* state : {&fresh, &warm, &end})
        if (!areTextsSame) fprintf(g_report, "\n%s", state->texts.c_str());
    return isFine;
}

}  // namespace

int main(int count, char** words) {
    if (count != 4) return EXIT_FAILURE;
    g_report = fdopen(dup(STDOUT_FILENO), "w");
    setvbuf(g_report, nullptr, _IOLBF, 0);
    if (freopen("/dev/null", "w", stdout) == nullptr || freopen("/dev/null", "w", stderr) == nullptr) Fail("/dev/null");
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the daemon leaves its parents; here it comes back
    signal(SIGPIPE, SIG_IGN);
    const seconds time(std::atoi(words[1]));
    g_directory = words[2];
    g_daemonPath = words[3];
    (void)tessel_set_timeout_ms(100000);  // a tool that hangs keeps everybody waiting for a minute
    StartDaemonAgain();
    for (const char* chain : {"whitelist", "blacklist"})
        (void)tessel_chain_add(TESSEL_PROTOCOL_BOTH, chain);
    const State fresh = TakeState();
    Load(time / 10, [&] {
        for (int restart = 0; restart < kRestarts; ++restart) {
            std::this_thread::sleep_for(time / 10 / kRestarts);
            StartDaemonAgain();
        }
    });
    fprintf(g_report, "killed and started again %d times, under load\n", kRestarts);
    const pid_t pid = g_daemon;
    const seconds warmingUp = std::max(time / 10, seconds(60));
    Load(warmingUp, [] {});
    const State warm = TakeState();
    fprintf(g_report, "warmed up; %ld requests until now\n", g_counts.requests.load());
    Load(time - time / 10 - warmingUp, [] {});
    const State end = TakeState();

    fprintf(g_report,
            "\n%ld s: requests %ld, hostile ones %ld, events %ld,\n"
            "listeners killed %ld, storms of 500 address changes %ld, frames %ld\n",
            static_cast<long>(time.count()), g_counts.requests.load(), g_counts.hostile.load(), g_counts.events.load(),
            g_counts.deadListeners.load(), g_storms.load(), g_frames.load());
    for (int error = 0; error < 10; ++error) {
        const long number = g_counts.results[error];
        if (number != 0) fprintf(g_report, "  %7ld  %s\n", number, tessel_strerror(-error));
    }
    bool isFine = Compare(fresh, warm, end);
    u32 mtu = 0;
    if (kill(pid, 0) != 0 || tessel_mtu_get("lo", &mtu) != TESSEL_OK || tessel_daemon_pid() != pid) {
        fprintf(g_report, "the daemon has ended\n");
        isFine = false;
    }
    EndProcess(pid);
    return isFine ? EXIT_SUCCESS : EXIT_FAILURE;
}
