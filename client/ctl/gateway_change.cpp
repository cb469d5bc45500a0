// Changing default gateways. Every change is read back, as the kernel's view and the daemon's answer are two things.
#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/addresses.h"
#include "client/ctl/gateways.h"
#include "client/ctl/guard.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/optional_json.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

// One gateway that is to be set.
struct Wanted {
    GatewayPlace place;
    TNetGateway gateway;
    std::string text;
    std::string asked;
};

Wanted WantedOf(const Arguments& words) {
    Wanted wanted{.place = PlaceOf(words), .gateway = *ParseHost(words.Get("A")), .text = {}, .asked = {}};
    wanted.text = HostText(wanted.gateway);
    wanted.asked = "gateway " + wanted.text;
    if (!wanted.place.interfaceName.empty()) wanted.asked += " on " + wanted.place.interfaceName;
    if (wanted.place.table != 0) wanted.asked += fmt::format(" in table {}", wanted.place.table);
    return wanted;
}

const char* NameOrNull(const GatewayPlace& place) {
    return place.interfaceName.empty() ? nullptr : place.interfaceName.c_str();
}

// Nothing: it does not end the session that it is typed in.
std::optional<Failure> WhyGuarded(std::string_view asked, const GatewayPlace& place, const Options& options) {
    if (MayCutSession(options) || !CarriesSession(place.interfaceName)) return std::nullopt;
    return Refused(asked, fmt::format("your session runs over {} (--force does it)", OwnerText(place)));
}

int Set(const Wanted& wanted) {
    return tessel_gateway_set(NameOrNull(wanted.place), &wanted.gateway, wanted.place.table);
}

ordered_json GatewayJson(const GatewayPlace& place, int family, const std::string& gateway) {
    return {{"interface", NullIfEmpty(place.interfaceName)},
            {"family", FamilyName(static_cast<u32>(family))},
            {"gateway", NullIfEmpty(gateway)},
            {"table", KernelTable(place)}};
}

std::string WhatItHas(const Wanted& wanted, const ToldGateway& now) {
    const std::string text =
        fmt::format("{} has {}", OwnerText(wanted.place), now.text.empty() ? "no gateway" : now.text);
    const bool isMistaken = wanted.gateway.wSinFamily == TESSEL_FAMILY_INET6 && now.text.starts_with(wanted.text);
    return isMistaken ? text + R"(, which the daemon takes for the same ("gateway replace" does it))" : text;
}

// The outcome of a set that the daemon answered with success. Where there are several default routes the daemon tells
// the first one only, and the kernel knows better.
Outcome ReadBack(const Wanted& wanted) {
    ToldGateway now;
    const int family = wanted.gateway.wSinFamily;
    const int error = AskForGateway(wanted.place, family, now);
    if (error != TESSEL_OK) return CallFailed(wanted.asked + ", read back", error);
    const auto routes = KernelDefaults(wanted.place, family);
    const bool kernelHas = std::any_of(routes.begin(), routes.end(),
                                       [&](const KernelRoute& route) { return route.gateway == wanted.text; });
    const bool isApplied = now.text == wanted.text || kernelHas;
    Outcome outcome;
    outcome.document = GatewayJson(wanted.place, family, isApplied ? wanted.text : now.text);
    outcome.done = wanted.place.interfaceName + (wanted.place.interfaceName.empty() ? "" : "   ") +
                   fmt::format("gateway {} set", wanted.text);
    if (!isApplied) {
        outcome.failure = NotApplied(wanted.asked, "answered success, but " + WhatItHas(wanted, now));
    } else if (routes.size() > 1 && !wanted.place.interfaceName.empty()) {
        outcome.notes.push_back(
            fmt::format("{} has {} default routes of this family now", wanted.place.interfaceName, routes.size()));
    }
    return outcome;
}

// "add" does not go beside what is there; "replace", which the daemon runs for IPv6 in the main table, does.
std::vector<std::string> NotesBeforeSet(const Wanted& wanted) {
    const bool replaces = wanted.gateway.wSinFamily == TESSEL_FAMILY_INET6 && wanted.place.table == 0;
    const auto routes = KernelDefaults(wanted.place, wanted.gateway.wSinFamily);
    if (replaces || routes.empty()) return {};
    return {fmt::format("{} already has {}: \"add\" will fail; use \"gateway replace\"", OwnerText(wanted.place),
                        routes[0].gateway.empty() ? "a default route" : routes[0].gateway)};
}

Outcome Planned(std::vector<std::string> notes) {
    Outcome outcome;
    outcome.notes = std::move(notes);
    return outcome;
}

// What became of the old gateway after the new one could not be set; it is set again when that is certain.
std::string OldGatewayText(const Wanted& wanted, const ToldGateway& old, int error) {
    if (old.text.empty()) return "";
    if (error != TESSEL_E_FAILED) return fmt::format(" {} was deleted before.", old.text);
    const int restored = tessel_gateway_set(NameOrNull(wanted.place), &old.record, wanted.place.table);
    if (restored == TESSEL_OK) return fmt::format(" The old gateway {} is set again.", old.text);
    return fmt::format(" The old gateway {} could not be set again: {} has none now.", old.text,
                       OwnerText(wanted.place));
}

// Deletes the default route of one family, if there is one. False when going on makes no sense.
bool DeleteOne(const GatewayPlace& place, int family, const std::string& asked, Outcome& outcome) {
    ToldGateway old;
    int error = AskForGateway(place, family, old);
    const auto routes = KernelDefaults(place, family);
    if (error == TESSEL_OK && old.text.empty() && routes.empty()) return true;
    if (error == TESSEL_OK) error = tessel_gateway_del(NameOrNull(place), family, place.table);
    ToldGateway now;
    if (error == TESSEL_OK) error = AskForGateway(place, family, now);
    if (error != TESSEL_OK) {
        outcome.failure = CallFailed(asked, error, MissingAt(place));
        return false;
    }
    if (!old.text.empty() && now.text == old.text) {
        outcome.failure =
            NotApplied(asked, fmt::format("answered success, but {} still has {}", OwnerText(place), now.text));
        return true;
    }
    if (!now.text.empty()) {
        outcome.notes.push_back(fmt::format("{} has another default route still, via {}", OwnerText(place), now.text));
    }
    outcome.document.push_back(GatewayJson(place, family, old.text));
    outcome.table.rows.push_back(
        {{place.interfaceName},
         {old.text.empty() ? fmt::format("default route ({}) deleted", FamilyName(static_cast<u32>(family)))
                           : fmt::format("gateway {} deleted", old.text)}});
    return true;
}

}  // namespace

Outcome GatewaySet(const Invocation& invocation) {
    const Wanted wanted = WantedOf(invocation.words);
    const int family = wanted.gateway.wSinFamily;
    if (family == TESSEL_FAMILY_INET6 && wanted.place.interfaceName.empty()) {
        return Refused(wanted.asked, "an IPv6 gateway needs its interface (dev IF)");
    }
    if (const auto failure = WhyGuarded(wanted.asked, wanted.place, invocation.options)) return *failure;
    const int error = Set(wanted);
    if (error == kPlanned) return Planned(NotesBeforeSet(wanted));
    if (error == TESSEL_E_FAILED) return CallFailed(wanted.asked, error, WhyNotSet(wanted.place, wanted.gateway));
    return error == TESSEL_OK ? ReadBack(wanted) : CallFailed(wanted.asked, error);
}

Outcome GatewayDel(const Invocation& invocation) {
    const GatewayPlace place = PlaceOf(invocation.words);
    const std::string asked = "gateway del" + PlaceWords(place);
    if (const auto failure = WhyGuarded(asked, place, invocation.options)) return *failure;
    Outcome outcome;
    outcome.document = ordered_json::array();
    outcome.table.gapBlanks = place.interfaceName.empty() ? 0 : 3;
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        if (!HasFamily(invocation.options, family)) continue;
        if (invocation.options.dryRun) {
            (void)tessel_gateway_del(NameOrNull(place), family, place.table);  // noted, not sent
            outcome.notes = {"a family without a gateway is passed over"};
        } else if (!DeleteOne(place, family, asked, outcome)) {
            return outcome;
        }
    }
    if (invocation.options.dryRun || outcome.failure || !outcome.document.empty()) return outcome;
    return Failed(asked, fmt::format("nothing to delete, {} has no gateway", OwnerText(place)));
}

Outcome GatewayReplace(const Invocation& invocation) {
    const Wanted wanted = WantedOf(invocation.words);
    const std::string& name = wanted.place.interfaceName;
    const int family = wanted.gateway.wSinFamily;
    if (const auto failure = WhyGuarded(wanted.asked, wanted.place, invocation.options)) return *failure;
    if (invocation.options.dryRun) {
        (void)tessel_gateway_del(name.c_str(), family, wanted.place.table);  // noted, not sent
        (void)Set(wanted);
        return Planned({fmt::format("two steps; the first one is left out when {} has no gateway", name)});
    }
    ToldGateway old;
    const int askError = AskForGateway(wanted.place, family, old);
    if (askError != TESSEL_OK) return CallFailed(wanted.asked, askError, MissingInterface(name));
    if (!old.text.empty()) {
        const int error = tessel_gateway_del(name.c_str(), family, wanted.place.table);
        if (error != TESSEL_OK) return CallFailed(wanted.asked + ", deleting " + old.text, error);
    }
    const int error = Set(wanted);
    if (error == TESSEL_OK) {
        Outcome outcome = ReadBack(wanted);
        if (!old.text.empty()) {
            outcome.notes.push_back(fmt::format("two steps: {} was deleted, then {} added", old.text, wanted.text));
        }
        return outcome;
    }
    Failure failure = CallFailed(wanted.asked, error,
                                 error == TESSEL_E_FAILED ? WhyNotSet(wanted.place, wanted.gateway) : std::string());
    failure.message += OldGatewayText(wanted, old, error);
    return failure;
}

}  // namespace tessel::ctl
