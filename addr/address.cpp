#include "addr/address.h"

#include <cstdio>
#include <cstring>

#include "addr/address_text.h"
#include "core/exec.h"
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
constexpr char kShowV4[] = "ip ip -4 addr show dev %s";
constexpr char kShowV6[] = "ip ip -6 addr show dev %s";
constexpr char kShowBoth[] = "ip ip addr show dev %s";

bool HaveArguments(const char* interfaceName, const TNetIfaceIp* list, CallSite where) {
    if (interfaceName != nullptr && list != nullptr) return IsLineWord(interfaceName, where);
    TESSEL_ERR_AT(where, "pchIfaceName or ptNetIfaceIp is NULL!");
    return false;
}

// Runs the line in the reader's name and appends what it tells.
i32 AppendFromTool(CommandLine& command, const AddressFamily& family, bool markTentative, TNetIfaceIp& list,
                   CallSite where) {
    TESSEL_DBG_AT(where, "%s cmd : %s", where.function, command.text);
    ToolOutput output;
    const i32 result = tessel::Run(command, output);
    if (result != 0) {
        // The two families report in different words.
        if (family.family == TESSEL_FAMILY_INET) {
            TESSEL_ERR_AT(where, "ExecCmdAndGetOutput error, nRet = %d!", result);
        } else {
            TESSEL_ERR_AT(where, "ExecCmdAndGetOutput error!");
        }
        return result;
    }
    TESSEL_DBG_AT(where, "%s%s", family.family == TESSEL_FAMILY_INET ? "" : "read buf ", output.text);
    return tessel::AppendAddresses(output.text, family, markTentative, list) ? 0 : -1;
}

i32 ReadByFamily(const char* interfaceName, u16 family, TNetIfaceIp* list, u32 noTentative, CallSite where) {
    switch (family) {
        case TESSEL_FAMILY_INET:
            return GetIpaddrV4(interfaceName, list);
        case TESSEL_FAMILY_INET6:
            return GetIpaddrV6(interfaceName, list, noTentative);
        case TESSEL_FAMILY_BOTH:
            if (GetIpaddrV4(interfaceName, list) != 0) {
                TESSEL_ERR_AT(where, "GetIpaddrV4 error, pchIfaceName : %s!", interfaceName);
                return -1;
            }
            return GetIpaddrV6(interfaceName, list, noTentative);
        default:
            TESSEL_ERR_AT(where, "the wSinFamily %d is not supportted!", family);
            return -1;
    }
}

}  // namespace

u32 ScopeStrToCode(const char* scopeWord) {
    if (strncmp(scopeWord, "global", 6) == 0) return TESSEL_SCOPE_GLOBAL;
    if (strncmp(scopeWord, "link", 4) == 0) return TESSEL_SCOPE_LINK;
    if (strncmp(scopeWord, "site", 4) == 0) return TESSEL_SCOPE_SITE;
    if (strncmp(scopeWord, "host", 4) == 0) return TESSEL_SCOPE_HOST;
    return TESSEL_SCOPE_UNSET;
}

i32 GetIpaddrV4(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp) {
    CommandLine command;
    if (!HaveArguments(pchIfaceName, ptNetIfaceIp, CallSite::Current())) return -1;
    if (!ComposeCommand(command, kShowV4, pchIfaceName)) return -1;
    return AppendFromTool(command, tessel::kInet, false, *ptNetIfaceIp, CallSite::Current());
}

i32 GetIpaddrV6(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp, u32 dwNoTentative) {
    CommandLine command;
    if (!HaveArguments(pchIfaceName, ptNetIfaceIp, CallSite::Current())) return -1;
    if (!ComposeCommand(command, kShowV6, pchIfaceName)) return -1;
    return AppendFromTool(command, tessel::kInet6, dwNoTentative == 0, *ptNetIfaceIp, CallSite::Current());
}

i32 IpaddrGet(const char* pchIfaceName, u16 wSinFamily, TNetIfaceIp* ptNetIfaceIp) {
    return ReadByFamily(pchIfaceName, wSinFamily, ptNetIfaceIp, 0, CallSite::Current());
}

i32 IpaddrGetEx(const char* pchIfaceName, u16 wSinFamily, TNetIfaceIp* ptNetIfaceIp) {
    return ReadByFamily(pchIfaceName, wSinFamily, ptNetIfaceIp, 1, CallSite::Current());
}

i32 ipaddr_show_filter(const char* interfaceName, ipaddr_show_info* info) {
    if (!IsLineWord(interfaceName, CallSite::Current())) return -1;
    CommandLine command;
    if (!ComposeCommand(command, kShowBoth, interfaceName)) return -1;
    TESSEL_DBG("%s", command.text);
    ToolOutput output;
    const i32 status = tessel::RunForStatus(command, &output);
    if (status == 0 && output.length == 0) {
        TESSEL_ERR("don't find any information!");
        return -1;
    }
    if (status != 0 || !tessel::ReadShowInfo(output.text, *info)) {
        TESSEL_ERR("%s", command.text);
        TESSEL_ERR("%s", output.text);
        return -1;
    }
    return 0;
}
