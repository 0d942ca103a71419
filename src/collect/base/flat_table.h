// SPDX-License-Identifier: Apache-2.0
// How the flat tables of a collection are allocated, filled and freed.
#pragma once

#include "runtime/memory.h"

#include <cstdint>
#include <limits>

namespace tavstrg {

constexpr uint16_t kUnknownWord = 0xFFFF;
constexpr char kNotSupported[] = "Not Supported"; // a text without a source
constexpr uint64_t kUnknownValue = 0xFFFFFFFF;    // deliberate: 32 bits set in a 64-bit field

// A zeroed table of capacity entries. An empty one is null and needs no memory. 0, or -1 with the table null.
template <class Entry> int allocateTable(Entry *&table, int32_t capacity)
{
    table = nullptr;
    if (capacity == 0) {
        return 0;
    }
    if (capacity < 0 || static_cast<size_t>(capacity) > std::numeric_limits<int32_t>::max() / sizeof(Entry)) {
        return -1;
    }
    table = static_cast<Entry *>(memalloc(static_cast<int32_t>(sizeof(Entry)) * capacity));
    return table == nullptr ? -1 : 0;
}

// The one way into a table. False, with nothing written, when the table is full: the machine or an administrator file
// changed between counting and building, and the collection fails.
template <class Entry> bool appendEntry(Entry *table, int32_t capacity, int32_t &count, const Entry &entry)
{
    if (table == nullptr || count >= capacity) {
        return false;
    }
    table[count++] = entry;
    return true;
}

// For tables whose final size is not known beforehand: makes room first. False if memory is short; the table is then
// lost, null and empty.
template <class Entry> bool growAndAppend(Entry *&table, int32_t &capacity, int32_t &count, const Entry &entry)
{
    if (table == nullptr || count >= capacity) {
        constexpr auto kMaxCapacity = static_cast<int32_t>(std::numeric_limits<int32_t>::max() / sizeof(Entry));
        const int32_t grown = table == nullptr ? 4 : capacity > kMaxCapacity / 2 ? kMaxCapacity : capacity * 2;
        if (grown <= count) {
            return false;
        }
        table = static_cast<Entry *>(memrealloc(table, static_cast<int32_t>(sizeof(Entry)) * grown));
        capacity = table == nullptr ? 0 : grown;
        count = table == nullptr ? 0 : count;
    }
    return appendEntry(table, capacity, count, entry);
}

// A list in one block that is freed at the end of its scope.
template <class Entry> struct ListHolder {
    ListHolder() = default;
    explicit ListHolder(void *block) : entries(static_cast<Entry *>(block)) {}
    ~ListHolder() { release(); }
    ListHolder(const ListHolder &) = delete;
    ListHolder &operator=(const ListHolder &) = delete;
    void release()
    {
        if (entries != nullptr) {
            memfree(entries);
        }
        count = 0;
    }

    Entry *entries = nullptr;
    int32_t count = 0;
};

} // namespace tavstrg
