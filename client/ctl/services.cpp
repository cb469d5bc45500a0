// What runs on the links: PPPoE and the bond; and the device's services, the web server among them.
#include <unistd.h>

#include "client/ctl/device.h"
#include "client/ctl/files.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"
#include "route/service.h"

namespace tessel::ctl {

namespace {

constexpr char kPppd[] = "pppd";
constexpr char kWebServer[] = "lighttpd";

// Never a word of the command: those are in the shell's history, and everybody sees them.
std::string PasswordOf(const Invocation& invocation) {
    const std::string path = invocation.words.Text("password-file");
    if (!path.empty()) {
        const std::string text = ReadWholeFile(invocation.asked, path);
        return text.substr(0, text.find('\n'));
    }
    if (invocation.options.dryRun) return "";
    if (isatty(STDIN_FILENO) == 0) throw Refused(invocation.asked, "without a terminal, password-file is needed");
    const char* const typed = getpass("Password: ");
    return typed == nullptr ? "" : typed;
}

// Said here: the daemon would answer -1 to what cannot be passed on, without saying why.
template <std::size_t kBytes>
void StoreText(const Invocation& invocation, const char* what, const std::string& text, bool isPlain,
               char (&field)[kBytes]) {
    const auto isAllowed = [&](char c) {
        if (!isPlain) return iscntrl(static_cast<u8>(c)) == 0;
        return isalnum(static_cast<u8>(c)) != 0 || strchr("._@%+=:,/-", c) != nullptr;
    };
    std::string why;
    if (!std::all_of(text.begin(), text.end(), isAllowed))
        why = isPlain ? "characters other than letters, digits and ._@%+=:,/-" : "a control character";
    if (isPlain && text.starts_with('-')) why = "- in front";
    if (text.size() >= kBytes) why = Format("more than {} bytes", kBytes - 1);
    if (!why.empty()) throw Refused(invocation.asked, Format("the {} has {}", what, why));
    memcpy(field, text.data(), text.size());
}

Change ProcessChange(std::function<int()> send, const char* process, bool shouldRun) {
    Change change{.send = std::move(send)};
    change.read = [=, others = shouldRun ? FindProcesses(process) : std::vector<pid_t>()] {
        return Json{{"pids", AwaitProcesses(process, shouldRun, "", others)}};
    };
    change.wrong = [=](const Json& now) {
        if (now["pids"].empty() != shouldRun) return std::string();
        return shouldRun ? Format("no {} of it is running: its log says why", process) : "one still runs";
    };
    return change;
}

Outcome PppoeStart(const Invocation& invocation) {
    const Words& words = invocation.words;
    const std::string name = words.Text("IF");
    const std::string missing = MissingInterface(name);
    if (!missing.empty()) throw Refused(invocation.asked, missing);
    TNetPppoeConf conf{};
    StoreText(invocation, "interface", name, true, conf.achDevName);
    StoreText(invocation, "service", words.Text("service"), true, conf.achService);
    StoreText(invocation, "user", words.Text("user"), false, conf.achUser);
    StoreText(invocation, "password", PasswordOf(invocation), false, conf.achPassword);
    conf.dwPersist = words.Has("persist") ? 1 : 0;
    conf.dwDebug = words.Has("debug") ? 1 : 0;
    conf.dwHoldoff = words.Get<u32>("holdoff", 0);
    conf.dwLcpEchoInterval = words.Get<u32>("echo-interval", 0);
    conf.dwLcpEchoFailure = words.Get<u32>("echo-failure", 0);
    conf.dwMaxfail = words.Get<u32>("maxfail", 0);
    Change change = ProcessChange([&] { return tessel_pppoe_start(FamilyOf(invocation.options), &conf); }, kPppd, true);
    change.done = name + "   pppd is dialling; tesselctl does not wait for the link";
    return Perform(invocation, change);
}

Outcome PppoeStop(const Invocation& invocation) {
    const auto before = FindProcesses(kPppd);
    Change change{.send = [&] { return tessel_pppoe_stop(FamilyOf(invocation.options)); }};
    change.read = [] { return Json{{"pids", FindProcesses(kPppd)}}; };
    change.done = Format("one link ended, if there was one of this family (pppd had {})", PidsText(before));
    if (before.empty()) change.done = "no link was dialled";
    return Perform(invocation, change);
}

Outcome BondShow(const Invocation& /*invocation*/) {
    const Json bond = ReadBond();
    if (bond.is_null()) return {.document = Json::object(), .notes = {"there is no bond"}};
    return {.document = bond};
}

Outcome BondStart(const Invocation& invocation) {
    const auto names = invocation.words.All<std::string>("IF");
    const std::string active = invocation.words.Text("active");
    const auto firstReason = [&](const std::function<std::string(const std::string&)>& why) {
        std::string reason;
        for (const std::string& name : names)
            reason = reason.empty() ? why(name) : reason;
        return reason;
    };
    std::string why = firstReason([&](const std::string& name) {
        const std::string missing = MissingInterface(name);
        const bool isLeftOut = missing.empty() && name != active && name.starts_with(active);
        return isLeftOut ? name + " would be left out: its name starts like the active one's" : missing;
    });
    if (names.size() > TESSEL_BOND_INTERFACES_MAX) why = "a bond has at most four interfaces";
    if (std::find(names.begin(), names.end(), active) == names.end()) why = active + " has to be one of them";
    if (!why.empty()) throw Refused(invocation.asked, why);
    std::vector<const char*> texts(names.size());
    std::ranges::transform(names, texts.begin(), [](const std::string& name) { return name.c_str(); });
    const u32 mode = invocation.words.Get<u32>("mode", 1);
    Change change{.send = [&] { return tessel_bond_start(mode, texts.data(), texts.size(), active.c_str(), nullptr); }};
    change.guard = [&] { return firstReason([&](auto& name) { return CutsSessionOn(invocation.options, name); }); };
    change.cause = [] { return ReadBond().is_null() ? "" : "there already is a bond (bond stop)"; };
    change.read = &ReadBond;
    change.wrong = [&](const Json& bond) {
        return firstReason([&](const std::string& name) {
            const bool isMember = !bond.is_null() && !FindIn(bond["members"], "member", name).is_null();
            return isMember ? "" : name + " is not part of bond0";
        });
    };
    change.done = Format("bond0   {}, active {}; their addresses were removed", Joined(names, ", "), active);
    return Perform(invocation, change);
}

Outcome BondStop(const Invocation& invocation) {
    Change change{.send = &tessel_bond_stop, .read = &ReadBond};
    change.guard = [&] { return CutsSessionOn(invocation.options, "bond0"); };
    change.wrong = [](const Json& bond) {
        return bond.is_null() || bond["members"].empty() ? "" : "bond0 still has members";
    };
    change.done = ReadBond().is_null() ? "there was no bond" : "bond0 undone; its interfaces are up, without addresses";
    return Perform(invocation, change);
}

template <bool kRuns>
Outcome SwitchWeb(const Invocation& invocation) {
    const auto before = FindProcesses(kWebServer);
    const std::string pids = PidsText(before);
    Change change = ProcessChange(kRuns ? &tessel_web_start : &tessel_web_stop, kWebServer, kRuns);
    change.cause = [&] {
        if (before.empty() == kRuns) return std::string();
        return kRuns ? Format("it runs already ({})", pids) : Format("no {} runs here", kWebServer);
    };
    change.done = kRuns ? "the web server runs" : Format("every {} ended ({})", kWebServer, pids);
    return Perform(invocation, change);
}

Outcome StopService(const Invocation& invocation) {
    const std::string service = invocation.words.Text("SERVICE");
    const char* const known = ProcessOfService(service.c_str());
    const std::string process = known != nullptr ? known : service;
    const auto pids = FindProcesses(process);
    if (known == nullptr) {
        const std::string what = Format("every process called {} ({})", process, PidsText(pids));
        Agree(invocation, "Kill " + what, "it would kill " + what);
    }
    Change change{.send = [&] { return tessel_service_stop(service.c_str()); }};
    change.guard = [&] {
        const bool carriesIt = process == "sshd" || process == "dropbear";
        const auto session = carriesIt ? GuardedSession(invocation.options) : std::nullopt;
        return session ? Format("it would kill every {}, and {}", process, session->text) : "";
    };
    change.cause = [&] {
        if (process == "tessel_daemon") return std::string("the daemon never stops itself");
        return pids.empty() ? Format("no process {} runs here", process) : "";
    };
    change.read = [&] { return Json{{"service", service}, {"process", process}, {"pids", pids}}; };
    change.done = Format("{} stopped ({}, {})", service, process, PidsText(pids));
    return Perform(invocation, change);
}

constexpr Command kPppoeCommands[] = {
    FamilyRow("start",
              "IF user USER [password-file FILE] [service SERVICE] [persist] [holdoff S] [maxfail N] [echo-interval S] "
              "[echo-failure N] [debug]",
              &PppoeStart, "dial a link", "pppoe start eth1 user me@provider password-file /etc/pppoe.password persist")
        .Sends(TESSEL_CMD_PPPOE_START)
        .More("The password is the file's first line (-: standard input), or asked for. While the link is up, ps shows "
              "it, and so does the daemon's log from level 4. Without -4 or -6 the link carries both families."),
    FamilyRow("stop", "", &PppoeStop, "end a link", "pppoe stop")
        .Sends(TESSEL_CMD_PPPOE_STOP)
        .More("Ends one link, of the family it was started with."),
};

constexpr Command kBondCommands[] = {
    Row("show", "", &BondShow, "bond0 and its interfaces, from the kernel", "bond show")
        .Columns("BOND {interface}|MODE {mode}|ACTIVE {active}|MEMBER {member}|LINK {link}|MAC {mac}"),
    Row("start", "IF... active IF [mode N:0-6]", &BondStart, "join up to four interfaces into bond0",
        "bond start eth1 eth2 active eth1")
        .Sends(TESSEL_CMD_BOND_START)
        .More("They lose their addresses. The active one carries the traffic while its link is up. If the start fails "
              "half-way, what it has done stays."),
    Row("stop", "", &BondStop, "undo bond0; its interfaces have no addresses", "bond stop").Sends(TESSEL_CMD_BOND_STOP),
};

constexpr Command kWebCommands[] = {
    Row("start", "", &SwitchWeb<true>, "start the device's web server", "web start").Sends(TESSEL_CMD_WEBS_START),
    Row("stop", "", &SwitchWeb<false>, "kill every lighttpd", "web stop").Sends(TESSEL_CMD_WEBS_STOP),
};

constexpr Command kServiceCommands[] = {
    Row("stop", "SERVICE=ssh|telnetd|ftpd|NAME", &StopService, "kill a service's processes", "service stop telnetd")
        .Sends(TESSEL_CMD_SERVICE_STOP)
        .More("Sends signal 9 by process name; something may restart it. Asks first for any other than these three."),
};

}  // namespace

extern const Object kPppoe = {.name = "pppoe", .summary = "dialled links", .commands = kPppoeCommands};
extern const Object kBond = {.name = "bond", .summary = "several interfaces as one", .commands = kBondCommands};
extern const Object kWeb = {.name = "web", .summary = "the device's web server", .commands = kWebCommands};
extern const Object kService = {.name = "service", .summary = "services of the device", .commands = kServiceCommands};

}  // namespace tessel::ctl
