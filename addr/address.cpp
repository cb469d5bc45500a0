#include "addr/address.h"

#include <cstring>

#include "addr/address_text.h"
#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/text.h"

using tessel::AddressFamily;
using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::IsLineWord;
using tessel::ToolOutput;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kShow[] = "ip ip %s addr show dev %s";
constexpr char kShowBoth[] = "ip ip addr show dev %s";

// Sixteen of the longest addresses are more than the usual 2000 bytes.
constexpr u32 kShownBytes = tessel::kToolOutputBytesMax;

i32 Append(const AddressFamily& family, const char* interfaceName, bool marksTentative, TNetIfaceIp* list,
           CallSite where) {
    if (interfaceName == nullptr || list == nullptr) {
        TESSEL_ERR_AT(where, "pchIfaceName or ptNetIfaceIp is NULL!");
        return -1;
    }
    CommandLine command(where);
    if (!IsLineWord(interfaceName, where) || !ComposeCommand(command, kShow, family.option, interfaceName)) return -1;
    TESSEL_DBG_AT(where, "%s cmd : %s", where.function, command.text);
    const bool isInet = family.code == TESSEL_FAMILY_INET;  // the two families are logged in different words
    ToolOutput output(kShownBytes);
    const i32 result = tessel::Run(command, output);
    if (result != 0 && isInet) TESSEL_ERR_AT(where, "ExecCmdAndGetOutput error, nRet = %d!", result);
    if (result != 0 && !isInet) TESSEL_ERR_AT(where, "ExecCmdAndGetOutput error!");
    if (result != 0) return result;
    TESSEL_DBG_AT(where, "%s%s", isInet ? "" : "read buf ", output.text);
    tessel::DropCutLine(output);
    return tessel::AppendAddresses(output.text, family, marksTentative, *list, where) ? 0 : -1;
}

i32 ReadByFamily(const char* interfaceName, u16 family, TNetIfaceIp* list, u32 noTentative, CallSite where) {
    switch (family) {
        case TESSEL_FAMILY_INET:
            return GetIpaddrV4(interfaceName, list);
        case TESSEL_FAMILY_INET6:
            return GetIpaddrV6(interfaceName, list, noTentative);
        case TESSEL_FAMILY_BOTH:
            if (GetIpaddrV4(interfaceName, list) == 0) return GetIpaddrV6(interfaceName, list, noTentative);
            TESSEL_ERR_AT(where, "GetIpaddrV4 error, pchIfaceName : %s!", interfaceName);
            return -1;
        default:
            TESSEL_ERR_AT(where, "the wSinFamily %d is not supportted!", family);
            return -1;
    }
}

}  // namespace

u32 ScopeStrToCode(const char* scopeWord) {
    for (const u32 code : {TESSEL_SCOPE_GLOBAL, TESSEL_SCOPE_LINK, TESSEL_SCOPE_SITE, TESSEL_SCOPE_HOST}) {
        const TScopeMap& row = g_tScopeMap[code];
        if (strncmp(scopeWord, row.pchName, strlen(row.pchName)) == 0) return row.dwScope;
    }
    return TESSEL_SCOPE_UNSET;
}

i32 GetIpaddrV4(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp) {
    return Append(tessel::kInet, pchIfaceName, false, ptNetIfaceIp, CallSite::Current());
}

i32 GetIpaddrV6(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp, u32 dwNoTentative) {
    return Append(tessel::kInet6, pchIfaceName, dwNoTentative == 0, ptNetIfaceIp, CallSite::Current());
}

i32 IpaddrGet(const char* pchIfaceName, u16 wSinFamily, TNetIfaceIp* ptNetIfaceIp) {
    return ReadByFamily(pchIfaceName, wSinFamily, ptNetIfaceIp, 0, CallSite::Current());
}

i32 IpaddrGetEx(const char* pchIfaceName, u16 wSinFamily, TNetIfaceIp* ptNetIfaceIp) {
    return ReadByFamily(pchIfaceName, wSinFamily, ptNetIfaceIp, 1, CallSite::Current());
}

i32 ipaddr_show_filter(const char* interfaceName, ipaddr_show_info* info) {
    CommandLine command;
    if (!IsLineWord(interfaceName) || !ComposeCommand(command, kShowBoth, interfaceName)) return -1;
    TESSEL_DBG("%s", command.text);
    ToolOutput output(kShownBytes);
    const i32 status = tessel::RunForStatus(command, &output);
    if (status == 0 && output.length == 0) {
        TESSEL_ERR("don't find any information!");
        return -1;
    }
    tessel::DropCutLine(output);
    if (status == 0 && tessel::ReadShowInfo(output.text, *info, CallSite::Current())) return 0;
    TESSEL_ERR("%s", command.text);
    TESSEL_ERR("%s", output.text);
    return -1;
}
