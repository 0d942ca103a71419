// SPDX-License-Identifier: Apache-2.0
// The provider's only source of heap memory. No container that throws when memory is short is used above it.
#pragma once

#include "runtime/trace.h"

#include <cstdint>
#include <cstdlib>

// Zero-filled block of size bytes, or null when size is not positive or memory is short. The caller frees it (memfree).
void *memalloc(int32_t size);
// Block resized to size bytes; the added tail is not zeroed. Null with ptr untouched when size is not positive; null
// with the old block FREED when memory is short: callers treat null as the loss of the whole block.
void *memrealloc(void *ptr, int32_t size);

namespace tavstrg {

// Frees a block and nulls the pointer.
template <class T> void memfree(T *&ptr, int line = __builtin_LINE())
{
    if (ptr == nullptr) {
        traceLine(kDetail, line, "memfree already NULL");
        return;
    }
    traceLine(kDetail, line, "memfree(%p)", static_cast<const void *>(ptr));
    std::free(const_cast<void *>(static_cast<const void *>(ptr)));
    ptr = nullptr;
}

} // namespace tavstrg
