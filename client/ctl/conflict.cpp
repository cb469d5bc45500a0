#include "client/ctl/conflict.h"

#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/handlers.h"
#include "client/ctl/listening.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

constexpr ConflictFamily kFamilies[] = {
    {TESSEL_FAMILY_INET, "inet", "-4", TESSEL_SOCKET_IP_CONFLICT},
    {TESSEL_FAMILY_INET6, "inet6", "-6", TESSEL_SOCKET_IPV6_CONFLICT},
};

// Somebody who would get no more reports, and has not agreed.
std::optional<Failure> RefuseToSilence(const std::string& asked, const std::vector<ConflictFamily>& families) {
    for (const ConflictFamily& family : families) {
        const auto listening = FindListeningProcess(family.socketName);
        if (!listening) continue;
        return Refused(asked, fmt::format("{} listens for {} conflicts and would get no more reports (--force does it)",
                                          ListeningText(*listening), family.name));
    }
    return std::nullopt;
}

std::string NoteOn(const ConflictFamily& family, const std::optional<ListeningProcess>& listening, bool isOn) {
    if (isOn && !listening) {
        return fmt::format(
            "nobody listens under {}: each report will hold conflict detection up for 5 to 8 s (listen: tesselctl "
            "conflict watch {})",
            family.socketName, family.option);
    }
    if (!isOn && listening) return fmt::format("{} gets no more {} reports", ListeningText(*listening), family.name);
    return "";
}

Outcome SwitchReports(const std::string& asked, const Options& options, bool isOn) {
    Outcome outcome;
    for (const ConflictFamily& family : ConflictFamilies(options)) {
        const int error = isOn ? tessel_conflict_start(family.family) : tessel_conflict_stop(family.family);
        if (error == kPlanned) continue;
        if (error != TESSEL_OK) {
            outcome.failure = CallFailed(fmt::format("{} {}", asked, family.option), error);
            return outcome;
        }
        const auto listening = FindListeningProcess(family.socketName);
        outcome.document.push_back(
            {{"family", family.name}, {"reporting", isOn}, {"listener", ListeningJson(listening)}});
        outcome.table.rows.push_back({{family.name}, {isOn ? "conflicts are reported" : "no reports"}});
        const std::string note = NoteOn(family, listening, isOn);
        if (!note.empty()) outcome.notes.push_back(note);
    }
    return outcome;
}

}  // namespace

std::vector<ConflictFamily> ConflictFamilies(const Options& options) {
    std::vector<ConflictFamily> families;
    std::copy_if(std::begin(kFamilies), std::end(kFamilies), std::back_inserter(families),
                 [&](const ConflictFamily& family) { return HasFamily(options, family.family); });
    return families;
}

Outcome ConflictOn(const Invocation& invocation) {
    return SwitchReports("conflict on", invocation.options, true);
}

Outcome ConflictOff(const Invocation& invocation) {
    const std::string asked = "conflict off";
    const Options& options = invocation.options;
    if (!options.force && !options.dryRun) {
        if (auto failure = RefuseToSilence(asked, ConflictFamilies(options))) return std::move(*failure);
    }
    return SwitchReports(asked, options, false);
}

}  // namespace tessel::ctl
