// Addresses of interfaces; static ARP entries, and the announcer. What the daemon answers and what the kernel has are
// two things: every change is read back.
#include "client/ctl/device.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

bool HasAddress(const Json& addresses, const std::string& text) {
    return std::any_of(addresses.begin(), addresses.end(), [&](const Json& one) { return AddressText(one) == text; });
}

bool IsOf(const Json& address, int family) {
    return family == TESSEL_FAMILY_BOTH || address.at("family") == FamilyName(family);
}

void AddFromKernel(Json& document, int family, Outcome& outcome) {
    const std::string name = TextOf(document, "interface");
    const std::string foreign = ForeignKernel();
    if (!foreign.empty()) return outcome.notes.push_back("the kernel was not asked: " + foreign);
    std::vector<std::string> added;
    Json link = KernelLink(name);
    for (const Json& address : link["addresses"]) {
        if (!IsOf(address, family) || HasAddress(document.at("addresses"), AddressText(address))) continue;
        document["addresses"].push_back(address);
        added.push_back(AddressText(address));
    }
    document["truncated"] = false;
    if (!added.empty()) outcome.notes.push_back(Format("{}: the kernel alone reports {}", name, Joined(added, ", ")));
}

Outcome ShowAddr(const Invocation& invocation) {
    const int family = FamilyOf(invocation.options);
    Outcome outcome{.document = Json::array()};
    ForEachInterface(invocation.words.Text("dev"), outcome, [&](const std::string& name) {
        Json document = DaemonAddresses(invocation.asked, name, family);
        if (invocation.options.kernel) AddFromKernel(document, family, outcome);
        if (document.at("truncated") == true)
            outcome.notes.push_back(name + ": 16 addresses are shown; there may be more (--kernel shows all)");
        outcome.document.push_back(std::move(document));
    });
    return outcome;
}

using Predicate = std::function<bool(const Json& address)>;

// A change after which an interface has the wanted addresses, and no unwanted ones. `already` is said of a failure when
// it was so before.
Outcome PerformOn(const Invocation& invocation, Change change, const std::vector<std::string>& wanted,
                  const Predicate& isUnwanted, const std::string& already = {}) {
    const std::string name = invocation.words.Text("dev");
    change.guard = [&] {
        const Json addresses = KernelLink(name)["addresses"];
        return CutsSession(invocation.options, [&](const Network& device) {
            return std::any_of(addresses.begin(), addresses.end(), [&](const Json& one) {
                return isUnwanted(one) && TextOf(one, "address") == HostText(device);
            });
        });
    };
    change.read = [&] { return DaemonAddresses(invocation.asked, name, TESSEL_FAMILY_BOTH); };
    change.wrong = [&](const Json& now) {
        if (now.at("truncated") == true) return std::string();
        for (const std::string& text : wanted)
            if (!HasAddress(now.at("addresses"), text)) return Format("{} does not have {}", name, text);
        for (const Json& address : now.at("addresses"))
            if (isUnwanted(address)) return Format("{} still has {}", name, AddressText(address));
        return std::string();
    };
    change.cause = [&] {
        const std::string missing = MissingInterface(name);
        return missing.empty() && change.wrong(change.read()).empty() ? already : missing;
    };
    Outcome outcome = Perform(invocation, change);
    if (outcome.document.is_object() && outcome.document.at("truncated") == true)
        outcome.notes.push_back(name + ": not read back, as the daemon reports only 16 addresses");
    return outcome;
}

template <bool kIsAdded>
Outcome ChangeOne(const Invocation& invocation) {
    const std::string name = invocation.words.Text("dev");
    const auto& network = invocation.words.Get<Network>("A/L");
    const std::string text = NetworkText(network);
    const TNetIpAddr record = AddressOf(network);
    Change change{.send = [&] { return (kIsAdded ? tessel_addr_add : tessel_addr_del)(name.c_str(), &record); }};
    change.done = Format("{}   {} {}", name, text, kIsAdded ? "added" : "deleted");
    const std::vector<std::string> wanted(kIsAdded ? 1 : 0, text);
    const auto isUnwanted = [&](const Json& address) { return !kIsAdded && AddressText(address) == text; };
    const std::string already = Format("{} {} {}", name, kIsAdded ? "already has" : "has no", text);
    return PerformOn(invocation, std::move(change), wanted, isUnwanted, already);
}

// Those of a family that flushing or replacing it removes.
Predicate PassingBeside(const std::vector<std::string>& wanted, int family) {
    return [=](const Json& address) {
        const bool isOwn = address.at("scope") == "link" || address.at("dynamic") == true;
        const bool stays = isOwn && address.at("family") == "inet6";
        return IsOf(address, family) && !stays && std::count(wanted.begin(), wanted.end(), AddressText(address)) == 0;
    };
}

Outcome Flush(const Invocation& invocation) {
    const std::string name = invocation.words.Text("dev");
    const int family = FamilyOf(invocation.options);
    const auto send = [&] { return tessel_addr_flush(name.c_str(), family); };
    return PerformOn(invocation, {.send = send, .done = name + "   addresses flushed"}, {}, PassingBeside({}, family));
}

Outcome SetAddr(const Invocation& invocation) {
    const std::string name = invocation.words.Text("dev");
    const auto networks = invocation.words.All<Network>("A/L");
    if (networks.size() > TESSEL_ADDRESSES_MAX) throw Refused(invocation.asked, "16 addresses at most");
    int family = networks.front().family;
    TNetIfaceIp list{};
    std::vector<std::string> texts;
    for (const Network& network : networks) {
        if (!HasFamily(invocation.options, network.family))
            throw Refused(invocation.asked, "-4 or -6 contradicts the addresses");
        if (std::count(networks.begin(), networks.end(), network) > 1)
            throw Refused(invocation.asked, NetworkText(network) + " is named twice");
        if (network.family != family) family = TESSEL_FAMILY_BOTH;
        list.atIp[list.dwNum++] = AddressOf(network);
        texts.push_back(NetworkText(network));
    }
    const auto send = [&] {
        const int error = tessel_addr_set(name.c_str(), family, &list);
        if (error != TESSEL_E_FAILED || !MissingInterface(name).empty()) return error;
        const Failure failure = CallFailed(invocation.asked, error);
        const Json now = DaemonAddresses(invocation.asked, name, family).at("addresses");
        const std::string left = Joined(now, "  ", [](const Json& address) { return AddressText(address); });
        const std::string has = left.empty() ? "no such address" : left;
        throw Failure{failure.exit, failure.error, Format("{}. {} has {} now", failure.message, name, has)};
    };
    const std::string done = Format("{}   set to {}", name, Joined(texts, "  "));
    return PerformOn(invocation, {.send = send, .done = done}, texts, PassingBeside(texts, family));
}

Outcome ShowArp(const Invocation& /*invocation*/) {
    Outcome outcome{.document = KernelNeighbours(TESSEL_FAMILY_INET)};
    if (outcome.document.empty()) outcome.notes = {"there are no ARP entries"};
    return outcome;
}

const Network& Ipv4Of(const Invocation& invocation, const char* key) {
    const auto& address = invocation.words.Get<Network>(key);
    if (address.family != TESSEL_FAMILY_INET) throw Refused(invocation.asked, "ARP is for IPv4 addresses");
    return address;
}

// The permanent entry of an address, on an interface when one is named; null: there is none.
Json EntryOf(const std::string& address, const std::string& name) {
    Json members{{"address", address}, {"state", "permanent"}};
    if (!name.empty()) members["interface"] = name;
    return FindIn(KernelNeighbours(TESSEL_FAMILY_INET), members);
}

Outcome AddArp(const Invocation& invocation) {
    const Network& address = Ipv4Of(invocation, "A");
    const std::string text = HostText(address);
    const auto& mac = invocation.words.Get<Mac>("M");
    const std::string name = invocation.words.Text("dev");
    Change change{.send = [&] { return tessel_arp_add(NameOrNull(name), text.c_str(), mac.data()); }};
    change.cause = [&] { return WhyUnreachable(address, name); };
    change.read = [&] { return EntryOf(text, name); };
    change.wrong = [&](const Json& now) {
        if (now.is_null()) return std::string("the kernel has no such entry");
        return now["mac"] == MacText(mac) ? "" : "it is at " + TextOf(now, "mac");
    };
    change.done = Format("{}   is at {}", text, MacText(mac));
    return Perform(invocation, change);
}

Outcome DelArp(const Invocation& invocation) {
    const std::string text = HostText(Ipv4Of(invocation, "A"));
    const std::string name = invocation.words.Text("dev");
    return Perform(invocation,
                   {.send = [&] { return tessel_arp_del(NameOrNull(name), text.c_str()); },
                    .cause = [&] { return EntryOf(text, name).is_null() ? "there is no such entry" : ""; },
                    .read = [&] { return EntryOf(text, name); },
                    .wrong = [](const Json& now) { return now.is_null() ? "" : "the entry is still there"; },
                    .done = text + "   deleted"});
}

Outcome Announce(const Invocation& invocation) {
    const bool isStop = invocation.words.Text("TARGET") == "stop";
    const Network target = isStop ? Network{} : Ipv4Of(invocation, "TARGET");
    const std::string text = HostText(target);
    u32 number = 0;
    memcpy(&number, target.bytes.data(), sizeof(number));
    Change change{.send = [&] { return isStop ? tessel_arp_announce_stop() : tessel_arp_announce_start(number); }};
    change.read = [&] { return Json{{"address", NullIfEmpty(text)}}; };
    change.done = Format("eth0 asks for {} every 3 to 4 minutes, or still for another (arp announce stop)", text);
    if (isStop) change.done = "nothing is announced any more";
    return Perform(invocation, change);
}

constexpr Command kAddrCommands[] = {
    FamilyRow("show", "[dev IF]", &ShowAddr, "addresses of one interface or of all", "addr show dev eth0 -4")
        .Sends(TESSEL_CMD_IPADDR_GET)
        .Columns("INTERFACE {interface}|ADDRESS {address}/{prefix_length}|SCOPE {scope}|MARKS {dynamic} {tentative}")
        .More("The daemon reports 16 addresses at most; a full list is marked. --kernel adds the others."),
    Row("add", "A/L dev IF", &ChangeOne<true>, "add an address, and read it back", "addr add 192.168.1.20/24 dev eth0")
        .Sends(TESSEL_CMD_IPADDR_ADD, TESSEL_CMD_IPADDR_GET),
    Row("del", "A/L dev IF", &ChangeOne<false>, "delete an address", "addr del 192.168.1.21/24 dev eth0")
        .Sends(TESSEL_CMD_IPADDR_DEL, TESSEL_CMD_IPADDR_GET),
    FamilyRow("set", "A/L... dev IF", &SetAddr, "replace a family's addresses", "addr set dev eth0 192.168.1.20/24")
        .Sends(TESSEL_CMD_IPADDR_SET, TESSEL_CMD_IPADDR_GET)
        .More("Replaces only the families of the addresses given. Link-local and learnt IPv6 addresses stay."),
    FamilyRow("flush", "dev IF", &Flush, "remove addresses (IPv6: not link-local ones)", "addr flush dev eth0 -6")
        .Sends(TESSEL_CMD_IPADDR_FLUSH, TESSEL_CMD_IPADDR_GET),
};

constexpr Command kArpCommands[] = {
    Row("show", "", &ShowArp, "the kernel's ARP entries", "arp show")
        .Columns("ADDRESS {address}|MAC {mac}|INTERFACE {interface}|STATE {state}"),
    Row("add", "A M [dev IF]", &AddArp, "make a permanent entry", "arp add 192.168.1.77 02:00:00:00:00:77 dev eth0")
        .Sends(TESSEL_CMD_ARP_ADD),
    Row("del", "A [dev IF]", &DelArp, "delete an entry", "arp del 192.168.1.77 dev eth0").Sends(TESSEL_CMD_ARP_DEL),
    Row("announce", "TARGET=stop|A", &Announce, "announce eth0 by asking for an address", "arp announce 192.168.1.1")
        .Sends(TESSEL_CMD_BROADCAST_ARP_START, TESSEL_CMD_BROADCAST_ARP_STOP)
        .More("Sends three ARP requests on eth0 every 180 to 240 s. Starting again while it runs changes nothing."),
};

}  // namespace

extern const Object kAddr = {.name = "addr", .summary = "addresses", .commands = kAddrCommands};
extern const Object kArp = {.name = "arp", .summary = "addresses and their MACs", .commands = kArpCommands};

}  // namespace tessel::ctl
