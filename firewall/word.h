// Texts from outside that become words of a command line. None is a host name, which a tool would ask a name server
// for while every other client waits.
#pragma once

#include "core/call_site.h"
#include "core/family.h"
#include "core/text.h"

namespace tessel {

// True for the text of a MAC. False with a log line.
[[nodiscard]] inline bool IsMacWord(const char* text, CallSite where = CallSite::Current()) {
    return AcceptText(text, text != nullptr && IsMacText(text), where);
}

// True for the text of an address of this family. False with a log line.
[[nodiscard]] inline bool IsAddressWord(const AddressFamily& family, const char* text,
                                        CallSite where = CallSite::Current()) {
    return AcceptText(text, text != nullptr && IsAddressText(family, text), where);
}

}  // namespace tessel
