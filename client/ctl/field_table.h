// How a field table is written: offsets and sizes come from the records' own declarations.
//
// For client/ctl/records.h alone, which takes the macros out again.
#pragma once

#include <type_traits>

#include "client/ctl/fields.h"

namespace tessel::ctl {

// What a member's type says about its meaning.
template <typename Member>
constexpr Kind KindOf() {
    if (std::is_same_v<Member, TNetGateway>) return Kind::kAddress;
    if (std::is_same_v<Member, TNetIpAddr>) return Kind::kPrefixed;
    if (std::is_same_v<Member, u8[6]>) return Kind::kMac;
    if (std::is_array_v<Member>) return Kind::kText;
    return std::is_signed_v<Member> ? Kind::kSigned : Kind::kUnsigned;
}

template <std::size_t kFields>
struct FieldTable {
    std::string_view name;
    std::size_t bytes;
    std::array<Field, kFields> fields;
    constexpr operator Record() const {  // NOLINT(google-explicit-constructor): a table stands for its record
        return {name, bytes, fields};
    }
};

template <std::size_t kFields>
FieldTable(std::string_view, std::size_t, std::array<Field, kFields>) -> FieldTable<kFields>;

// Text up to the payload's end.
constexpr Field Tail(std::string_view name, std::size_t recordBytes) {
    return {.name = name, .member = {}, .kind = Kind::kTail, .offset = recordBytes, .bytes = 0};
}

// The interface that an element of a list is about, by its place.
constexpr Field Position(std::string_view name, std::span<const Word> words) {
    return {.name = name, .member = {}, .kind = Kind::kPosition, .offset = 0, .bytes = 0, .other = 0, .words = words};
}

// Offsets and sizes are those of the records' own declarations. R is the record that RECORD stands for.
#define MEMBER_TYPE(member) decltype(std::declval<R&>().member)
#define KIND(name, kind, member, ...)                                                      \
    Field {                                                                                \
        name, #member, kind, offsetof(R, member), sizeof(MEMBER_TYPE(member)), __VA_ARGS__ \
    }
#define MEMBER(name, member)       KIND(name, KindOf<MEMBER_TYPE(member)>(), member, )
#define WORDS(name, member, words) KIND(name, KindOf<MEMBER_TYPE(member)>(), member, 0, words)
// What most records have.
#define DEVICE         MEMBER("interface", achDevName)
#define FAMILY(member) WORDS("family", member, kFamilies)
#define LIST(name, member, count, ...)                                                                           \
    Field {                                                                                                      \
        name, #member, Kind::kList, offsetof(R, member), sizeof(std::declval<R&>().member[0]), count, {},        \
            std::extent_v<MEMBER_TYPE(member)>, KindOf<std::remove_extent_t<MEMBER_TYPE(member)>>(), __VA_ARGS__ \
    }
#define RECORD(record, ...)                                             \
    [] {                                                                \
        using R = record;                                               \
        return FieldTable{#record, sizeof(R), std::array{__VA_ARGS__}}; \
    }()

}  // namespace tessel::ctl
