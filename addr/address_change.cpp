#include "addr/address_change.h"

#include "addr/address.h"
#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/text.h"

using tessel::AddressesOf;
using tessel::AddressFamily;
using tessel::AddressText;
using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::RunChange;

namespace {

// Every line this file runs: the program, then its argument vector. No line names the scope of an entry:
// addresses have always had the one that `ip` chooses.
constexpr char kChange[] = "ip ip %s addr %s %s/%u dev %s";
constexpr char kFlushV4[] = "ip ip -4 addr flush dev %s";
constexpr char kFlushV6Permanent[] = "ip ip -6 addr flush scope global permanent dev %s ";
constexpr char kFlushV6[] = "ip ip -6 addr flush scope global dev %s ";

bool IsChangeable(const AddressFamily& family, const char* interfaceName, const TNetIpAddr& entry, CallSite where) {
    TESSEL_PRT_AT(where, "pchIfaceName : %s", interfaceName);
    if (entry.wSinFamily == family.code) return tessel::IsLineWord(interfaceName, where);
    TESSEL_DBG_AT(where, "the ip sinfamiy is %u", entry.wSinFamily);
    return false;
}

i32 Change(const char* verb, const AddressFamily& family, const char* interfaceName, const TNetIpAddr& entry,
           CallSite where) {
    CommandLine command(where);
    if (!IsChangeable(family, interfaceName, entry, where) ||
        !ComposeCommand(command, kChange, family.option, verb, AddressText(family.code, entry.abyAddr).text,
                        entry.dwPrefixLen, interfaceName)) {
        return -1;
    }
    return RunChange(command);
}

bool IsFlushable(const char* interfaceName, CallSite where = CallSite::Current()) {
    if (interfaceName != nullptr && interfaceName[0] != '\0') return tessel::IsLineWord(interfaceName, where);
    TESSEL_ERR_AT(where, "the pchIfaceName is invalid!");
    return false;
}

// True for an IPv6 address that setting a list leaves alone.
bool IsKept(const TNetIpAddr& entry, CallSite where) {
    if (entry.dwScope == TESSEL_SCOPE_LINK) {
        TESSEL_DBG_AT(where, "****skip link addr****");
        return true;
    }
    if (entry.bDynamic == 0) return false;
    TESSEL_DBG_AT(where, "****skip ra addr****");
    return true;
}

TNetIfaceIp OfFamily(const TNetIfaceIp& list, u16 family) {
    TNetIfaceIp chosen{};
    for (const TNetIpAddr& entry : AddressesOf(list)) {
        if (entry.wSinFamily != family) continue;
        chosen.atIp[chosen.dwNum] = entry;
        ++chosen.dwNum;
    }
    return chosen;
}

i32 SetBoth(const char* interfaceName, const TNetIfaceIp& list) {
    const TNetIfaceIp inet = OfFamily(list, TESSEL_FAMILY_INET);
    const TNetIfaceIp inet6 = OfFamily(list, TESSEL_FAMILY_INET6);
    const i32 result = IpaddrV4Set(interfaceName, &inet);
    return result != 0 ? result : IpaddrV6Set(interfaceName, &inet6);
}

i32 SetByFamily(const char* interfaceName, u16 family, const TNetIfaceIp& list, CallSite where) {
    switch (family) {
        case TESSEL_FAMILY_INET:
            return IpaddrV4Set(interfaceName, &list);
        case TESSEL_FAMILY_INET6:
            return IpaddrV6Set(interfaceName, &list);
        case TESSEL_FAMILY_BOTH:
            return SetBoth(interfaceName, list);
        default:
            TESSEL_ERR_AT(where, "the wSinFamily %d is invalid!", family);
            return -1;
    }
}

}  // namespace

i32 IpaddrAddV4(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return Change("add", tessel::kInet, pchIfaceName, *ptNetIpAddr, CallSite::Current());
}

i32 IpaddrAddV6(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return Change("add", tessel::kInet6, pchIfaceName, *ptNetIpAddr, CallSite::Current());
}

i32 IpaddrDelV4(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return Change("del", tessel::kInet, pchIfaceName, *ptNetIpAddr, CallSite::Current());
}

i32 IpaddrDelV6(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr) {
    return Change("del", tessel::kInet6, pchIfaceName, *ptNetIpAddr, CallSite::Current());
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
    if (!IsFlushable(pchIfaceName) || !ComposeCommand(command, kFlushV4, pchIfaceName)) return -1;
    return RunChange(command);
}

i32 IpaddrFlushV6(const char* pchIfaceName) {
    CommandLine command;
    if (!IsFlushable(pchIfaceName) || !ComposeCommand(command, kFlushV6Permanent, pchIfaceName)) return -1;
    if (RunChange(command) == 0) return 0;
    // An `ip` that does not know "permanent". This line is logged at error level.
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
    for (const TNetIpAddr& entry : AddressesOf(*ptNetIfaceIp)) {
        const i32 result = IpaddrAddV4(pchIfaceName, &entry);
        if (result == 0) continue;
        TESSEL_ERR("IpaddrAddV4 error : %d!", result);
        for (const TNetIpAddr& old : AddressesOf(previous))
            (void)IpaddrAddV4(pchIfaceName, &old);  // as many as can be
        return result;
    }
    return 0;
}

i32 IpaddrV6Set(const char* pchIfaceName, const TNetIfaceIp* ptNetIfaceIp) {
    TNetIfaceIp previous{};
    const i32 readResult = IpaddrGet(pchIfaceName, TESSEL_FAMILY_INET6, &previous);
    // The text names the other family. It is what readers of the log look for.
    if (readResult != 0) TESSEL_ERR("IpaddrGet BackIpV4 error : %d!", readResult);
    int index = 0;
    for (const TNetIpAddr& old : AddressesOf(previous)) {
        const i32 result = IsKept(old, CallSite::Current()) ? 0 : IpaddrDelV6(pchIfaceName, &old);
        if (result != 0) TESSEL_ERR("IpaddrDelV6 del ipv6 error : %d! nIndex = %d", result, index);
        ++index;
    }
    for (const TNetIpAddr& entry : AddressesOf(*ptNetIfaceIp)) {
        const i32 result = entry.dwScope == TESSEL_SCOPE_LINK ? 0 : IpaddrAddV6(pchIfaceName, &entry);
        if (result == 0) continue;
        TESSEL_ERR("IpaddrAddV6 error : %d!", result);
        for (const TNetIpAddr& old : AddressesOf(previous)) {
            if (!IsKept(old, CallSite::Current())) (void)IpaddrAddV6(pchIfaceName, &old);  // as many as can be
        }
        return result;
    }
    return 0;
}

i32 IpaddrSet(const char* pchIfaceName, u16 wSinFamily, const TNetIfaceIp* ptNetIfaceIp) {
    TESSEL_PRT("pchIfaceName : %s, wSinFamily : %d", pchIfaceName, wSinFamily);
    const i32 result = SetByFamily(pchIfaceName, wSinFamily, *ptNetIfaceIp, CallSite::Current());
    TESSEL_PRT("the IpaddrSet nRet : %d", result);
    return result;
}
