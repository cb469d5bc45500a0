// Addresses of interfaces. What the daemon answers and what the kernel has are two things: every change is read back.
#include "client/ctl/device.h"
#include "client/ctl/guard.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

bool HasAddress(const Json& addresses, const Network& network) {
    return std::any_of(addresses.begin(), addresses.end(),
                       [&](const Json& address) { return AddressText(address) == NetworkText(network); });
}

// The addresses of a family that flushing or replacing it takes away.
std::vector<Network> PassingAddresses(const Json& addresses, int family) {
    std::vector<Network> passing;
    for (const Json& address : addresses) {
        const auto network = ParseNetwork(AddressText(address));
        const bool isMeant = network && (family == TESSEL_FAMILY_BOTH || network->family == family);
        const bool isOwn = address.at("scope") == "link" || address.at("dynamic") == true;
        if (isMeant && (network->family == TESSEL_FAMILY_INET || !isOwn)) passing.push_back(*network);
    }
    return passing;
}

// Completes an interface's document by the addresses that the daemon did not report.
void AddFromKernel(Json& document, int family, Outcome& outcome) {
    const std::string name = TextOf(document, "interface");
    const std::string foreign = ForeignKernel();
    if (!foreign.empty()) return outcome.notes.push_back("the kernel was not asked: " + foreign);
    std::vector<std::string> added;
    const Json link = KernelLink(name);
    for (const Json& address : link.is_null() ? Json::array() : link.at("addresses")) {
        const Network network = ParseNetwork(AddressText(address)).value_or(Network{});
        const bool isMeant = family == TESSEL_FAMILY_BOTH || network.family == family;
        if (!isMeant || HasAddress(document.at("addresses"), network)) continue;
        document["addresses"].push_back(address);
        added.push_back(NetworkText(network));
    }
    document["truncated"] = false;
    if (!added.empty()) outcome.notes.push_back(Format("{}: the kernel alone reports {}", name, Joined(added, ", ")));
}

Outcome ShowAddr(const Invocation& invocation) {
    const int family = FamilyOf(invocation.options);
    Outcome outcome;
    outcome.document = Json::array();
    ForEachInterface(invocation.words.Text("dev"), outcome, [&](const std::string& name) {
        Json document = DaemonAddresses(invocation.asked, name, family);
        if (invocation.options.kernel) AddFromKernel(document, family, outcome);
        if (document.at("truncated") == true)
            outcome.notes.push_back(name + ": 16 addresses are shown, there may be more (--kernel shows all)");
        outcome.document.push_back(std::move(document));
    });
    return outcome;
}

// `wrong` is asked with the interface's addresses.
Outcome PerformOn(const Invocation& invocation, Change change) {
    const std::string name = invocation.words.Text("dev");
    change.read = [&] { return DaemonAddresses(invocation.asked, name, TESSEL_FAMILY_BOTH); };
    change.wrong = [wrong = std::move(change.wrong)](const Json& now) {
        return now.at("truncated") == true ? std::string() : wrong(now.at("addresses"));
    };
    Outcome outcome = Perform(invocation, change);
    if (outcome.document.is_object() && outcome.document.at("truncated") == true)
        outcome.notes.push_back(name + ": not read back, the daemon reports 16 addresses only");
    return outcome;
}

Outcome ChangeOne(const Invocation& invocation, bool isAdded) {
    const std::string name = invocation.words.Text("dev");
    const auto& network = invocation.words.Get<Network>("A/L");
    const std::string text = NetworkText(network);
    const TNetIpAddr record = AddressOf(network);
    Change change{.send = [&] { return (isAdded ? tessel_addr_add : tessel_addr_del)(name.c_str(), &record); }};
    change.done = Format("{}   {} {}", name, text, isAdded ? "added" : "deleted");
    if (!isAdded) change.guard = [&] { return CutsSessionAt(network); };
    change.cause = [&] {
        const Json now = DaemonAddresses(invocation.asked, name, network.family);
        const bool isDone = HasAddress(now.at("addresses"), network) == isAdded;
        return isDone ? Format("{} {} {}", name, isAdded ? "already has" : "has no", text) : "";
    };
    change.wrong = [&](const Json& now) {
        const bool isDone = HasAddress(now, network) == isAdded;
        return isDone ? "" : Format("{} {} {}", name, isAdded ? "does not have" : "still has", text);
    };
    return PerformOn(invocation, std::move(change));
}

Outcome AddAddr(const Invocation& invocation) {
    return ChangeOne(invocation, true);
}

Outcome DelAddr(const Invocation& invocation) {
    return ChangeOne(invocation, false);
}

// Why the session would be lost with the addresses of a family that are not among the remaining ones.
std::string CutsSession(const Invocation& invocation, int family, const std::vector<Network>& remaining) {
    const Json now = DaemonAddresses(invocation.asked, invocation.words.Text("dev"), family);
    for (const Network& network : PassingAddresses(now.at("addresses"), family)) {
        if (std::count(remaining.begin(), remaining.end(), network) != 0) continue;
        std::string cut = CutsSessionAt(network);
        if (!cut.empty()) return cut;
    }
    return "";
}

Outcome Flush(const Invocation& invocation) {
    const std::string name = invocation.words.Text("dev");
    const int family = FamilyOf(invocation.options);
    Change change{.send = [&] { return tessel_addr_flush(name.c_str(), family); }};
    change.done = name + "   addresses flushed";
    change.guard = [&] { return CutsSession(invocation, family, {}); };
    change.cause = [&] { return MissingInterface(name); };
    change.wrong = [&](const Json& now) {
        const auto left = PassingAddresses(now, family);
        return left.empty() ? "" : Format("{} still has {}", name, NetworkText(left.front()));
    };
    return PerformOn(invocation, std::move(change));
}

Outcome SetAddr(const Invocation& invocation) {
    const std::string name = invocation.words.Text("dev");
    const auto wanted = invocation.words.All<Network>("A/L");
    if (wanted.size() > TESSEL_ADDRESSES_MAX) throw Refused(invocation.asked, "16 addresses at most");
    TNetIfaceIp list{};
    std::vector<std::string> texts;
    for (const Network& network : wanted) {
        if (!HasFamily(invocation.options, network.family))
            throw Refused(invocation.asked, "-4 and -6 say another family than the addresses");
        if (std::count(wanted.begin(), wanted.end(), network) > 1)
            throw Refused(invocation.asked, NetworkText(network) + " is named twice");
        list.atIp[texts.size()] = AddressOf(network);
        texts.push_back(NetworkText(network));
    }
    list.dwNum = static_cast<u32>(texts.size());
    const bool isOneFamily = std::all_of(wanted.begin(), wanted.end(),
                                         [&](const Network& one) { return one.family == wanted.front().family; });
    const int family = isOneFamily ? wanted.front().family : TESSEL_FAMILY_BOTH;
    Change change{.send = [&] { return tessel_addr_set(name.c_str(), family, &list); }};
    change.done = Format("{}   set to {}", name, Joined(texts, "  "));
    change.guard = [&] { return CutsSession(invocation, family, wanted); };
    change.cause = [&] { return MissingInterface(name); };
    change.wrong = [&](const Json& now) {
        const auto lost =
            std::find_if(wanted.begin(), wanted.end(), [&](const auto& one) { return !HasAddress(now, one); });
        return lost == wanted.end() ? "" : Format("{} does not have {}", name, NetworkText(*lost));
    };
    try {
        return PerformOn(invocation, std::move(change));
    } catch (Failure& failure) {
        if (failure.error != "failed" || !MissingInterface(name).empty()) throw;
        const std::string left = AddressesText(DaemonAddresses(invocation.asked, name, family).at("addresses"));
        AddSentence(failure, Format("{} has {} now", name, left.empty() ? "no such address" : left));
        throw;
    }
}

constexpr Command kAddrCommands[] = {
    Row("show", "[dev IF]", &ShowAddr, "addresses of one interface or of all", "addr show dev eth0 -4")
        .Sends(TESSEL_CMD_IPADDR_GET)
        .OfFamily()
        .Columns("INTERFACE {interface}|ADDRESS {address}/{prefix_length}|SCOPE {scope}|MARKS {dynamic} {tentative}")
        .More("The daemon reports 16 addresses of an interface at most; a full list is marked. --kernel adds the "
              "others."),
    Row("add", "A/L dev IF", &AddAddr, "add an address, and read it back", "addr add 192.168.1.20/24 dev eth0")
        .Sends(TESSEL_CMD_IPADDR_ADD, TESSEL_CMD_IPADDR_GET),
    Row("del", "A/L dev IF", &DelAddr, "delete an address", "addr del 192.168.1.21/24 dev eth0")
        .Sends(TESSEL_CMD_IPADDR_DEL, TESSEL_CMD_IPADDR_GET),
    Row("set", "A/L... dev IF", &SetAddr, "replace the addresses of a family by these",
        "addr set dev eth0 192.168.1.20/24")
        .Sends(TESSEL_CMD_IPADDR_SET, TESSEL_CMD_IPADDR_GET)
        .OfFamily()
        .More("The family is that of the addresses, or both. IPv6 link-local addresses and those learnt from "
              "router advertisements stay."),
    Row("flush", "dev IF", &Flush, "remove all addresses of one family or both", "addr flush dev eth0 -6")
        .Sends(TESSEL_CMD_IPADDR_FLUSH, TESSEL_CMD_IPADDR_GET)
        .OfFamily()
        .More("IPv6 link-local addresses stay."),
};

}  // namespace

extern const Object kAddr = {.name = "addr", .summary = "addresses", .commands = kAddrCommands};

}  // namespace tessel::ctl
