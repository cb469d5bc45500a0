// Texts from outside that become words of a command line. None is a host name, which a tool would ask a name server
// for while every other client waits.
#pragma once

#include "core/call_site.h"
#include "core/family.h"
#include "core/log.h"
#include "core/text.h"

namespace tessel {

// True for the text of a MAC. False with a log line.
[[nodiscard]] inline bool IsMacWord(const char* text, CallSite where = CallSite::Current()) {
    if (!IsLineWord(text, where)) return false;
    const bool isMac = IsMacText(text);
    if (!isMac) TESSEL_ERR_AT(where, "the text [%s] is invalid!", text);
    return isMac;
}

// True for the text of an address of this family. False with a log line.
[[nodiscard]] inline bool IsAddressWord(const AddressFamily& family, const char* text,
                                        CallSite where = CallSite::Current()) {
    if (!IsLineWord(text, where)) return false;
    const bool isAddress = IsAddressText(family, text);
    if (!isAddress) TESSEL_ERR_AT(where, "the text [%s] is invalid!", text);
    return isAddress;
}

}  // namespace tessel
