// The requests and replies behind the commands, and what their bytes mean: one row for each field of a record, for
// everything that shows messages.
#pragma once

#include "client/ctl/output.h"

namespace tessel::ctl {

enum class Kind : u8 {
    kUnsigned,
    kSigned,
    kText,           // padded with NUL
    kTail,           // text after the record, up to the payload's end or a NUL
    kFlag,           // true for the one number `other`
    kAddress,        // TNetGateway
    kNetwork,        // TNetGateway whose prefix length, i32, is at `other`
    kFilterNetwork,  // TNetIpFilter, when it is a network
    kFilterRange,    // TNetIpFilter, when it is a range
    kPrefixed,       // TNetIpAddr
    kIpv4,           // u32 in network order
    kMac,            // u8[6]
    kList,           // elements of one kind or records; u32 at `other`: how many
    kPosition        // nothing in the bytes: the place within a list, as a word
};

// A number's word; empty: the number stands for nothing.
struct Word {
    u32 number;
    std::string_view text;
};

struct Field {
    std::string_view name;  // for people and in documents
    Kind kind;
    std::size_t offset;
    std::size_t bytes;  // of a list: of one element
    std::size_t other = 0;
    std::span<const Word> words = {};  // a number that is not among them is shown as it is
    std::size_t elements = 0;          // of a list: the most that it holds
    Kind elementKind = Kind::kUnsigned;
    std::span<const Field> elementFields = {};  // not empty: the elements are records
};

constexpr std::size_t kNoCount = ~std::size_t{0};  // `other` of lists: every element with a name counts

struct Record {
    std::string_view name;
    std::size_t bytes;
    std::span<const Field> fields;
};

// The values of a payload by their names. Bytes that are missing read as 0.
[[nodiscard]] Json Decode(const Record& record, std::span<const u8> payload);

// "interface eth0   mtu 1400".
[[nodiscard]] std::string DescriptionText(const Json& description);

// "u32", "char[16]", "address", "10 x address".
[[nodiscard]] std::string TypeText(const Field& field);

// A line in the second column for each field: offset, type, name, words.
void AddFields(const Record& record, std::string_view before, Rows& rows);

// A command handler of the daemon.
using Handler = i32(int fd, u32 type, const void* payload, i32 size);

struct Message {
    u32 code;
    std::string_view name;  // in "raw" and in what -v shows
    Record request;
    Record reply;
    // For --dry-run: what runs the request's tools and nothing else, above tools that are only noted. Null: none.
    Handler* handler = nullptr;
    std::string_view inDaemon = {};  // what the daemon does in addition or instead

    // Changes nothing: --dry-run sends it anyway.
    [[nodiscard]] bool IsQuery() const {
        return reply.bytes > sizeof(TNetStatusReply) || code == TESSEL_CMD_DHCPS_GET_STATUS;
    }
};

[[nodiscard]] std::span<const Message> Messages();

// Null: not known.
[[nodiscard]] const Message* FindMessage(u32 code);
[[nodiscard]] const Message* FindMessage(std::string_view name);

// What an event of a kind (enum tessel_event_kind) carries. Null: there is no such kind.
[[nodiscard]] const Record* FindEventRecord(int kind);

}  // namespace tessel::ctl
