// Static ARP entries, read back from the kernel, and the announcer.
#include "client/ctl/device.h"
#include "client/ctl/kernel.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

Outcome ShowArp(const Invocation& /*invocation*/) {
    Outcome outcome;
    outcome.document = KernelNeighbours(TESSEL_FAMILY_INET);
    return outcome;
}

const Network& Ipv4Of(const Invocation& invocation, const char* key) {
    const auto& address = invocation.words.Get<Network>(key);
    if (address.family != TESSEL_FAMILY_INET) throw Refused(invocation.asked, "ARP is for IPv4 addresses");
    return address;
}

// The permanent entry of the command's address, on its interface when it names one; null: there is none.
Json EntryOf(const Words& words) {
    for (const Json& entry : KernelNeighbours(TESSEL_FAMILY_INET)) {
        const bool isAsked = entry["address"] == HostText(words.Get<Network>("A")) &&
                             (!words.Has("dev") || entry["interface"] == words.Text("dev"));
        if (isAsked && entry["state"] == "permanent") return entry;
    }
    return nullptr;
}

Outcome AddArp(const Invocation& invocation) {
    const Network& address = Ipv4Of(invocation, "A");
    const auto& mac = invocation.words.Get<Mac>("M");
    const std::string name = invocation.words.Text("dev");
    return Perform(invocation,
                   {.send = [&] { return tessel_arp_add(NameOrNull(name), HostText(address).c_str(), mac.data()); },
                    .cause = [&] { return WhyUnreachable(address, name); },
                    .read = [&] { return EntryOf(invocation.words); },
                    .wrong = [&](const Json& now) -> std::string {
                        if (now.is_null()) return "the kernel has no such entry";
                        return now["mac"] == MacText(mac) ? "" : "it is at " + TextOf(now, "mac");
                    },
                    .done = Format("{}   is at {}", HostText(address), MacText(mac))});
}

Outcome DelArp(const Invocation& invocation) {
    const Network& address = Ipv4Of(invocation, "A");
    const std::string name = invocation.words.Text("dev");
    return Perform(invocation,
                   {.send = [&] { return tessel_arp_del(NameOrNull(name), HostText(address).c_str()); },
                    .cause = [&] { return EntryOf(invocation.words).is_null() ? "there is no such entry" : ""; },
                    .read = [&] { return EntryOf(invocation.words); },
                    .wrong = [](const Json& now) { return now.is_null() ? "" : "the entry is still there"; },
                    .done = Format("{}   deleted", HostText(address))});
}

Outcome Announce(const Invocation& invocation) {
    if (invocation.words.Text("TARGET") == "stop") {
        return Perform(invocation, {.send = &tessel_arp_announce_stop,
                                    .read =
                                        [] {
                                            return Json{{"address", nullptr}};
                                        },
                                    .done = "nothing is announced any more"});
    }
    const Network& target = Ipv4Of(invocation, "TARGET");
    u32 number = 0;
    memcpy(&number, target.bytes.data(), sizeof(number));
    return Perform(invocation, {.send = [&] { return tessel_arp_announce_start(number); },
                                .read =
                                    [&] {
                                        return Json{{"address", HostText(target)}};
                                    },
                                .done = Format("eth0 asks for {} every 3 to 4 minutes, unless it has asked for another "
                                               "address before (arp announce stop)",
                                               HostText(target))});
}

constexpr Command kArpCommands[] = {
    Row("show", "", &ShowArp, "the kernel's ARP entries", "arp show")
        .Columns("ADDRESS {address}|MAC {mac}|INTERFACE {interface}|STATE {state}"),
    Row("add", "A M [dev IF]", &AddArp, "make a permanent entry", "arp add 192.168.1.77 02:00:00:00:00:77 dev eth0")
        .Sends(TESSEL_CMD_ARP_ADD),
    Row("del", "A [dev IF]", &DelArp, "delete an entry", "arp del 192.168.1.77 dev eth0").Sends(TESSEL_CMD_ARP_DEL),
    Row("announce", "TARGET=stop|A", &Announce, "make eth0 known by asking for an address, again and again",
        "arp announce 192.168.1.1")
        .Sends(TESSEL_CMD_BROADCAST_ARP_START, TESSEL_CMD_BROADCAST_ARP_STOP)
        .More("Bursts of three ARP requests on eth0, every 180 to 240 seconds. While it runs another start changes "
              "nothing."),
};

}  // namespace

extern const Object kArp = {.name = "arp", .summary = "addresses and their MACs", .commands = kArpCommands};

}  // namespace tessel::ctl
