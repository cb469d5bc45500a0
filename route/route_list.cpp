// Reading the static routes out of what `ip route show` prints.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"
#include "route/route.h"

using tessel::CallSite;
using tessel::CommandLine;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kShowV4[] = "ip ip -4 route show";
constexpr char kShowV6[] = "ip ip -6 route show";

constexpr std::size_t kLineMax = 256;  // of a listed line that is read
constexpr i32 kWordMax = 256;
constexpr i32 kNameMax = TESSEL_NAME_SIZE;

struct ListedFamily {
    u16 family;
    i32 hostPrefixLen;  // of a destination without one
};
constexpr ListedFamily kInet{.family = TESSEL_FAMILY_INET, .hostPrefixLen = 32};
constexpr ListedFamily kInet6{.family = TESSEL_FAMILY_INET6, .hostPrefixLen = 128};

struct Line {
    char text[kLineMax + 1];
};

// The word behind a key, or the first word. False, with a log line, when there is none.
bool FindWord(const Line& line, const char* key, char* word, i32 wordMax, CallSite where) {
    if (TesselFindStrMatchHead(line.text, key, ' ', word, wordMax) == 0) return true;
    TESSEL_ERR_AT(where, "%s", line.text);
    return false;
}

// A word that is missing leaves its field as it is: 0.
TNetIpRouteParam ReadRoute(const Line& line, const ListedFamily& listed, CallSite where) {
    TNetIpRouteParam route{};
    char word[kWordMax + 1];
    if (FindWord(line, nullptr, word, kWordMax, where)) {
        char* const slash = strchr(word, '/');
        if (slash != nullptr) *slash = '\0';
        route.nPrefixLen = slash != nullptr ? atoi(slash + 1) : listed.hostPrefixLen;
        route.tDestIpNet.wSinFamily = listed.family;
        (void)inet_pton(listed.family, word, route.tDestIpNet.abyAddr);
    }
    if (FindWord(line, "via", word, kWordMax, where)) {
        route.tGateway.wSinFamily = listed.family;
        (void)inet_pton(listed.family, word, route.tGateway.abyAddr);
    }
    if (FindWord(line, "dev", word, kNameMax, where)) memcpy(route.achDevName, word, strnlen(word, kNameMax));
    if (FindWord(line, "metric", word, kWordMax, where)) route.nMetric = atoi(word);
    return route;
}

bool IsStaticRoute(const Line& line) {
    return strstr(line.text, "via") != nullptr && strstr(line.text, "default via") == nullptr;
}

void AppendRoutes(const char* output, const ListedFamily& listed, TNetAllRouteInfo& list, CallSite where) {
    const char* rest = output;
    // What is behind the last newline may have been cut off by the end of the buffer.
    for (const char* end = strchr(rest, '\n'); end != nullptr && list.dwNum < TESSEL_ROUTES_MAX;
         end = strchr(rest, '\n')) {
        const auto length = static_cast<std::size_t>(end - rest);
        if (length > kLineMax) TESSEL_ERR_AT(where, "the nLineLen is more than MAX_BUF_LEN, reset it!");
        Line line{};
        memcpy(line.text, rest, std::min(length, kLineMax));
        rest = end + 1;
        if (!IsStaticRoute(line)) continue;
        list.atRoute[list.dwNum] = ReadRoute(line, listed, where);
        list.dwNum = list.dwNum + 1;
    }
}

i32 AppendFromTool(const char* show, const ListedFamily& listed, TNetAllRouteInfo* list,
                   CallSite where = CallSite::Current()) {
    if (list == nullptr) {
        TESSEL_ERR_AT(where, "ptAllRouteInfo is NULL!");
        return -1;
    }
    CommandLine command(where);
    if (!tessel::ComposeCommand(command, "%s", show)) return -1;
    TESSEL_DBG_AT(where, "%s cmd : %s", where.function, command.text);
    tessel::ToolOutput output;
    const i32 result = tessel::RunReader(command, output);
    if (result == 0) AppendRoutes(output.text, listed, *list, where);
    return result;
}

}  // namespace

i32 AllRoutesGetV4(TNetAllRouteInfo* ptAllRouteInfo) {
    return AppendFromTool(kShowV4, kInet, ptAllRouteInfo);
}

i32 AllRoutesGetV6(TNetAllRouteInfo* ptAllRouteInfo) {
    return AppendFromTool(kShowV6, kInet6, ptAllRouteInfo);
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
