// SPDX-License-Identifier: Apache-2.0
#include "runtime/memory.h"

#include <cerrno>

using namespace tavstrg;

void *memalloc(int32_t size)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ size=[%d]", size);
    if (size <= 0) {
        return TRACED(nullptr, kFailure, "_OUT_ param(size=%d) Failure!!", size);
    }
    void *const adr = std::calloc(1, static_cast<size_t>(size));
    if (adr == nullptr) {
        const int error = errno;
        return TRACED(nullptr, kFailure, "_OUT_ adr is Null Failure!! errno=[%d]", error);
    }
    return TRACED(adr, kDetail, "_OUT_ adr=[%p]", adr);
}

void *memrealloc(void *ptr, int32_t size)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ realloc size=[%d] ptr=[%p]", size, ptr);
    if (size <= 0) {
        return TRACED(nullptr, kFailure, "_OUT_ param(size) Failure!!");
    }
    void *const adr = std::realloc(ptr, static_cast<size_t>(size));
    if (adr == nullptr) {
        const int error = errno;
        std::free(ptr); // deliberate: callers treat null as the loss of the whole block
        return TRACED(nullptr, kFailure, "_OUT_ adr is Null Failure!! errno=[%d]", error);
    }
    return TRACED(adr, kDetail, "_OUT_ adr=[%p]", adr);
}
