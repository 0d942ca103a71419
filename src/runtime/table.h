// SPDX-License-Identifier: Apache-2.0
// A table of plain entries in one block of memory, with a capacity that is set once.
#pragma once

#include "runtime/holders.h"
#include "runtime/memory.h"

#include <climits>
#include <cstddef>
#include <span>
#include <utility>

namespace tavstrg {

template <class T> class Table {
public:
    Table() = default;

    // Empties the table and makes room. Returns false, with an empty table without room, if memory is short.
    bool reserve(size_t capacity)
    {
        count_ = 0;
        capacity_ = 0;
        block_.reset(nullptr);
        if (capacity > static_cast<size_t>(INT32_MAX) / sizeof(T)) {
            return false;
        }
        block_.reset(memalloc(static_cast<int32_t>(capacity * sizeof(T))));
        capacity_ = block_ ? capacity : 0;
        return capacity == 0 || static_cast<bool>(block_);
    }
    // The next entry, all zero; null if there is no room.
    T *append() { return count_ == capacity_ ? nullptr : &block_[count_++]; }
    bool append(const T &entry)
    {
        T *const place = append();
        if (place != nullptr) {
            *place = entry;
        }
        return place != nullptr;
    }
    std::span<T> entries() { return {block_.get(), count_}; }
    std::span<const T> entries() const { return {block_.get(), count_}; }
    size_t size() const { return count_; }
    T &operator[](size_t i) { return block_[i]; }
    const T &operator[](size_t i) const { return block_[i]; }

private:
    HeapBlock<T> block_{nullptr};
    size_t count_ = 0;
    size_t capacity_ = 0;
};

} // namespace tavstrg
