#include <cerrno>
#include <cstring>
#include <utility>

#include "core/api_reply.h"
#include "core/log.h"
#include "core/payload_cursor.h"
#include "services/bond.h"

using tessel::ApiReplyStatus;
using tessel::CallSite;

namespace {

constexpr i32 kTextTag = 3;

// Reads a start request part by part, and logs what it reads.
class BondRequestReader {
  public:
    BondRequestReader(const void* payload, i32 size, CallSite where)
        : cursor_(payload, size), size_(size), where_(where) {}

    // False with a log line: not as long as it says or as its parts say, or no memory. If there are more interfaces
    // than a bond can have, only their number is read.
    [[nodiscard]] bool Read(u32& mode, TBondParam& parameters) {
        TNetBondStartHead head{};
        if (!cursor_.Read(head) || head.nSendLen != size_) return RefuseSize();
        TESSEL_PRT_AT(where_, "nSendLen : %d", head.nSendLen);
        TESSEL_PRT_AT(where_, "dwBondMode : %d", static_cast<i32>(head.dwBondMode));
        TESSEL_PRT_AT(where_, "nBondPathLen : %d", static_cast<i32>(head.nBondPathLen));
        mode = head.dwBondMode;
        if (!ReadText(head.nBondPathLen, parameters.pchBondPath)) return false;
        TESSEL_PRT_AT(where_, "tBondParam.pchBondPath : %s", parameters.pchBondPath.get());
        if (!cursor_.Read(parameters.dwIfaceNum)) return RefuseSize();
        TESSEL_PRT_AT(where_, "tBondParam.dwIfaceNum : %d", static_cast<i32>(parameters.dwIfaceNum));
        return parameters.dwIfaceNum > TESSEL_BOND_INTERFACES_MAX || ReadNames(parameters);
    }

  private:
    bool ReadNames(TBondParam& parameters) {
        u32 length = 0;
        for (u32 i = 0; i < parameters.dwIfaceNum; ++i) {
            if (!cursor_.Read(length)) return RefuseSize();
            TESSEL_PRT_AT(where_, "%u nIfaceLen : %d", i, static_cast<i32>(length));
            if (!ReadText(length, parameters.achIface[i])) return false;
            TESSEL_PRT_AT(where_, "tBondParam.achIface[%u] : %s", i, parameters.achIface[i].get());
        }
        if (!cursor_.Read(length)) return RefuseSize();
        TESSEL_PRT_AT(where_, "active interface nIfaceLen : %d", static_cast<i32>(length));
        if (!ReadText(length, parameters.pchActiveIface)) return false;
        TESSEL_PRT_AT(where_, "tBondParam.pchActiveIface : %s", parameters.pchActiveIface.get());
        return true;
    }

    // The text is terminated whatever the sender did.
    bool ReadText(u32 length, tessel::HeapPtr<char>& text) {
        if (length > cursor_.Left()) return RefuseSize();
        text.reset(static_cast<char*>(xmalloc(kTextTag, length + 1)));
        if (text == nullptr) {
            TESSEL_ERR_AT(where_, "MTYPE_BOND XMALLOC error %d : %s !", errno, strerror(errno));
            return false;
        }
        return cursor_.ReadText(length, {text.get(), length + 1});
    }

    bool RefuseSize() {
        TESSEL_ERR_AT(where_, "the receive buffer size is error!");
        return false;
    }

    tessel::PayloadCursor cursor_;
    i32 size_;
    CallSite where_;
};

}  // namespace

i32 ApidBondStart(int fd, u32 type, const void* payload, i32 size) {
    u32 mode = 0;
    TBondParam parameters;
    if (!BondRequestReader(payload, size, CallSite::Current()).Read(mode, parameters)) return -1;
    TESSEL_PRT("bond start...!");
    return ApiReplyStatus(fd, type, BondStart(mode, std::move(parameters)), "BondStart error!");
}

i32 ApidBondStop(int fd, u32 type, const void* /*payload*/, i32 /*size*/) {
    return ApiReplyStatus(fd, type, BondStop(), "bond_stop stop error!");
}
