// Typed values, and their text as people type and read it.
#pragma once

#include <compare>
#include <variant>

#include "client/ctl/text.h"

namespace tessel::ctl {

// An address with the length of its network; a host's length is the whole address.
struct Network {
    int family = 0;                 // TESSEL_FAMILY_INET or _INET6; 0: none
    std::array<u8, 16> bytes = {};  // IPv4: the first four
    u32 length = 0;

    auto operator<=>(const Network&) const = default;
    [[nodiscard]] u32 FullLength() const {
        return family == TESSEL_FAMILY_INET6 ? 128 : 32;
    }
    [[nodiscard]] bool IsHost() const {
        return length == FullLength();
    }
};

struct Range {
    Network first;
    Network last;
    bool operator==(const Range&) const = default;
};

using Mac = std::array<u8, 6>;

// First and last ports.
using PortList = std::vector<std::pair<u32, u32>>;

// "192.168.1.20/24"; "192.168.1.1"; "192.168.1.10-192.168.1.20"; "02:00:00:00:00:01"; "90", "0x5a"; "90", "10m", "1h".
// Nothing for anything else.
[[nodiscard]] std::optional<Network> ParseNetwork(std::string_view text);
[[nodiscard]] std::optional<Network> ParseHost(std::string_view text);
[[nodiscard]] std::optional<Range> ParseRange(std::string_view text);
[[nodiscard]] std::optional<Mac> ParseMac(std::string_view text);
[[nodiscard]] std::optional<u32> ParseNumber(std::string_view text);
[[nodiscard]] std::optional<u32> ParseSeconds(std::string_view text);

// "80,443", "1000:2000", also with an end left out: ":1000".
[[nodiscard]] std::optional<PortList> ParsePorts(std::string_view text);

// "192.168.1.20/24"; without the length; empty for no family, and HostText for a zero address, too.
[[nodiscard]] std::string NetworkText(const Network& network);
[[nodiscard]] std::string HostText(const Network& network);
[[nodiscard]] std::string MacText(const Mac& mac);
// "inet", "inet6", "both".
[[nodiscard]] std::string FamilyName(int family);

// The network that an address lies in: the bits behind the length are 0. And its last address.
[[nodiscard]] Network Masked(Network network);
[[nodiscard]] Network LastOf(Network network);
// True when every address of `inner` is one of `outer`.
[[nodiscard]] bool Covers(const Network& outer, Network inner);

// Between values and records of include/tessel/. An IPv4 address whose family a record leaves out is one all the same.
[[nodiscard]] TNetGateway GatewayOf(const Network& network);
[[nodiscard]] TNetIpAddr AddressOf(const Network& network);
[[nodiscard]] Network NetworkOf(const TNetGateway& record, i32 length);
[[nodiscard]] Network HostOf(const TNetGateway& record);
[[nodiscard]] Network NetworkOf(const TNetIpAddr& record);

// What a word of a command stands for.
using Value = std::variant<std::string, u32, Network, Range, Mac>;

// A kind of word by its name in patterns (words.h): "IF", "A/L", "N:1-100" ... Any name that is not known is a word
// that only must not be empty.
struct ParsedValue {
    std::optional<Value> value;
    std::string problem;  // without a value: "\"192.168.1.300/24\" is no address with its length, such as ..."
};
[[nodiscard]] ParsedValue ParseValue(std::string_view kind, const std::string& word);

// Values worth offering in completion, as far as they can be listed.
[[nodiscard]] std::vector<std::string> KnownValues(std::string_view kind);

// A row on each kind that occurs in `pattern`, for help: "A/L", "address with its length, such as 192.168.1.20/24".
[[nodiscard]] std::vector<std::vector<std::string>> KindsIn(std::string_view pattern);

}  // namespace tessel::ctl
