// What stands on the links: PPPoE, the bond and the web server.
#include <unistd.h>

#include <fstream>

#include "client/ctl/files.h"
#include "client/ctl/guard.h"
#include "client/ctl/kernel.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

constexpr char kPppd[] = "pppd";
constexpr char kWebServer[] = "lighttpd";

// Of the processes of this name, once there is one, or none.
Json PidsOf(const char* process, bool isOneWanted) {
    return {{"pids", AwaitProcesses(process, isOneWanted)}};
}

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

// Said here: the daemon would answer -1 to what cannot be handed over, and not why.
template <std::size_t kBytes>
void StoreText(const Invocation& invocation, const char* what, const std::string& text, bool isPlain,
               char (&field)[kBytes]) {
    const auto isAllowed = [&](char c) {
        if (!isPlain) return iscntrl(static_cast<u8>(c)) == 0;
        return isalnum(static_cast<u8>(c)) != 0 || strchr("._@%+=:,/-", c) != nullptr;
    };
    std::string why;
    if (!std::all_of(text.begin(), text.end(), isAllowed)) {
        why = isPlain ? "other characters than letters, digits and ._@%+=:,/-" : "a control character";
    }
    if (isPlain && text.starts_with('-')) why = "- in front";
    if (text.size() >= kBytes) why = Format("more than {} bytes", kBytes - 1);
    if (!why.empty()) throw Refused(invocation.asked, Format("the {} has {}", what, why));
    memcpy(field, text.data(), text.size());
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
    Change change;
    change.send = [&] { return tessel_pppoe_start(FamilyOf(invocation.options), &conf); };
    change.read = [] { return PidsOf(kPppd, true); };
    change.wrong = [](const Json& now) {
        return now["pids"].empty() ? "no pppd runs (any more): its log says why" : "";
    };
    change.done = name + "   pppd dials; whether the link comes up is not waited for";
    return Perform(invocation, change);
}

Outcome PppoeStop(const Invocation& invocation) {
    const auto before = FindProcesses(kPppd);
    Change change;
    change.send = [&] { return tessel_pppoe_stop(FamilyOf(invocation.options)); };
    change.read = [] { return Json{{"pids", FindProcesses(kPppd)}}; };
    change.done = "no link was dialled";
    if (!before.empty())
        change.done = Format("one link ended, if one was of this family (pppd had {})", PidsText(before));
    return Perform(invocation, change);
}

// The bonding driver's text: "KEY: VALUE" lines, of the bond and then of each member. Null: there is no bond.
Json ReadBond() {
    std::ifstream file("/proc/net/bonding/bond0");
    if (!file) return nullptr;
    Json bond = {{"interface", "bond0"}, {"mode", nullptr}, {"active", nullptr}, {"members", Json::array()}};
    Json& members = bond["members"];
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = std::min(line.find(": "), line.size());
        const std::string key = line.substr(0, colon);
        const std::string value = line.substr(std::min(colon + 2, line.size()));
        if (key == "Bonding Mode") bond["mode"] = value;
        if (key == "Currently Active Slave" && value != "None") bond["active"] = value;
        if (key == "Slave Interface") members.push_back({{"member", value}, {"link", nullptr}, {"mac", nullptr}});
        if (members.empty()) continue;
        if (key == "MII Status") members.back()["link"] = value;
        if (key == "Permanent HW addr") members.back()["mac"] = value;
    }
    return bond;
}

Outcome BondShow(const Invocation& /*invocation*/) {
    Outcome outcome;
    outcome.document = ReadBond();
    if (!outcome.document.is_null()) return outcome;
    outcome.document = Json::object();
    outcome.notes = {"there is no bond"};
    return outcome;
}

// The first thing that `why` has to say of one of the interfaces.
std::string FirstReason(const std::vector<std::string>& names,
                        const std::function<std::string(const std::string&)>& why) {
    for (const std::string& name : names) {
        std::string text = why(name);
        if (!text.empty()) return text;
    }
    return "";
}

Outcome BondStart(const Invocation& invocation) {
    const auto names = invocation.words.All<std::string>("IF");
    const std::string active = invocation.words.Text("active");
    std::string why = FirstReason(names, &MissingInterface);
    const auto isLeftOut = [&](const std::string& name) {
        return name != active && name.starts_with(active)
                   ? name + " would be left out: its name begins as the active one's"
                   : "";
    };
    if (why.empty()) why = FirstReason(names, isLeftOut);
    if (names.size() > TESSEL_BOND_INTERFACES_MAX) why = "a bond has four interfaces at most";
    if (std::find(names.begin(), names.end(), active) == names.end()) why = active + " has to be one of them";
    if (!why.empty()) throw Refused(invocation.asked, why);
    std::vector<const char*> texts;
    for (const std::string& name : names)
        texts.push_back(name.c_str());
    Change change;
    change.send = [&] {
        const u32 mode = invocation.words.Get<u32>("mode", 1);
        return tessel_bond_start(mode, texts.data(), texts.size(), active.c_str(), nullptr);
    };
    change.guard = [&] { return FirstReason(names, &CutsSessionOn); };
    change.cause = [] { return ReadBond().is_null() ? "" : "there is a bond already (bond stop)"; };
    change.read = &ReadBond;
    change.wrong = [&](const Json& bond) {
        return FirstReason(names, [&](const std::string& name) {
            const std::string members = bond.is_null() ? "" : bond["members"].dump();
            return members.find('"' + name + '"') == std::string::npos ? name + " is not part of bond0" : "";
        });
    };
    change.done = Format("bond0   {}, active {}; their addresses are gone", Joined(names, ", "), active);
    return Perform(invocation, change);
}

Outcome BondStop(const Invocation& invocation) {
    Change change;
    change.send = &tessel_bond_stop;
    change.guard = [] { return CutsSessionOn("bond0"); };
    change.read = &ReadBond;
    change.wrong = [](const Json& bond) {
        return bond.is_null() || bond["members"].empty() ? "" : "bond0 still has members";
    };
    change.done = ReadBond().is_null() ? "there was no bond" : "bond0 undone; its interfaces are up, without addresses";
    return Perform(invocation, change);
}

Outcome WebStart(const Invocation& invocation) {
    const auto before = FindProcesses(kWebServer);
    Change change;
    change.send = &tessel_web_start;
    change.cause = [&] { return before.empty() ? "" : Format("it runs already ({})", PidsText(before)); };
    change.read = [] { return PidsOf(kWebServer, true); };
    change.wrong = [](const Json& now) { return now["pids"].empty() ? "no lighttpd runs (any more)" : ""; };
    change.done = "the web server runs";
    return Perform(invocation, change);
}

Outcome WebStop(const Invocation& invocation) {
    const auto before = FindProcesses(kWebServer);
    Change change;
    change.send = &tessel_web_stop;
    change.cause = [&] { return before.empty() ? "no lighttpd runs here" : ""; };
    change.read = [] { return PidsOf(kWebServer, false); };
    change.wrong = [](const Json& now) { return now["pids"].empty() ? "" : "one still runs"; };
    change.done = Format("every lighttpd ended ({})", PidsText(before));
    return Perform(invocation, change);
}

constexpr Command kPppoeCommands[] = {
    Row("start",
        "IF user USER [password-file FILE] [service SERVICE] [persist] [holdoff S] [maxfail N] [echo-interval S] "
        "[echo-failure N] [debug]",
        &PppoeStart, "dial a link", "pppoe start eth1 user me@provider password-file /etc/pppoe.password persist")
        .Sends(TESSEL_CMD_PPPOE_START)
        .OfFamily()
        .More("The password is asked for without a password-file, of which the first line counts (-: standard "
              "input). While the link is up it stands on a command line that ps shows, and in the daemon's log at "
              "level 4 and above. Without -4 or -6 the link carries both families."),
    Row("stop", "", &PppoeStop, "end a link", "pppoe stop")
        .Sends(TESSEL_CMD_PPPOE_STOP)
        .OfFamily()
        .More("One of several, of the family that it was started with."),
};

constexpr Command kBondCommands[] = {
    Row("show", "", &BondShow, "bond0 and its interfaces, from the kernel", "bond show")
        .Columns("BOND {interface}|MODE {mode}|ACTIVE {active}|MEMBER {member}|LINK {link}|MAC {mac}"),
    Row("start", "IF... active IF [mode N:0-6]", &BondStart, "join up to four interfaces into bond0",
        "bond start eth1 eth2 active eth1")
        .Sends(TESSEL_CMD_BOND_START)
        .More("They lose their addresses. The active one carries the traffic as long as its link is up. What a start "
              "that fails has done stays done."),
    Row("stop", "", &BondStop, "undo bond0", "bond stop")
        .Sends(TESSEL_CMD_BOND_STOP)
        .More("Its interfaces are up then, without addresses."),
};

constexpr Command kWebCommands[] = {
    Row("start", "", &WebStart, "start the device's web server", "web start").Sends(TESSEL_CMD_WEBS_START),
    Row("stop", "", &WebStop, "kill every lighttpd", "web stop").Sends(TESSEL_CMD_WEBS_STOP),
};

}  // namespace

extern const Object kPppoe = {.name = "pppoe", .summary = "dialled links", .commands = kPppoeCommands};
extern const Object kBond = {.name = "bond", .summary = "several interfaces as one", .commands = kBondCommands};
extern const Object kWeb = {.name = "web", .summary = "the device's web server", .commands = kWebCommands};

}  // namespace tessel::ctl
