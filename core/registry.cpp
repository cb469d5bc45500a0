#include "core/registry.h"

#include <cerrno>

#include "core/log.h"
#include "core/memory.h"

IpcApiCommonHead g_tIpcApiCommonHead;

namespace {

constexpr i32 kNodeTag = 1;

class RegistryLock {
  public:
    explicit RegistryLock(IpcApiCommonHead* head) : head_(head) {
        while (sem_wait(&head_->semaphore) != 0 && errno == EINTR) {
        }
    }
    ~RegistryLock() {
        sem_post(&head_->semaphore);
    }
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;

  private:
    IpcApiCommonHead* head_;
};

GList* FindLink(IpcApiCommonHead* head, u32 type) {
    GList* link = g_list_first(head->list);
    while (link != nullptr && static_cast<IpcApiNode*>(link->data)->type != type)
        link = g_list_next(link);
    return link;
}

}  // namespace

void IpcApiInit(IpcApiCommonHead* head) {
    sem_init(&head->semaphore, 0, 1);
    head->list = nullptr;
}

i32 IpcApiRegister(IpcApiCommonHead* head, u32 type, IpcApiHandler handler) {
    tessel::HeapPtr<IpcApiNode> node(static_cast<IpcApiNode*>(xmalloc(kNodeTag, sizeof(IpcApiNode))));
    if (node == nullptr) {
        TESSEL_PERROR("XMALLOC error");
        return -1;
    }
    *node = {.type = type, .handler = handler};
    const RegistryLock lock(head);
    if (FindLink(head, type) != nullptr) {
        TESSEL_ERR("type %x node existed.", type);
        return -1;
    }
    head->list = g_list_append(head->list, node.release());
    if (head->list == nullptr) {
        TESSEL_ERR("register error!");
        return -1;
    }
    return 0;
}

i32 IpcApiUnRegister(IpcApiCommonHead* head, u32 type, IpcApiHandler /*handler*/) {
    const RegistryLock lock(head);
    GList* link = FindLink(head, type);
    if (link == nullptr) {
        TESSEL_ERR("type %x node isn't existed.", type);
        return -1;
    }
    free(link->data);
    head->list = g_list_delete_link(head->list, link);
    return 0;
}

IpcApiNode* IpcApiFindNode(IpcApiCommonHead* head, u32 type) {
    const RegistryLock lock(head);
    const GList* link = FindLink(head, type);
    return link == nullptr ? nullptr : static_cast<IpcApiNode*>(link->data);
}

i32 IpcApiRegisterOne(u32 type, IpcApiHandler handler) {
    return IpcApiRegister(&g_tIpcApiCommonHead, type, handler);
}
