// PPPoE links and the bond.
#include <cstring>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"

using tessel::CallForStatus;
using tessel::IsFamilyOrBoth;
using tessel::StoreName;

namespace {

using Name = char[TESSEL_NAME_SIZE];

// A start request of the bond, part by part.
class BondRequest {
  public:
    // False when it would become longer than a request may be; it then stays as it is.
    [[nodiscard]] bool Add(const void* part, std::size_t bytes) {
        if (bytes > sizeof(bytes_) - size_) return false;
        memcpy(bytes_ + size_, part, bytes);
        size_ += bytes;
        return true;
    }
    [[nodiscard]] bool AddNumber(u32 number) {
        return Add(&number, sizeof(number));
    }
    // The text goes with its NUL.
    [[nodiscard]] bool AddText(const char* text) {
        const std::size_t bytes = strlen(text) + 1;
        return AddNumber(static_cast<u32>(bytes)) && Add(text, bytes);
    }
    // To be called once all is there.
    [[nodiscard]] int Send() {
        const i32 size = static_cast<i32>(size_);
        memcpy(bytes_ + offsetof(TNetBondStartHead, nSendLen), &size, sizeof(size));
        return CallForStatus(TESSEL_CMD_BOND_START, bytes_, size_);
    }

  private:
    u8 bytes_[TESSEL_PAYLOAD_MAX];
    std::size_t size_ = 0;
};

}  // namespace

int tessel_pppoe_start(int family, const TNetPppoeConf* conf) {
    Name interface = {};
    if (!IsFamilyOrBoth(family) || conf == nullptr ||
        memchr(conf->achDevName, '\0', sizeof(conf->achDevName)) == nullptr ||
        !StoreName(interface, conf->achDevName)) {
        return TESSEL_E_ARGUMENT;
    }
    const TNetPppoeStartReq request{.wSinFamily = static_cast<u16>(family), .tConf = *conf};
    return CallForStatus(TESSEL_CMD_PPPOE_START, request);
}

int tessel_pppoe_stop(int family) {
    if (!IsFamilyOrBoth(family)) return TESSEL_E_ARGUMENT;
    const TNetPppoeStopReq request{.wSinFamily = static_cast<u16>(family)};
    return CallForStatus(TESSEL_CMD_PPPOE_STOP, request);
}

int tessel_bond_start(uint32_t mode, const char* const* interfaces, size_t count, const char* active,
                      const char* path) {
    if (interfaces == nullptr || count == 0 || count > TESSEL_BOND_INTERFACES_MAX) return TESSEL_E_ARGUMENT;
    if (path == nullptr) path = "";
    const std::size_t pathBytes = strlen(path) + 1;
    const TNetBondStartHead head{.nSendLen = 0, .dwBondMode = mode, .nBondPathLen = static_cast<u32>(pathBytes)};
    BondRequest request;
    bool isWhole =
        request.Add(&head, sizeof(head)) && request.Add(path, pathBytes) && request.AddNumber(static_cast<u32>(count));
    Name checked = {};
    for (std::size_t i = 0; i < count; ++i)
        isWhole = isWhole && StoreName(checked, interfaces[i]) && request.AddText(interfaces[i]);
    isWhole = isWhole && StoreName(checked, active) && request.AddText(active);
    return isWhole ? request.Send() : TESSEL_E_ARGUMENT;
}

int tessel_bond_stop(void) {
    return CallForStatus(TESSEL_CMD_BOND_STOP);
}
