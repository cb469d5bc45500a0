#include "addr/address_change.h"

#include <arpa/inet.h>

#include <algorithm>
#include <span>

#include "addr/address.h"
#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"

using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::RunChange;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kChange[] = "ip ip %s addr %s %s/%u dev %s";  // "-4" or "-6", "add" or "del"
constexpr char kFlushV4[] = "ip ip -4 addr flush dev %s";
constexpr char kFlushV6Permanent[] = "ip ip -6 addr flush scope global permanent dev %s ";
constexpr char kFlushV6[] = "ip ip -6 addr flush scope global dev %s ";

// One address added or deleted. No scope is given, whatever the entry holds: addresses have always got the scope that
// `ip` chooses.
i32 ChangeAddress(const char* interfaceName, const TNetIpAddr& entry, u16 family, const char* action, CallSite where) {
    TESSEL_PRT_AT(where, "pchIfaceName : %s", interfaceName);
    if (entry.wSinFamily != family) {
        TESSEL_DBG_AT(where, "the ip sinfamiy is %u", entry.wSinFamily);
        return -1;
    }
    if (!tessel::IsLineWord(interfaceName, where)) return -1;
    char address[INET6_ADDRSTRLEN] = "";
    (void)inet_ntop(family, entry.abyAddr, address, sizeof(address));
    CommandLine command(where);
    const char* option = family == TESSEL_FAMILY_INET ? "-4" : "-6";
    if (!ComposeCommand(command, kChange, option, action, address, entry.dwPrefixLen, interfaceName)) return -1;
    return RunChange(command);
}

bool IsFlushable(const char* interfaceName, CallSite where = CallSite::Current()) {
    if (tessel::IsLineWord(interfaceName, where)) return true;
    TESSEL_ERR_AT(where, "the pchIfaceName is invalid!");
    return false;
}

std::span<const TNetIpAddr> EntriesOf(const TNetIfaceIp& list) {
    return {list.atIp, std::min<std::size_t>(list.dwNum, TESSEL_ADDRESSES_MAX)};
}

// True for an IPv6 address that setting a list leaves alone.
bool IsKept(const TNetIpAddr& entry, CallSite where) {
    if (entry.dwScope == TESSEL_SCOPE_LINK) {
        TESSEL_DBG_AT(where, "****skip link addr****");
        return true;
    }
    if (entry.bDynamic != 0) {
        TESSEL_DBG_AT(where, "****skip ra addr****");
        return true;
    }
    return false;
}

void DeleteReplaced(const char* interfaceName, const TNetIfaceIp& previous, CallSite where) {
    int index = 0;
    for (const TNetIpAddr& entry : EntriesOf(previous)) {
        const i32 result = IsKept(entry, where) ? 0 : IpaddrDelV6(interfaceName, &entry);
        if (result != 0) TESSEL_ERR_AT(where, "IpaddrDelV6 del ipv6 error : %d! nIndex = %d", result, index);
        ++index;
    }
}

TNetIfaceIp EntriesOfFamily(const TNetIfaceIp& list, u16 family) {
    TNetIfaceIp chosen{};
    for (const TNetIpAddr& entry : EntriesOf(list)) {
        if (entry.wSinFamily != family) continue;
        chosen.atIp[chosen.dwNum] = entry;
        chosen.dwNum = chosen.dwNum + 1;
    }
    return chosen;
}

i32 SetBoth(const char* interfaceName, const TNetIfaceIp& list) {
    const TNetIfaceIp inet = EntriesOfFamily(list, TESSEL_FAMILY_INET);
    const TNetIfaceIp inet6 = EntriesOfFamily(list, TESSEL_FAMILY_INET6);
    const i32 result = IpaddrV4Set(interfaceName, &inet);
    return result != 0 ? result : IpaddrV6Set(interfaceName, &inet6);
}

}  // namespace

i32 IpaddrAddV4(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return ChangeAddress(pchIfaceName, *ptNetIpAddr, TESSEL_FAMILY_INET, "add", CallSite::Current());
}

i32 IpaddrAddV6(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return ChangeAddress(pchIfaceName, *ptNetIpAddr, TESSEL_FAMILY_INET6, "add", CallSite::Current());
}

i32 IpaddrDelV4(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return ChangeAddress(pchIfaceName, *ptNetIpAddr, TESSEL_FAMILY_INET, "del", CallSite::Current());
}

i32 IpaddrDelV6(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return ChangeAddress(pchIfaceName, *ptNetIpAddr, TESSEL_FAMILY_INET6, "del", CallSite::Current());
}

i32 IpaddrAdd(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    if (ptNetIpAddr->wSinFamily == TESSEL_FAMILY_INET) return IpaddrAddV4(pchIfaceName, ptNetIpAddr);
    if (ptNetIpAddr->wSinFamily == TESSEL_FAMILY_INET6) return IpaddrAddV6(pchIfaceName, ptNetIpAddr);
    TESSEL_ERR("the wSinFamily %d is invalid!", ptNetIpAddr->wSinFamily);
    return 0;  // clients rely on success here
}

i32 IpaddrDel(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    if (ptNetIpAddr->wSinFamily == TESSEL_FAMILY_INET) return IpaddrDelV4(pchIfaceName, ptNetIpAddr);
    if (ptNetIpAddr->wSinFamily == TESSEL_FAMILY_INET6) return IpaddrDelV6(pchIfaceName, ptNetIpAddr);
    TESSEL_ERR("the wSinFamily %d is invalid!", ptNetIpAddr->wSinFamily);
    return 0;  // clients rely on success here
}

i32 IpaddrFlushV4(const char* pchIfaceName) {
    CommandLine command;
    if (!IsFlushable(pchIfaceName)) return -1;
    if (!ComposeCommand(command, kFlushV4, pchIfaceName)) return -1;
    return RunChange(command);
}

i32 IpaddrFlushV6(const char* pchIfaceName) {
    CommandLine command;
    if (!IsFlushable(pchIfaceName)) return -1;
    if (!ComposeCommand(command, kFlushV6Permanent, pchIfaceName)) return -1;
    if (RunChange(command) == 0) return 0;
    // An `ip` that does not know "permanent".
    if (!ComposeCommand(command, kFlushV6, pchIfaceName)) return -1;
    TESSEL_ERR("IpaddrFlushV6 achCmdBuf: %s", command.text);
    const i32 result = tessel::Run(command);
    if (result != 0) TESSEL_ERR("ExecCmd error!");
    return result;
}

i32 IpaddrFlush(const char* pchIfaceName, u16 wSinFamily) {
    switch (wSinFamily) {
        case TESSEL_FAMILY_INET:
            return IpaddrFlushV4(pchIfaceName);
        case TESSEL_FAMILY_INET6:
            return IpaddrFlushV6(pchIfaceName);
        case TESSEL_FAMILY_BOTH:
            if (const i32 result = IpaddrFlushV4(pchIfaceName); result != 0) {
                TESSEL_ERR("IpaddrFlushV4 error, nRet = %d!", result);
                return -1;
            }
            return IpaddrFlushV6(pchIfaceName);
        default:
            TESSEL_ERR("IpaddrFlush wSinFamily %d is invalid!", wSinFamily);
            return -1;
    }
}

i32 IpaddrV4Set(const char* pchIfaceName, const TNetIfaceIp* ptNetIfaceIp) {
    TNetIfaceIp previous{};
    const i32 readResult = IpaddrGet(pchIfaceName, TESSEL_FAMILY_INET, &previous);
    if (readResult != 0) TESSEL_ERR("IpaddrGet error : %d!", readResult);
    const i32 flushResult = IpaddrFlush(pchIfaceName, TESSEL_FAMILY_INET);
    if (flushResult != 0) {
        TESSEL_ERR("IpaddrFlush error : %d!", flushResult);
        return flushResult;
    }
    for (const TNetIpAddr& entry : EntriesOf(*ptNetIfaceIp)) {
        const i32 result = IpaddrAddV4(pchIfaceName, &entry);
        if (result == 0) continue;
        TESSEL_ERR("IpaddrAddV4 error : %d!", result);
        for (const TNetIpAddr& old : EntriesOf(previous))
            (void)IpaddrAddV4(pchIfaceName, &old);  // as far as it goes
        return result;
    }
    return 0;
}

i32 IpaddrV6Set(const char* pchIfaceName, const TNetIfaceIp* ptNetIfaceIp) {
    TNetIfaceIp previous{};
    const i32 readResult = IpaddrGet(pchIfaceName, TESSEL_FAMILY_INET6, &previous);
    // The text names the other family. It is what readers of the log look for.
    if (readResult != 0) TESSEL_ERR("IpaddrGet BackIpV4 error : %d!", readResult);
    DeleteReplaced(pchIfaceName, previous, CallSite::Current());
    for (const TNetIpAddr& entry : EntriesOf(*ptNetIfaceIp)) {
        const i32 result = entry.dwScope == TESSEL_SCOPE_LINK ? 0 : IpaddrAddV6(pchIfaceName, &entry);
        if (result == 0) continue;
        TESSEL_ERR("IpaddrAddV6 error : %d!", result);
        for (const TNetIpAddr& old : EntriesOf(previous)) {
            if (!IsKept(old, CallSite::Current())) (void)IpaddrAddV6(pchIfaceName, &old);  // as far as it goes
        }
        return result;
    }
    return 0;
}

i32 IpaddrSet(const char* pchIfaceName, u16 wSinFamily, const TNetIfaceIp* ptNetIfaceIp) {
    TESSEL_PRT("pchIfaceName : %s, wSinFamily : %d", pchIfaceName, wSinFamily);
    i32 result = -1;
    switch (wSinFamily) {
        case TESSEL_FAMILY_INET:
            result = IpaddrV4Set(pchIfaceName, ptNetIfaceIp);
            break;
        case TESSEL_FAMILY_INET6:
            result = IpaddrV6Set(pchIfaceName, ptNetIfaceIp);
            break;
        case TESSEL_FAMILY_BOTH:
            result = SetBoth(pchIfaceName, *ptNetIfaceIp);
            break;
        default:
            TESSEL_ERR("the wSinFamily %d is invalid!", wSinFamily);
            break;
    }
    TESSEL_PRT("the IpaddrSet nRet : %d", result);
    return result;
}
