#include <fmt/format.h>

#include "client/ctl/addresses.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"
#include "core/text.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

// RFC 791: every IPv4 host takes packets of 68 bytes. Above 65536, the loopback's, nothing is sent in one piece.
constexpr u32 kMtuMin = 68;
constexpr u32 kMtuMax = 65536;

// What is known of an interface, by whoever told it.
struct LinkFacts {
    u32 mtu = 0;
    std::string mac;
    std::vector<ShownAddress> addresses;
    bool isCut = false;
    std::string note;  // empty: the daemon told everything
};

void TakeFromDaemon(const ipaddr_show_info& info, LinkFacts& facts) {
    facts.mtu = static_cast<u32>(info.mtu);
    facts.mac = FieldText(info.mac).Get();
    for (u32 i = 0; i < info.num; ++i)
        facts.addresses.push_back(ShowAddress(info.addr[i]));
    facts.isCut = info.num == TESSEL_ADDRESSES_MAX;
}

void TakeFromKernel(const KernelLink& link, LinkFacts& facts) {
    facts.mac = link.mac;
    facts.addresses = link.addresses;
    facts.note = link.mac.empty() ? "no Ethernet address: the daemon tells the MTU only, the rest is the kernel's"
                                  : "the daemon tells the MTU only, the rest is the kernel's";
}

// An error of libtessel.
int AskForLink(const std::string& name, const std::optional<KernelLink>& link, LinkFacts& facts) {
    ipaddr_show_info info{};
    const int error = tessel_addr_show(name.c_str(), &info);
    if (error == TESSEL_OK) TakeFromDaemon(info, facts);
    if (error != TESSEL_E_FAILED || !link) return error;
    // It fails as a whole where there is no Ethernet address, and tells nothing of the MTU then.
    const int mtuError = tessel_mtu_get(name.c_str(), &facts.mtu);
    if (mtuError == TESSEL_OK) TakeFromKernel(*link, facts);
    return mtuError;
}

// Adds the addresses that the daemon did not tell.
void CompleteFromKernel(const KernelLink& link, LinkFacts& facts, Outcome& outcome) {
    const std::string foreign = ForeignKernel();
    if (!foreign.empty()) {
        outcome.notes.push_back("the kernel was not asked: " + foreign);
        return;
    }
    const auto beside = AddressesBeside(facts.addresses, link, TESSEL_FAMILY_BOTH);
    facts.addresses.insert(facts.addresses.end(), beside.begin(), beside.end());
    facts.isCut = false;
}

bool AddLink(const std::string& name, const Options& options, Outcome& outcome) {
    const auto link = FindKernelLink(name);
    LinkFacts facts;
    const int error = AskForLink(name, link, facts);
    if (error != TESSEL_OK) {
        outcome.failure = CallFailed("link show " + name, error, MissingInterface(name));
        return error == TESSEL_E_FAILED || error == kPlanned;
    }
    if (options.kernel && link) CompleteFromKernel(*link, facts, outcome);
    const std::string state = link ? LinkState(*link) : "unknown";
    outcome.table.rows.push_back({{name},
                                  {state, state == "up" ? Style::kGood : Style::kBad},
                                  {std::to_string(facts.mtu)},
                                  {facts.mac.empty() ? "-" : facts.mac},
                                  {AddressText(facts.addresses)}});
    outcome.document.push_back({{"interface", name},
                                {"state", state},
                                {"mtu", facts.mtu},
                                {"mac", NullIfEmpty(facts.mac)},
                                {"addresses", AddressJson(facts.addresses)},
                                {"truncated", facts.isCut},
                                {"note", NullIfEmpty(facts.note)}});
    if (!facts.note.empty()) outcome.notes.push_back(fmt::format("{}: {}", name, facts.note));
    if (facts.isCut) outcome.notes.push_back(name + ": 16 addresses are shown, there may be more (--kernel shows all)");
    return true;
}

}  // namespace

Outcome LinkShow(const Invocation& invocation) {
    Outcome outcome;
    outcome.table.header = {"INTERFACE", "STATE", "MTU", "MAC", "ADDRESSES"};
    if (const auto named = invocation.words.Find("IF")) {
        (void)AddLink(*named, invocation.options, outcome);
        return outcome;
    }
    outcome.document = ordered_json::array();
    for (const KernelLink& link : KernelLinks()) {
        if (!AddLink(link.name, invocation.options, outcome)) return *outcome.failure;
    }
    return outcome;
}

Outcome LinkMtu(const Invocation& invocation) {
    const std::string name = invocation.words.Get("IF");
    u32 mtu = 0;
    const int error = tessel_mtu_get(name.c_str(), &mtu);
    if (error != TESSEL_OK) return CallFailed("link mtu " + name, error, MissingInterface(name));
    Outcome outcome;
    outcome.document = {{"interface", name}, {"mtu", mtu}};
    outcome.table.rows.push_back({{std::to_string(mtu)}});
    return outcome;
}

Outcome LinkSetMtu(const Invocation& invocation) {
    const std::string name = invocation.words.Get("IF");
    const u32 wanted = ParseNumber(invocation.words.Get("mtu")).value_or(0);
    const std::string asked = fmt::format("link set {} mtu {}", name, wanted);
    if (wanted < kMtuMin || wanted > kMtuMax) {
        return Refused(asked, fmt::format("an MTU is from {} to {}", kMtuMin, kMtuMax));
    }
    const int error = tessel_mtu_set(name.c_str(), wanted);
    if (error != TESSEL_OK) {
        const std::string missing = MissingInterface(name);
        return CallFailed(asked, error, missing.empty() ? name + " does not take this size" : missing);
    }
    u32 mtu = 0;
    const int readError = tessel_mtu_get(name.c_str(), &mtu);
    if (readError != TESSEL_OK) return CallFailed(asked + ", read back", readError);
    Outcome outcome;
    outcome.document = {{"interface", name}, {"mtu", mtu}};
    outcome.done = fmt::format("{}   mtu {}", name, mtu);
    if (mtu != wanted) outcome.failure = NotApplied(asked, fmt::format("answered success, but the MTU is {}", mtu));
    return outcome;
}

}  // namespace tessel::ctl
