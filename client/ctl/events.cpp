#include "client/ctl/fields.h"
#include "client/ctl/kernel.h"
#include "client/ctl/output.h"
#include "client/ctl/records.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

using namespace records;

namespace {

// Every kind of event: the record that it carries, and how it reads (output.h, FillTemplate; "{:gateway}" stands for
// "gateway 10.0.0.1").
struct EventKind {
    int kind;  // enum tessel_event_kind
    Record record;
    std::string_view topic;
    std::string_view text;
};

constexpr EventKind kEventKinds[] = {
    {TESSEL_EVENT_PING_REPLY, kPingResult, "ping", "seq {seq}  ttl {ttl}  {rtt}"},
    {TESSEL_EVENT_PING_NO_REPLY, kPingResult, "ping", "seq {seq}  no reply"},
    {TESSEL_EVENT_PING_NO_OUTPUT, kPingResult, "ping", "seq {seq}  ping printed nothing"},
    {TESSEL_EVENT_PING_UNREACHABLE, kPingResult, "ping", "seq {seq}  the network is unreachable"},
    {TESSEL_EVENT_TRACE_ERROR, kTraceResult, "trace", "hop {hop}  could not be sent, or waiting for the answer failed"},
    {TESSEL_EVENT_TRACE_NO_REPLY, kTraceResult, "trace", "hop {hop}  no answer"},
    {TESSEL_EVENT_TRACE_HOP, kTraceResult, "trace", "hop {hop}  {address}  {rtt}"},
    {TESSEL_EVENT_TRACE_REACHED, kTraceResult, "trace", "hop {hop}  {address}  {rtt}  reached"},
    {TESSEL_EVENT_TRACE_UNREACHABLE, kTraceResult, "trace", "hop {hop}  not sent: there is no route"},
    {TESSEL_EVENT_TRACE_REFUSED, kTraceResult, "trace", "hop {hop}  {address}  {rtt}  the target cannot be reached"},
    {TESSEL_EVENT_DHCP_LEASE, kLease, "dhcp", "lease {address}/{prefix_length} {:gateway} {:dns} for {lease}"},
    {TESSEL_EVENT_DHCP_FAILED, kLease, "dhcp", "no {family} lease, or it was refused"},
    {TESSEL_EVENT_DHCP_DECONFIGURED, kLease, "dhcp", "the {family} lease has gone"},
    {TESSEL_EVENT_NTP_SYNCED, kNtpcSynced, "ntp", "{family}: the clock was off by {deviation_s} s"},
    {TESSEL_EVENT_NTP_FAILED, kNothing, "ntp", "{family}: no useful answer, or the clock could not be set"},
    {TESSEL_EVENT_IP_CONFLICT, kConflictReport, "conflict",
     "{address} is used by another host (reported again every 5 s while it lasts)"},
    {TESSEL_EVENT_MAC_CONFLICT, kConflictReport, "conflict",
     "its hardware address {interface_mac} is used by another host"},
    {TESSEL_EVENT_RA_CHANGED, kRouterReport, "ra", "{:addresses} {:gateway}"},
    {TESSEL_EVENT_TRAFFIC, kBandwidthReport, "traffic", "{rates}"},
};

const EventKind* FindEventKind(int kind) {
    const auto* const found = std::ranges::find(kEventKinds, kind, &EventKind::kind);
    return found == std::end(kEventKinds) ? nullptr : found;
}

// What a change in the kernel is shown as, by its "event". A link's message says how it is now.
constexpr std::pair<std::string_view, std::string_view> kKernelTexts[] = {
    {"link", "{state} {:mtu} {removed}"},
    {"addr", "{address}/{prefix_length} {action}"},
    {"route", "{destination} {:via} {with} {:table} {action}"},
    {"rule", "rule {pref} {:from} {:fwmark} {:table} {action}"},
    {"neighbour", "{address} {:at} {action}"}};

// Records leave the family out, or have none: the socket knows it.
std::string FamilyOf(std::string_view source) {
    const bool isInet6 = source == TESSEL_SOCKET_NTPV6 || source == TESSEL_SOCKET_IPV6_CONFLICT ||
                         source.starts_with(TESSEL_SOCKET_DHCPCV6);
    return FamilyName(isInet6 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET);
}

Json FieldsOf(const EventKind& kind, const tessel_event& event, std::string_view source) {
    Json fields = kind.topic == "ntp" ? Json{{"family", nullptr}, {"deviation_s", nullptr}} : Json::object();
    fields.update(Decode(kind.record, {event.payload, event.size}));
    if (fields.contains("family")) fields["family"] = FamilyOf(source);
    // Numbers that stand for nothing.
    const auto clear = [](bool isEmpty, Json& record, std::initializer_list<const char*> keys) {
        for (const char* key : keys)
            if (isEmpty) record[key] = nullptr;
    };
    if (kind.topic == "ping") clear(kind.kind != TESSEL_EVENT_PING_REPLY, fields, {"ttl", "rtt_us"});
    if (kind.topic == "trace") clear(fields["address"].is_null(), fields, {"rtt_us"});
    if (kind.topic == "dhcp") clear(fields["address"].is_null(), fields, {"prefix_length", "lease_s"});
    if (kind.topic != "traffic") return fields;
    for (Json& one : fields["interfaces"]) {
        // A counter that restarted within the period would make a negative rate.
        if (NumberOf(one, "send_bps") < 0 || NumberOf(one, "receive_bps") < 0) one["valid"] = false;
        clear(one["valid"] == false, one, {"send_bps", "receive_bps"});
    }
    return fields;
}

std::string RatesText(const Json& interfaces) {
    std::vector<std::string> parts;
    for (const Json& one : interfaces) {
        if (one["valid"] != true) continue;
        parts.push_back(Format("{}  sends {:>12}  receives {:>12}", TextOf(one, "interface"),
                               HumanRate(NumberOf(one, "send_bps")), HumanRate(NumberOf(one, "receive_bps"))));
    }
    return parts.empty() ? "neither eth0 nor eth1 nor eth2 was there" : Joined(parts, "\n");
}

std::string FilledText(std::string_view pattern, const Json& fields) {
    Json shown = fields;
    for (const auto& [key, value] : fields.items()) {
        shown[":" + key] = FillTemplate(Format("{0} {{{0}}}", key), fields);
        if (value.is_null()) continue;
        if (key == "rtt_us") shown["rtt"] = MillisecondsText(value.get<long long>());
        if (key == "lease_s") shown["lease"] = HumanDuration(value.get<long long>());
        if (key == "interfaces") shown["rates"] = RatesText(value);
    }
    const std::string text = FillTemplate(pattern, shown);
    return text.empty() ? "nothing is learnt any more" : text;
}

ShownEvent Shown(WallTime time, std::string_view event, std::string_view source, std::string_view topic,
                 const Json& fields, std::string text) {
    ShownEvent shown;
    shown.document = {{"time", JsonTime(time)}, {"event", event}, {"source", source}};
    shown.document.update(fields);
    shown.document["source"] = source;  // a route has one, too
    const std::string owner =
        fields.contains("id") ? Format("id {}", NumberOf(fields, "id")) : TextOf(fields, "interface");
    for (const std::string_view line : Split(text, '\n')) {
        shown.line += Format("{}{}  {:<8}  {}{}{}", shown.line.empty() ? "" : "\n", ClockText(time), topic, owner,
                             owner.empty() ? "" : "  ", line);
    }
    shown.text = std::move(text);
    return shown;
}

}  // namespace

const Record* FindEventRecord(int kind) {
    const EventKind* const found = FindEventKind(kind);
    return found == nullptr ? nullptr : &found->record;
}

std::optional<ShownEvent> ShowEvent(const tessel_event& event, std::string_view source, WallTime time) {
    const EventKind* const kind = FindEventKind(event.kind);
    if (kind == nullptr || event.size != kind->record.bytes) return std::nullopt;
    const Json fields = FieldsOf(*kind, event, source);
    ShownEvent shown = Shown(time, event.name, source, kind->topic, fields, FilledText(kind->text, fields));
    shown.kind = event.kind;
    return shown;
}

ShownEvent ShowKernelEvent(const Json& change, WallTime time) {
    const std::string event = TextOf(change, "event");
    Json fields = change;
    fields["via"] = TextOf(change, "gateway");
    fields["at"] = TextOf(change, "mac");
    if (event == "route" && NumberOf(change, "table") == kMainTable) fields["table"] = nullptr;
    const long long metric = NumberOf(change, "metric");
    fields["with"] = metric == 0 ? "without metric" : Format("metric {}", metric);
    if (TextOf(change, "action") == "removed") fields["removed"] = "removed";
    std::string text;
    for (const auto& [name, pattern] : kKernelTexts)
        if (name == event) text = FilledText(pattern, fields);
    return Shown(time, event, "kernel", "kernel", change, std::move(text));
}

std::string MillisecondsText(long long microseconds, std::string_view unit) {
    return Format("{:.{}f}{}", static_cast<double>(microseconds) / 1000, microseconds < 10000 ? 2 : 1, unit);
}

}  // namespace tessel::ctl
