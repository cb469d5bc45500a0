// Recorded requests get the recorded replies, byte for byte, from the daemon of every processor and every build.

#include <set>
#include <sstream>

#include "core/startup/command_table.h"
#include "tests/support/daemon.h"

namespace tessel::test {
namespace {

// As in wire.txt, six equal bytes and more with their number: "65746830 00*12 02".
std::string TextOf(std::string_view bytes) {
    std::string text;
    for (std::size_t at = 0, end = 0; at < bytes.size(); at = end) {
        end = std::min(bytes.find_first_not_of(bytes[at], at), bytes.size());
        char pair[3];
        snprintf(pair, sizeof(pair), "%02x", static_cast<unsigned char>(bytes[at]));
        if (end - at >= 6) {
            if (!text.empty() && text.back() != ' ') text += ' ';
            text += pair + ('*' + std::to_string(end - at)) + ' ';
        } else {
            for (std::size_t i = at; i < end; ++i)
                text += pair;
        }
    }
    if (text.ends_with(' ')) text.pop_back();
    return text;
}

std::string BytesOf(std::istream& text) {
    std::string bytes;
    for (std::string word; text >> word;) {
        const std::size_t star = word.find('*');
        const std::size_t count = star != std::string::npos ? std::stoul(word.substr(star + 1)) : 1;
        for (std::size_t at = 0; at < std::min(star, word.size()); at += 2)
            bytes.append(count, static_cast<char>(std::stoul(word.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

// The lengths that a payload is sent with: its own, and those behind each "at" of its line.
std::vector<std::size_t> LengthsOf(std::size_t own, std::istream& answers) {
    std::vector<std::size_t> lengths = {own};
    bool isLength = false;
    for (std::string word; answers >> word;) {
        if (isLength) lengths.push_back(std::stoul(word));
        isLength = word == "at" || (isLength && !word.ends_with(','));
    }
    return lengths;
}

// A line is a command's code, which its name follows once, a payload, "=", and the payload of the answer, or "nothing"
// when the daemon closes without one. Behind "at" stand further lengths: the payload is cut, or filled with a5. Those
// with another answer follow behind a comma. To record anew after a wanted change: TESSEL_RECORD_WIRE=1 and this test
// alone.
TEST(Wire, RecordedRequestsGetTheRecordedReplies) {
    StandInTools tools({"ip", "ifconfig", "killall", "arp", "iptables", "ip6tables", "iptables-save", "ip6tables-save",
                        "iptables-restore", "ip6tables-restore", "udhcpd", "kill", "ifenslave", "lighttpd", "ping"});
    tools.Answer("ip -4 addr show dev eth0", "    inet 10.1.2.3/8 brd 10.255.255.255 scope global eth0\n");
    tools.Answer("ip -6 addr show dev eth0",
                 "    inet6 2001:db8::65/64 scope global dynamic\n    inet6 fe80::1/64 scope link tentative\n");
    tools.Answer("ip addr show dev eth0",
                 "2: eth0: <UP> mtu 1400 qdisc\n    link/ether 00:11:22:33:44:55 brd\n    inet6 fe80::1/64 scope "
                 "link\n    inet 10.1.2.3/8 scope global eth0\n");
    tools.Answer("ip -4 route show dev eth0 default", "default via 192.168.1.1 metric 10 \n");
    tools.Answer("ip -6 route show dev eth0 default", "default via fe80::1 proto ra metric 1024 expires 1797sec\n");
    tools.Answer("ip -4 route show", "10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5\n");
    tools.Answer("ip -6 route show", "2001:db8::5 via fe80::1 dev eth0 metric 1024 pref medium\n");
    tools.Answer("ip link show dev eth0", "2: eth0: <UP>\n    link/ether 02:0a:00:Ff:10:5 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev short", "    link/ether 02:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    const Daemon daemon;
    const std::string recorded = ReadFile(TESSEL_WIRE_FILE);
    std::istringstream lines(recorded);
    std::string replayed;
    std::set<u32> codes;
    for (std::string line; std::getline(lines, line); replayed += '\n') {
        const std::size_t end = std::min(line.find(" ="), line.size());
        replayed += line.substr(0, end);
        if (line.empty() || line[0] == '#') continue;
        std::istringstream request(line.substr(0, end));
        std::istringstream answers(line.substr(end));
        std::string command;
        request >> command;
        const u32 code = *codes.insert(static_cast<u32>(std::stoul(command, nullptr, 16))).first;
        std::string payload = BytesOf(request);
        using Answer = std::pair<std::string, std::string>;
        std::vector<Answer> lengthsOf;  // each answer's
        for (const std::size_t length : LengthsOf(payload.size(), answers)) {
            std::string sent = payload;
            sent.resize(length, '\xa5');
            const auto reply = Request(code, sent);
            const std::string answer = reply ? TextOf(*reply) : "nothing";
            const std::string at = lengthsOf.empty() ? "" : ' ' + std::to_string(length);
            const auto known = std::ranges::find(lengthsOf, answer, &Answer::first);
            (known != lengthsOf.end() ? *known : lengthsOf.emplace_back(answer, "")).second += at;
        }
        for (const auto& [answer, lengths] : lengthsOf) {
            replayed += (answer == lengthsOf[0].first ? " = " : ", ") + answer;
            if (!lengths.empty()) replayed += " at" + lengths;
        }
    }
    for (const CommandRow& row : ServedCommands())
        EXPECT_EQ(codes.count(row.type), 1U) << "no request of command 0x" << std::hex << row.type;
    if (getenv("TESSEL_RECORD_WIRE") != nullptr) WriteFile(TESSEL_WIRE_FILE, replayed);
    EXPECT_EQ(replayed, recorded);
}

}  // namespace
}  // namespace tessel::test
