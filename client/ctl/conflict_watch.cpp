// Listens first, then has the conflicts reported; the other way round on the way out.
#include <fmt/format.h>

#include "client/ctl/conflict.h"
#include "client/ctl/handlers.h"
#include "client/ctl/listening.h"
#include "client/ctl/note.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

constexpr char kAsked[] = "conflict watch";
constexpr char kWhereTheOtherIs[] =
    "the other host's hardware address is only in the daemon's log (tesselctl log follow)";

struct WatchedFamily {
    ConflictFamily family;
    std::optional<ListeningProcess> takenFrom;  // has switched the reports on for itself
    EventSource source;
    bool isStarted = false;  // perhaps
};

std::vector<WatchedFamily> FindFamilies(const Options& options) {
    std::vector<WatchedFamily> watched;
    for (const ConflictFamily& family : ConflictFamilies(options)) {
        watched.push_back({.family = family,
                           .takenFrom = FindListeningProcess(family.socketName),
                           .source = {.name = family.socketName, .listener = nullptr}});
    }
    return watched;
}

Failure Occupied(const WatchedFamily& watched) {
    return Refused(kAsked,
                   fmt::format("{} listens for {} conflicts (--take listens in its place: it gets none any "
                               "more)",
                               ListeningText(watched.takenFrom.value_or(ListeningProcess{})), watched.family.name));
}

// All or none.
std::optional<Failure> Listen(std::vector<WatchedFamily>& families, bool take) {
    for (const WatchedFamily& watched : families) {
        if (watched.takenFrom && !take) return Occupied(watched);
    }
    const unsigned flags = take ? static_cast<unsigned>(TESSEL_LISTEN_TAKE) : 0;
    for (WatchedFamily& watched : families) {
        tessel_listener* listener = nullptr;
        const int error = tessel_listener_open(watched.family.socketName, flags, &listener);
        if (error == TESSEL_E_IN_USE) return Occupied(watched);
        if (error != TESSEL_OK) return CallFailed(fmt::format("{}, {}", kAsked, watched.family.socketName), error);
        watched.source.listener.reset(listener);
    }
    return std::nullopt;
}

std::optional<Failure> SwitchOn(std::vector<WatchedFamily>& families) {
    for (WatchedFamily& watched : families) {
        watched.isStarted = true;
        const int error = tessel_conflict_start(watched.family.family);
        if (error != TESSEL_OK) return CallFailed(kAsked, error);
    }
    return std::nullopt;
}

bool HasItsName(const WatchedFamily& watched) {
    return tessel_listener_has_name(watched.source.listener.get()) != 0;
}

// Nothing that somebody else has switched on for itself. The sockets stay open meanwhile.
void SwitchOff(const std::vector<WatchedFamily>& families, Outcome& outcome) {
    for (const WatchedFamily& watched : families) {
        if (!watched.isStarted || !HasItsName(watched)) continue;
        if (watched.takenFrom && MayStillRun(*watched.takenFrom)) {
            outcome.notes.push_back(fmt::format(
                "{} reports stay on: {} had them before, and gets them again once it listens anew; until then each "
                "holds conflict detection up for 5 to 8 s (tesselctl conflict off {} ends them)",
                watched.family.name, ListeningText(*watched.takenFrom), watched.family.option));
            continue;
        }
        const int error = tessel_conflict_stop(watched.family.family);
        const bool isOff = error == TESSEL_OK || error == TESSEL_E_NOT_RUNNING;
        if (!isOff && !outcome.failure) {
            outcome.failure =
                CallFailed(fmt::format("{}, switching {} reports off", kAsked, watched.family.name), error);
        }
    }
}

// What happens between the events.
class Surroundings {
  public:
    Surroundings(std::vector<WatchedFamily>& families, const Invocation& invocation)
        : families_(families), invocation_(invocation) {}

    // A failure when there is nothing left to wait for.
    std::optional<Failure> Look() {
        for (const WatchedFamily& watched : families_) {
            if (!HasItsName(watched)) {
                return Failed(
                    kAsked,
                    fmt::format("{} listens for {} conflicts now",
                                ListeningText(FindListeningProcess(watched.source.name).value_or(ListeningProcess{})),
                                watched.family.name));
            }
        }
        switch (daemon_.Look()) {
            case DaemonChange::kNone:
                break;
            case DaemonChange::kGone:
                Say({.exit = kExitNotRunning,
                     .error = "not_running",
                     .message = fmt::format("{}: the daemon has ended; waiting for the next one", kAsked)});
                break;
            case DaemonChange::kBack:
                return SwitchOnAgain();
        }
        return std::nullopt;
    }

  private:
    // Nothing has ended, so this is no result.
    void Say(const Failure& failure) const {
        (void)std::fputs(RenderFailure(failure, invocation_.options.json).c_str(), invocation_.err);
    }

    std::optional<Failure> SwitchOnAgain() {
        auto failure = SwitchOn(families_);
        if (failure && failure->exit == kExitNotRunning) return std::nullopt;
        if (!failure)
            ShowNote("the daemon is new: reports are switched on again", invocation_.options, invocation_.err);
        return failure;
    }

    std::vector<WatchedFamily>& families_;
    const Invocation& invocation_;
    DaemonPresence daemon_;
};

Outcome Plan(const std::vector<WatchedFamily>& families) {
    Outcome outcome;
    for (const WatchedFamily& watched : families) {
        outcome.planned.push_back(fmt::format("listens under {} until interrupted", watched.family.socketName));
        (void)tessel_conflict_start(watched.family.family);
    }
    for (const WatchedFamily& watched : families)
        (void)tessel_conflict_stop(watched.family.family);
    return outcome;
}

}  // namespace

Outcome ConflictWatch(const Invocation& invocation) {
    if (invocation.options.dryRun) return Plan(FindFamilies(invocation.options));
    if (tessel_daemon_is_listening() == 0) return CallFailed(kAsked, TESSEL_E_NOT_RUNNING);
    const HeldSignals signals;  // until the sockets are gone
    std::vector<WatchedFamily> families = FindFamilies(invocation.options);
    if (auto failure = Listen(families, invocation.options.take)) return std::move(*failure);

    Outcome outcome;
    Surroundings surroundings(families, invocation);
    outcome.failure = SwitchOn(families);
    if (!outcome.failure) {
        ShowNote(kWhereTheOtherIs, invocation.options, invocation.err);
        std::vector<const EventSource*> sources;
        sources.reserve(families.size());
        for (const WatchedFamily& watched : families)
            sources.push_back(&watched.source);
        WatchEnd end = ShowEvents(sources, signals, invocation, [&] { return surroundings.Look(); });
        outcome.signal = end.signal;
        outcome.failure = std::move(end.failure);
        if (end.notEvents > 0) {
            outcome.notes.push_back(fmt::format("connections without a report of a conflict: {}", end.notEvents));
        }
    }
    SwitchOff(families, outcome);
    return outcome;
}

}  // namespace tessel::ctl
