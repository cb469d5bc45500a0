// Interfaces: MTU and hardware address.
#include "client/ctl/device.h"
#include "client/ctl/guard.h"
#include "client/ctl/perform.h"
#include "core/text.h"

namespace tessel::ctl {

namespace {

constexpr u8 kUnreadableFirstByte = 0x22;

u32 MtuOf(const Invocation& invocation, const std::string& name) {
    u32 mtu = 0;
    const int error = tessel_mtu_get(name.c_str(), &mtu);
    if (error != TESSEL_OK) throw CallFailed(invocation.asked, error, MissingInterface(name));
    return mtu;
}

Json LinkDocument(const Invocation& invocation, const std::string& name, Outcome& outcome) {
    const Json link = KernelLink(name);
    ipaddr_show_info info{};
    const int error = tessel_addr_show(name.c_str(), &info);
    // It fails as a whole where there is no Ethernet address.
    const bool isKernels = error == TESSEL_E_FAILED && !link.is_null();
    if (isKernels) outcome.notes.push_back(name + ": the daemon reports no hardware address, this is the kernel's");
    if (error != TESSEL_OK && !isKernels) throw CallFailed(invocation.asked, error, MissingInterface(name));
    const std::string mac = isKernels ? TextOf(link, "mac") : FieldText(info.mac).Get();
    Json document{{"interface", name},
                  {"state", link.is_null() ? Json() : link.at("state")},
                  {"mtu", isKernels ? MtuOf(invocation, name) : static_cast<u32>(info.mtu)},
                  {"mac", NullIfEmpty(mac)}};
    document.update(DaemonAddresses(invocation.asked, name, TESSEL_FAMILY_BOTH));
    return document;
}

Outcome ShowLink(const Invocation& invocation) {
    const std::string named = invocation.words.Text("IF");
    Outcome outcome;
    outcome.document = Json::array();
    ForEachInterface(named, outcome, [&](const std::string& name) {
        outcome.document.push_back(LinkDocument(invocation, name, outcome));
    });
    if (named.empty()) outcome.notes.clear();
    return outcome;
}

Json MtuDocument(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    return {{"interface", name}, {"mtu", MtuOf(invocation, name)}};
}

Outcome ShowMtu(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = MtuDocument(invocation);
    return outcome;
}

Outcome SetMtu(const Invocation& invocation) {
    constexpr u32 kInet6Least = 1280;  // RFC 8200
    const std::string name = invocation.words.Text("IF");
    const auto mtu = invocation.words.Get<u32>("mtu");
    Change change{.send = [&] { return tessel_mtu_set(name.c_str(), mtu); }};
    change.done = Format("{}   mtu {}", name, mtu);
    change.guard = [&] {
        const auto session = GuardedSession(invocation.options);
        const bool isInet6 = session && session->peer.family == TESSEL_FAMILY_INET6;
        return isInet6 && mtu < kInet6Least ? CutsSessionOn(name) : "";
    };
    change.cause = [&] {
        const std::string missing = MissingInterface(name);
        return missing.empty() ? name + " does not take this size" : missing;
    };
    change.read = [&] { return MtuDocument(invocation); };
    change.wrong = [&](const Json& now) {
        const auto got = NumberOf(now, "mtu");
        return got == mtu ? "" : Format("the MTU is {}", got);
    };
    return Perform(invocation, change);
}

// The kernel knows one that the daemon cannot read; null: nobody does.
Json ReportedMac(const Invocation& invocation, bool asksKernel) {
    const std::string name = invocation.words.Text("IF");
    Mac mac{};
    const int error = tessel_mac_get(name.c_str(), mac.data());
    if (error == TESSEL_OK) return {{"interface", name}, {"mac", MacText(mac)}};
    const Json link = KernelLink(name);
    const std::string known = link.is_null() ? "" : TextOf(link, "mac");
    if (error == TESSEL_E_FAILED && asksKernel && known.starts_with("22:"))
        return {{"interface", name}, {"mac", known}};
    std::string cause = MissingInterface(name);
    if (known.starts_with("22:")) cause = "the daemon reads no address whose first byte is 22; it is " + known;
    if (known.empty() && cause.empty()) cause = name + " has no Ethernet address";
    throw CallFailed(invocation.asked, error, cause);
}

Outcome ShowMac(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = ReportedMac(invocation, false);
    return outcome;
}

// Why no interface can have it (the kernel's is_valid_ether_addr()).
std::string WhyNoHardwareAddress(const Mac& mac) {
    constexpr u8 kGroup = 1;
    const auto isAll = [&](u8 value) {
        return std::all_of(mac.begin(), mac.end(), [&](u8 byte) { return byte == value; });
    };
    if (isAll(0xff)) return "is the broadcast address";
    if ((mac[0] & kGroup) != 0) return "is a multicast address (its first byte is odd)";
    return isAll(0) ? "is no address" : "";
}

Outcome SetMac(const Invocation& invocation) {
    const std::string name = invocation.words.Text("IF");
    const auto& mac = invocation.words.Get<Mac>("mac");
    const std::string why = WhyNoHardwareAddress(mac);
    if (!why.empty()) throw Refused(invocation.asked, Format("{} {}: no interface can have it", MacText(mac), why));
    Change change{.send = [&] { return tessel_mac_set(name.c_str(), mac.data()); }};
    change.done = Format("{}   mac {}", name, MacText(mac));
    change.guard = [&] { return CutsSessionOn(name); };
    change.cause = [&] { return MissingInterface(name); };
    change.read = [&] { return ReportedMac(invocation, mac[0] == kUnreadableFirstByte); };
    change.wrong = [&](const Json& now) {
        const std::string got = TextOf(now, "mac");
        return got == MacText(mac) ? "" : "the address is " + got;
    };
    return Perform(invocation, change);
}

constexpr Command kLinkCommands[] = {
    Row("show", "[IF]", &ShowLink, "state, MTU and hardware address", "link show eth0")
        .Sends(TESSEL_CMD_IPADDR_SHOW, TESSEL_CMD_MTU_GET, TESSEL_CMD_IPADDR_GET)
        .Columns("INTERFACE {interface}|STATE {state}|MTU {mtu}|MAC {mac}")
        .More("Of interfaces without an Ethernet address (lo, ppp0) the daemon reports the MTU only; the rest comes "
              "from the kernel. There is no \"link set eth0 up\" or \"down\": the daemon switches no interface."),
    Row("mtu", "IF", &ShowMtu, "the largest packet in bytes", "link mtu eth0")
        .Sends(TESSEL_CMD_MTU_GET)
        .Columns(" {mtu}"),
    Row("mac", "IF", &ShowMac, "the hardware address", "link mac eth0")
        .Sends(TESSEL_CMD_MACADDR_GET)
        .Columns(" {mac}")
        .More("The daemon cannot read one whose first byte is 22."),
    Row("set", "IF mac M", &SetMac, "set the hardware address, and read it back", "link set eth0 mac 02:00:00:00:00:01")
        .Sends(TESSEL_CMD_MACADDR_SET, TESSEL_CMD_MACADDR_GET),
    Row("set", "IF mtu N:68-65536", &SetMtu, "set the largest packet, and read it back", "link set eth0 mtu 1400")
        .Sends(TESSEL_CMD_MTU_SET, TESSEL_CMD_MTU_GET),
};

}  // namespace

extern const Object kLink = {
    .name = "link",
    .summary = "interfaces: state, MTU, hardware address (the daemon switches none up or down)",
    .commands = kLinkCommands};

}  // namespace tessel::ctl
