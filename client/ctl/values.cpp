// Typed values: how each kind of word is read, what is said of a wrong one, and their text.
#include <arpa/inet.h>

#include <charconv>

#include "client/ctl/command.h"
#include "client/ctl/fields.h"
#include "client/ctl/kernel.h"
#include "client/ctl/words.h"

namespace tessel::ctl {

namespace {

template <auto kParse>
std::optional<Value> Parsed(const std::string& word) {
    return kParse(word);
}

std::optional<Value> OneWord(const std::string& word, std::size_t longest) {
    const bool isWord = !word.empty() && word.size() <= longest &&
                        std::none_of(word.begin(), word.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; });
    return isWord ? std::optional<Value>(word) : std::nullopt;
}

std::optional<Value> Name(const std::string& word) {
    return OneWord(word, TESSEL_NAME_SIZE - 1);
}

// iptables(8) takes 28 characters.
std::optional<Value> Chain(const std::string& word) {
    return word.starts_with('-') ? std::nullopt : OneWord(word, 28);
}

std::optional<Value> Anything(const std::string& word) {
    return word.empty() ? std::nullopt : std::optional<Value>(word);
}

// A gateway, a server, a peer: the zero address is not one.
std::optional<Value> Host(const std::string& word) {
    const auto host = ParseHost(word);
    return host && !HostText(*host).empty() ? std::optional<Value>(*host) : std::nullopt;
}

// The kernel's xt_multiport takes 15 numbers, two for a range. They are written anew: the tools take "010" for 8, and
// some of them no range without an end.
std::optional<Value> Ports(const std::string& word) {
    const std::string text = Joined(ParsePorts(word).value_or(PortList()), ",", [](const auto& range) {
        return range.first == range.second ? Format("{}", range.first) : Format("{}:{}", range.first, range.second);
    });
    const bool fits = !text.empty() && std::ranges::count_if(text, [](char c) { return c == ',' || c == ':'; }) < 15;
    return fits ? std::optional<Value>(text) : std::nullopt;
}

std::optional<Value> Code(const std::string& word) {
    const Message* named = FindMessage(word);
    return named != nullptr ? std::optional<Value>(named->code) : ParseNumber(word);
}

template <typename List, typename Element>
std::vector<std::string> NamesOf(const List& list, std::string_view Element::*name) {
    std::vector<std::string> names;
    for (const auto& element : list)
        names.emplace_back(std::invoke(name, element));
    return names;
}

struct WordKind {
    std::string_view name;
    std::string_view text;  // "no ... " and the example are said of a wrong word
    std::string_view example;
    std::optional<Value> (*parse)(const std::string& word);
    std::vector<std::string> (*known)() = [] { return std::vector<std::string>(); };
};

constexpr WordKind kWordKinds[] = {
    {"IF", "name of an interface (1 to 15 characters)", "eth0", &Name, &InterfaceNames},
    {"NAME", "name (1 to 15 characters)", "dropbear", &Name},
    {"CHAIN", "name of a chain (1 to 28 characters)", "whitelist", &Chain},
    {"N", "number", "100", &Parsed<ParseNumber>},
    {"S", "time in seconds", "90, 10m or 1h", &Parsed<ParseSeconds>},
    {"CODE", "code or name of a request", "addr_get", &Code, [] { return NamesOf(Messages(), &Message::name); }},
    {"OBJECT", "object", "addr", &Anything, [] { return NamesOf(Objects(), &Object::name); }},
    {"A/L", "address with its length", "192.168.1.20/24", &Parsed<ParseNetwork>},
    {"A", "address", "192.168.1.1 or fe80::1", &Host},
    {"A-A", "range of addresses", "192.168.1.10-192.168.1.20", &Parsed<ParseRange>},
    {"M", "hardware address", "02:00:00:00:00:01", &Parsed<ParseMac>},
    {"PORTS", "list of at most 15 ports", "80,443 or 1000:2000", &Ports},
};

constexpr WordKind kAnyWord{"", "word", "", &Anything};

const WordKind& FindWordKind(std::string_view name) {
    const auto* const found = std::ranges::find(kWordKinds, name, &WordKind::name);
    return found == std::end(kWordKinds) ? kAnyWord : *found;
}

}  // namespace

std::optional<Network> ParseHost(std::string_view text) {
    const bool isIpv4 = text.find(':') == std::string_view::npos;
    Network network{.family = isIpv4 ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6};
    if (inet_pton(isIpv4 ? AF_INET : AF_INET6, std::string(text).c_str(), network.bytes.data()) != 1)
        return std::nullopt;
    network.length = network.FullLength();
    return network;
}

std::optional<Network> ParseNetwork(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    auto network = ParseHost(text.substr(0, slash));
    const auto length = ParseNumber(text.substr(slash + 1));
    if (!network || !length || *length > network->FullLength()) return std::nullopt;
    network->length = *length;
    return network;
}

std::optional<Range> ParseRange(std::string_view text) {
    const std::size_t dash = text.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = ParseHost(text.substr(0, dash));
    const auto last = ParseHost(text.substr(dash + 1));
    if (!first || !last || first->family != last->family || *first > *last) return std::nullopt;
    if (HostText(*last).empty()) return std::nullopt;  // in a request, no last address stands for a whole network
    return Range{*first, *last};
}

std::optional<Mac> ParseMac(std::string_view text) {
    const std::string word(text);
    Mac mac{};
    int used = 0;
    const int groups = sscanf(word.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &mac[0], &mac[1], &mac[2], &mac[3],
                              &mac[4], &mac[5], &used);
    if (groups != static_cast<int>(mac.size()) || static_cast<std::size_t>(used) != word.size()) return std::nullopt;
    return mac;
}

std::optional<u32> ParseNumber(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    u32 number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<u32> ParseSeconds(std::string_view text) {
    u32 unit = 1;
    if (text.ends_with('m')) unit = 60;
    if (text.ends_with('h')) unit = 60 * 60;
    if (unit != 1 || text.ends_with('s')) text.remove_suffix(1);
    const auto number = ParseNumber(text);
    if (!number || *number > ~u32{0} / unit) return std::nullopt;
    return *number * unit;
}

std::optional<PortList> ParsePorts(std::string_view text) {
    constexpr u32 kPortMax = 65535;
    PortList ports;
    for (const std::string_view piece : Split(text, ',')) {
        const std::size_t colon = piece.find(':');
        const bool isRange = colon != std::string_view::npos;
        const auto first = isRange && colon == 0 ? 0 : ParseNumber(piece.substr(0, colon));
        const auto last = isRange && colon + 1 == piece.size() ? kPortMax : ParseNumber(piece.substr(colon + 1));
        if (!first || !last || *first > *last || *last > kPortMax) return std::nullopt;
        ports.emplace_back(*first, *last);
    }
    return ports.empty() ? std::nullopt : std::optional(ports);
}

std::string HostText(const Network& network) {
    if (network.family == 0 || network.bytes == decltype(network.bytes){}) return "";
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(network.family == TESSEL_FAMILY_INET ? AF_INET : AF_INET6, network.bytes.data(), text, sizeof(text));
    return text;
}

std::string NetworkText(const Network& network) {
    if (network.family == 0) return "";
    const std::string host = HostText(network);
    const char* const zero = network.family == TESSEL_FAMILY_INET ? "0.0.0.0" : "::";
    return Format("{}/{}", host.empty() ? zero : host, network.length);
}

std::string MacText(const Mac& mac) {
    return Format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

std::string FamilyName(int family) {
    if (family == TESSEL_FAMILY_BOTH) return "both";
    return family == TESSEL_FAMILY_INET6 ? "inet6" : "inet";
}

Network Masked(Network network) {
    for (u32 bit = network.length; bit < network.bytes.size() * 8; ++bit)
        network.bytes[bit / 8] &= static_cast<u8>(~(0x80U >> bit % 8));
    return network;
}

Network LastOf(Network network) {
    for (u32 bit = network.length; bit < network.FullLength(); ++bit)
        network.bytes[bit / 8] |= static_cast<u8>(0x80U >> bit % 8);
    return network;
}

bool Covers(const Network& outer, Network inner) {
    if (outer.family != inner.family || outer.length > inner.length) return false;
    inner.length = outer.length;
    return Masked(inner) == Masked(outer);
}

TNetGateway GatewayOf(const Network& network) {
    TNetGateway record{};
    record.wSinFamily = static_cast<u16>(network.family);
    memcpy(record.abyAddr, network.bytes.data(), network.bytes.size());
    return record;
}

TNetIpAddr AddressOf(const Network& network) {
    TNetIpAddr record{};
    record.wSinFamily = static_cast<u16>(network.family);
    record.dwPrefixLen = network.length;
    memcpy(record.abyAddr, network.bytes.data(), network.bytes.size());
    return record;
}

Network HostOf(const TNetGateway& record) {
    Network network{.family = record.wSinFamily == TESSEL_FAMILY_INET6 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET};
    memcpy(network.bytes.data(), record.abyAddr, network.bytes.size());
    network.length = network.FullLength();
    return network;
}

Network NetworkOf(const TNetGateway& record, i32 length) {
    Network network = HostOf(record);
    network.length = static_cast<u32>(length);
    return network;
}

Network NetworkOf(const TNetIpAddr& record) {
    Network network{.family = record.wSinFamily, .length = record.dwPrefixLen};
    memcpy(network.bytes.data(), record.abyAddr, network.bytes.size());
    return network;
}

ParsedValue ParseValue(std::string_view kind, const std::string& word) {
    const auto parts = Split(kind, ':');  // "N", "N:68-65536", "N:1-"
    const auto bounds = Split(parts.size() > 1 ? parts[1] : "0-", '-');
    const u32 least = ParseNumber(bounds[0]).value_or(0);
    const u32 most = ParseNumber(bounds[1]).value_or(~u32{0});
    const WordKind& found = FindWordKind(parts[0]);
    ParsedValue parsed{.value = found.parse(word), .problem = {}};
    const u32* number = parsed.value ? std::get_if<u32>(&*parsed.value) : nullptr;
    if (number != nullptr && (*number < least || *number > most)) parsed.value.reset();
    if (parsed.value) return parsed;
    parsed.problem = parts.size() > 1 ? Format("\"{}\" is not a {} from {} to {}", word, found.text, least, most)
                                      : Format("\"{}\" is not a valid {}, such as {}", word, found.text, found.example);
    if (word.empty()) parsed.problem = "an empty word";
    return parsed;
}

std::vector<std::string> KnownValues(std::string_view kind) {
    return FindWordKind(kind.substr(0, kind.find(':'))).known();
}

std::vector<std::vector<std::string>> KindsIn(std::string_view pattern) {
    std::string names(pattern);  // each between blanks, without the names of choices and the bounds of numbers
    std::ranges::replace_if(
        names, [](char c) { return std::strchr("[]|.:", c) != nullptr; }, ' ');
    names = Format(" {} ", UsageWords(names));
    std::vector<std::vector<std::string>> rows;
    for (const WordKind& kind : kWordKinds) {
        if (names.find(Format(" {} ", kind.name)) != std::string::npos)
            rows.push_back({std::string(kind.name), Format("{}, such as {}", kind.text, kind.example)});
    }
    return rows;
}

}  // namespace tessel::ctl
