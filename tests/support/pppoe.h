// Requests of the PPPoE commands.
#pragma once

#include <cstring>
#include <string>

#include "tessel/pppoe.h"
#include "tests/support/daemon.h"

namespace tessel::test {

// Without any option, on eth0.
inline TNetPppoeConf Link(const std::string& user = "", const std::string& password = "",
                          const std::string& service = "", const std::string& interfaceName = "eth0") {
    TNetPppoeConf conf{};
    memcpy(conf.achUser, user.data(), std::min(user.size(), sizeof(conf.achUser)));
    memcpy(conf.achPassword, password.data(), std::min(password.size(), sizeof(conf.achPassword)));
    memcpy(conf.achService, service.data(), std::min(service.size(), sizeof(conf.achService)));
    memcpy(conf.achDevName, interfaceName.data(), std::min(interfaceName.size(), sizeof(conf.achDevName)));
    return conf;
}

inline std::string DialRequest(u16 family, const TNetPppoeConf& conf) {
    return std::string(Bytes(family)).append(Bytes(conf));
}

}  // namespace tessel::test
