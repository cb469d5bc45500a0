// Changing addresses. Every change is read back: what the daemon answers and what the kernel has are two things.
#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "client/ctl/addresses.h"
#include "client/ctl/guard.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

using Entries = std::span<const TNetIpAddr>;

Entries EntriesOf(const TNetIfaceIp& list) {
    return {list.atIp, std::min<std::size_t>(list.dwNum, TESSEL_ADDRESSES_MAX)};
}

bool IsSame(const TNetIpAddr& one, const TNetIpAddr& other) {
    return AddressText(ShowAddress(one)) == AddressText(ShowAddress(other));
}

bool Holds(Entries entries, const TNetIpAddr& wanted) {
    return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) { return IsSame(entry, wanted); });
}

// What flushing or replacing a family leaves alone.
bool IsLasting(const TNetIpAddr& entry) {
    return entry.wSinFamily == TESSEL_FAMILY_INET6 && (entry.dwScope == TESSEL_SCOPE_LINK || entry.bDynamic != 0);
}

// One change: what is asked of which interface, and how it is told.
struct Change {
    std::string interfaceName;
    int family;
    std::string asked;
    std::string done;
};

// Why the daemon's -1; empty: not known.
std::string WhyFailed(const Change& change, int error, Entries wanted, bool shouldBeThere) {
    if (error != TESSEL_E_FAILED) return "";
    std::string missing = MissingInterface(change.interfaceName);
    if (!missing.empty()) return missing;
    TNetIfaceIp list{};
    if (tessel_addr_get(change.interfaceName.c_str(), change.family, &list) != TESSEL_OK) return "";
    for (const TNetIpAddr& entry : wanted) {
        if (Holds(EntriesOf(list), entry) == shouldBeThere) continue;
        return fmt::format("{} {} {}", change.interfaceName, shouldBeThere ? "has no" : "already has",
                           AddressText(ShowAddress(entry)));
    }
    return "";
}

// The outcome of a change that the daemon answered with success. `problemIn` says what is wrong with the addresses that
// the interface has now; empty: nothing.
template <typename Check>
Outcome ReadBack(const Change& change, Check problemIn) {
    TNetIfaceIp list{};
    const int error = tessel_addr_get(change.interfaceName.c_str(), TESSEL_FAMILY_BOTH, &list);
    if (error != TESSEL_OK) return CallFailed(change.asked + ", read back", error);
    const bool isCut = list.dwNum == TESSEL_ADDRESSES_MAX;
    Outcome outcome;
    outcome.document = {
        {"interface", change.interfaceName}, {"addresses", AddressJson(ShowAddresses(list))}, {"truncated", isCut}};
    outcome.done = fmt::format("{}   {}", change.interfaceName, change.done);
    const std::string problem = problemIn(EntriesOf(list));
    if (problem.empty()) return outcome;
    if (isCut) {
        outcome.notes.push_back(change.interfaceName + ": not read back, the daemon tells 16 addresses only");
    } else {
        outcome.failure = NotApplied(change.asked, "answered success, but " + problem);
    }
    return outcome;
}

Outcome ChangeOne(const Invocation& invocation, std::string_view verb, bool isAdded) {
    const TNetIpAddr entry = *ParsePrefixedAddress(invocation.words.Get("A/L"));
    const std::string text = AddressText(ShowAddress(entry));
    const Change change{.interfaceName = invocation.words.Get("dev"),
                        .family = entry.wSinFamily,
                        .asked = fmt::format("addr {} {} dev {}", verb, text, invocation.words.Get("dev")),
                        .done = fmt::format("{} {}", text, isAdded ? "added" : "deleted")};
    const Entries wanted(&entry, 1);
    if (!isAdded && IsSessionAddress(ShowAddress(entry).text) && !MayCutSession(invocation.options)) {
        return Refused(change.asked, kCutsSession);
    }
    const int error = isAdded ? tessel_addr_add(change.interfaceName.c_str(), &entry)
                              : tessel_addr_del(change.interfaceName.c_str(), &entry);
    if (error != TESSEL_OK) return CallFailed(change.asked, error, WhyFailed(change, error, wanted, !isAdded));
    return ReadBack(change, [&](Entries now) {
        if (Holds(now, entry) == isAdded) return std::string();
        return fmt::format("{} {} {}", change.interfaceName, isAdded ? "does not have" : "still has", text);
    });
}

// True when the interface has the session's address and would lose it.
bool LosesSession(const Change& change, Entries remaining) {
    TNetIfaceIp list{};
    if (tessel_addr_get(change.interfaceName.c_str(), change.family, &list) != TESSEL_OK) return false;
    return std::any_of(list.atIp, list.atIp + list.dwNum, [&](const TNetIpAddr& entry) {
        return IsSessionAddress(ShowAddress(entry).text) && !Holds(remaining, entry);
    });
}

// The family that the addresses are of; 0: options say another.
int FamilyOfEntries(Entries entries, const Options& options) {
    const bool hasInet = std::any_of(entries.begin(), entries.end(),
                                     [](const auto& entry) { return entry.wSinFamily == TESSEL_FAMILY_INET; });
    const bool hasInet6 = std::any_of(entries.begin(), entries.end(),
                                      [](const auto& entry) { return entry.wSinFamily == TESSEL_FAMILY_INET6; });
    if ((options.inet && !options.inet6 && hasInet6) || (options.inet6 && !options.inet && hasInet)) return 0;
    if (hasInet && hasInet6) return TESSEL_FAMILY_BOTH;
    return hasInet ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6;
}

}  // namespace

Outcome AddrAdd(const Invocation& invocation) {
    return ChangeOne(invocation, "add", true);
}

Outcome AddrDel(const Invocation& invocation) {
    return ChangeOne(invocation, "del", false);
}

Outcome AddrFlush(const Invocation& invocation) {
    const std::string name = invocation.words.Get("dev");
    const Change change{.interfaceName = name,
                        .family = FamilyOf(invocation.options),
                        .asked = "addr flush dev " + name,
                        .done = "addresses flushed"};
    if (!MayCutSession(invocation.options) && LosesSession(change, {})) return Refused(change.asked, kCutsSession);
    const int error = tessel_addr_flush(name.c_str(), change.family);
    if (error != TESSEL_OK) return CallFailed(change.asked, error, MissingInterface(name));
    return ReadBack(change, [&](Entries now) {
        const auto left = std::find_if(now.begin(), now.end(), [&](const TNetIpAddr& entry) {
            return (change.family == TESSEL_FAMILY_BOTH || entry.wSinFamily == change.family) && !IsLasting(entry);
        });
        return left == now.end() ? std::string()
                                 : fmt::format("{} still has {}", name, AddressText(ShowAddress(*left)));
    });
}

Outcome AddrSet(const Invocation& invocation) {
    TNetIfaceIp list{};
    const std::vector<std::string> words = invocation.words.All("A/L");
    Change change{.interfaceName = invocation.words.Get("dev"),
                  .family = 0,
                  .asked = fmt::format("addr set dev {} {}", invocation.words.Get("dev"), fmt::join(words, " ")),
                  .done = fmt::format("set to {}", fmt::join(words, "  "))};
    if (words.size() > TESSEL_ADDRESSES_MAX) return Refused(change.asked, "16 addresses at most");
    for (const std::string& word : words) {
        list.atIp[list.dwNum] = *ParsePrefixedAddress(word);
        list.dwNum = list.dwNum + 1;
    }
    const Entries wanted = EntriesOf(list);
    change.family = FamilyOfEntries(wanted, invocation.options);
    if (change.family == 0) return Refused(change.asked, "-4 and -6 say another family than the addresses");
    if (!MayCutSession(invocation.options) && LosesSession(change, wanted)) return Refused(change.asked, kCutsSession);
    const int error = tessel_addr_set(change.interfaceName.c_str(), change.family, &list);
    if (error != TESSEL_OK) return CallFailed(change.asked, error, MissingInterface(change.interfaceName));
    return ReadBack(change, [&](Entries now) {
        const auto lost =
            std::find_if(wanted.begin(), wanted.end(), [&](const auto& entry) { return !Holds(now, entry); });
        return lost == wanted.end()
                   ? std::string()
                   : fmt::format("{} does not have {}", change.interfaceName, AddressText(ShowAddress(*lost)));
    });
}

}  // namespace tessel::ctl
