#include "route/route_list.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/text.h"

using tessel::AddressFamily;
using tessel::CallSite;

namespace {

// The line this file runs: the program, then its argument vector.
constexpr char kShow[] = "ip ip %s route show";

constexpr std::size_t kLineMax = 256;  // characters of a listed line that are read
constexpr i32 kWordMax = 256;
constexpr i32 kNameMax = TESSEL_NAME_SIZE;

struct Line {
    char text[kLineMax + 1];
};

// The word after a key, or the first word. False, with a log line, when there is none.
bool FindWord(const Line& line, const char* key, char* word, i32 wordMax, CallSite where) {
    if (TesselFindStrMatchHead(line.text, key, ' ', word, wordMax) == 0) return true;
    TESSEL_ERR_AT(where, "%s", line.text);
    return false;
}

// A missing word leaves its field at 0.
TNetIpRouteParam ReadRoute(const Line& line, const AddressFamily& family, CallSite where) {
    TNetIpRouteParam route{};
    char word[kWordMax + 1];
    if (FindWord(line, nullptr, word, kWordMax, where)) {
        char* const slash = strchr(word, '/');
        if (slash != nullptr) *slash = '\0';
        route.nPrefixLen = slash != nullptr ? atoi(slash + 1) : family.hostPrefixLength;
        route.tDestIpNet.wSinFamily = family.code;
        (void)inet_pton(family.code, word, route.tDestIpNet.abyAddr);
    }
    if (FindWord(line, "via", word, kWordMax, where)) {
        route.tGateway.wSinFamily = family.code;
        (void)inet_pton(family.code, word, route.tGateway.abyAddr);
    }
    if (FindWord(line, "dev", word, kNameMax, where)) memcpy(route.achDevName, word, strnlen(word, kNameMax));
    if (FindWord(line, "metric", word, kWordMax, where)) route.nMetric = atoi(word);
    return route;
}

bool IsStaticRoute(const Line& line) {
    return strstr(line.text, "via") != nullptr && strstr(line.text, "default via") == nullptr;
}

void AppendRoutes(const char* output, const AddressFamily& family, TNetAllRouteInfo& list, CallSite where) {
    const char* rest = output;
    // What follows the last newline may have been cut.
    for (const char* end = strchr(rest, '\n'); end != nullptr && list.dwNum < TESSEL_ROUTES_MAX;
         end = strchr(rest, '\n')) {
        const auto length = static_cast<std::size_t>(end - rest);
        if (length > kLineMax) TESSEL_ERR_AT(where, "the nLineLen is more than MAX_BUF_LEN, reset it!");
        Line line{};
        memcpy(line.text, rest, std::min(length, kLineMax));
        rest = end + 1;
        if (!IsStaticRoute(line)) continue;
        list.atRoute[list.dwNum] = ReadRoute(line, family, where);
        ++list.dwNum;
    }
}

i32 AppendFromTool(const AddressFamily& family, TNetAllRouteInfo* list, CallSite where) {
    if (list == nullptr) {
        TESSEL_ERR_AT(where, "ptAllRouteInfo is NULL!");
        return -1;
    }
    tessel::CommandLine command(where);
    if (!tessel::ComposeCommand(command, kShow, family.option)) return -1;
    TESSEL_DBG_AT(where, "%s cmd : %s", where.function, command.text);
    tessel::ToolOutput output;
    const i32 result = tessel::RunReader(command, output);
    if (result == 0) AppendRoutes(output.text, family, *list, where);
    return result;
}

}  // namespace

i32 AllRoutesGetV4(TNetAllRouteInfo* ptAllRouteInfo) {
    return AppendFromTool(tessel::kInet, ptAllRouteInfo, CallSite::Current());
}

i32 AllRoutesGetV6(TNetAllRouteInfo* ptAllRouteInfo) {
    return AppendFromTool(tessel::kInet6, ptAllRouteInfo, CallSite::Current());
}

i32 AllRoutesGet(u16 wSinFamily, TNetAllRouteInfo* ptAllRouteInfo) {
    switch (wSinFamily) {
        case TESSEL_FAMILY_INET:
            return AllRoutesGetV4(ptAllRouteInfo);
        case TESSEL_FAMILY_INET6:
            return AllRoutesGetV6(ptAllRouteInfo);
        case TESSEL_FAMILY_BOTH:
            if (const i32 result = AllRoutesGetV4(ptAllRouteInfo); result != 0) {
                TESSEL_ERR("AllRoutesGetV4 error !");
                return result;
            }
            return AllRoutesGetV6(ptAllRouteInfo);
        default:
            TESSEL_ERR("the wSinFamily %d is invalid!", wSinFamily);
            return 0;  // clients rely on success here
    }
}
