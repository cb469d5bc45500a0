#include "core/memory.h"

#include "core/log.h"

void* xmalloc(i32 type, u32 size) {
    TESSEL_PRT("type=%d:[+]", type);
    return malloc(size);
}
