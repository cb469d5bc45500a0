#include "client/ctl/listening.h"
#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

// Reports have one switch and one socket a family.
struct Reports {
    int family;
    const char* name;
    const char* option;
    const char* socket;
};

constexpr Reports kReports[] = {{TESSEL_FAMILY_INET, "inet", "-4", TESSEL_SOCKET_IP_CONFLICT},
                                {TESSEL_FAMILY_INET6, "inet6", "-6", TESSEL_SOCKET_IPV6_CONFLICT}};

std::vector<Reports> ConflictReports(const Options& options) {
    std::vector<Reports> asked;
    for (const Reports& reports : kReports) {
        if (HasFamily(options, reports.family)) asked.push_back(reports);
    }
    return asked;
}

Outcome Switch(const Invocation& invocation, bool isOn) {
    const auto asked = ConflictReports(invocation.options);
    Json document = Json::array();
    std::vector<std::string> names;
    std::vector<std::string> notes;
    std::string silenced;
    for (const Reports& reports : asked) {
        const auto listening = FindListeningProcess(reports.socket);
        document.push_back({{"family", reports.name}, {"reporting", isOn}, {"listener", ListeningJson(listening)}});
        names.emplace_back(reports.name);
        if (listening && !isOn) {
            silenced = Format("{} listens for {} conflicts and would get no more reports", ListeningText(*listening),
                              reports.name);
        } else if (!listening && isOn) {
            notes.push_back(
                Format("nobody listens under {}: each report will hold conflict detection up for 5 to 8 s (listen: "
                       "tesselctl conflict watch {})",
                       reports.socket, reports.option));
        }
    }
    const auto send = [&] {
        int error = TESSEL_OK;
        for (std::size_t i = 0; i < asked.size() && error == TESSEL_OK; ++i)
            error = isOn ? tessel_conflict_start(asked[i].family) : tessel_conflict_stop(asked[i].family);
        return error;
    };
    Outcome outcome = Perform(
        invocation, {.send = send,
                     .guard = [&] { return silenced; },
                     .read = [&] { return document; },
                     .done = Format("{}: conflicts are reported{}", Joined(names, ", "), isOn ? "" : " no more")});
    outcome.notes.insert(outcome.notes.end(), notes.begin(), notes.end());
    return outcome;
}

Outcome SwitchOn(const Invocation& invocation) {
    return Switch(invocation, true);
}

Outcome SwitchOff(const Invocation& invocation) {
    return Switch(invocation, false);
}

Outcome WatchConflicts(const Invocation& invocation) {
    Watch watch;
    for (const Reports& reports : ConflictReports(invocation.options)) {
        watch.sockets.push_back({.name = reports.socket,
                                 .start = [=] { return tessel_conflict_start(reports.family); },
                                 .stop = [=] { return tessel_conflict_stop(reports.family); }});
    }
    bool isFirst = true;
    watch.onEvent = [&](const ShownEvent& event) {
        ShowLine(invocation, event);
        if (isFirst) {
            ShowNote(invocation,
                     "the other host's hardware address is only in the daemon's log (tesselctl log follow)");
        }
        isFirst = false;
        return true;
    };
    return RunWatch(invocation, watch);
}

constexpr Command kConflictCommands[] = {
    Row("on", "", &SwitchOn, "have conflicts reported to the program that listens", "conflict on")
        .Sends(TESSEL_CMD_CONFLICT_START)
        .OfFamily()
        .More(
            "Addresses are watched and defended either way. Reports go to the sockets /tmp/ipc_ip_conflict (IPv4) and "
            "/tmp/ipc_ipv6_conflict; while nobody listens there, each holds conflict detection up for 5 to 8 s."),
    Row("off", "", &SwitchOff, "have conflicts reported no more", "conflict off -4")
        .Sends(TESSEL_CMD_CONFLICT_STOP)
        .OfFamily()
        .More("There is one switch a family for all programs: refused while one listens, unless --force."),
    Row("watch", "", &WatchConflicts, "show conflicts as they are reported, until interrupted", "conflict watch")
        .Sends(TESSEL_CMD_CONFLICT_START, TESSEL_CMD_CONFLICT_STOP)
        .OfFamily()
        .More(
            "Switches the reports on, and off again in the end. One program a family can listen: refused while another "
            "does, unless --take; the switch then stays as that one has left it. Reports carry the device's own "
            "hardware "
            "address; that of the other host is in the daemon's log."),
};

}  // namespace

extern const Object kConflict = {
    .name = "conflict", .summary = "other hosts that use the device's addresses", .commands = kConflictCommands};

}  // namespace tessel::ctl
