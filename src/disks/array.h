// SPDX-License-Identifier: Apache-2.0
// The engine's only container.
#pragma once

#include "runtime/memory.h"

#include <cstdint>
#include <cstdlib>
#include <type_traits>
#include <utility>

namespace tavstrg::disks {

// An array that grows as it is filled, in one block from memrealloc.
template <class Entry> class Array {
    static_assert(std::is_trivial_v<Entry>);

public:
    Array() = default;
    ~Array() { clear(); }
    Array(const Array &) = delete;
    Array &operator=(const Array &) = delete;
    Array(Array &&other) noexcept
        : entries_(std::exchange(other.entries_, nullptr)), count_(std::exchange(other.count_, 0)),
          capacity_(std::exchange(other.capacity_, 0))
    {
    }
    Array &operator=(Array &&other) noexcept
    {
        std::swap(entries_, other.entries_);
        std::swap(count_, other.count_);
        std::swap(capacity_, other.capacity_);
        return *this;
    }
    // A zero-filled entry at the end, valid until the next append. Null if memory is short; the array is empty then.
    Entry *append()
    {
        if (count_ == capacity_ && !grow()) {
            return nullptr;
        }
        Entry *const entry = &entries_[count_++];
        *entry = Entry{};
        return entry;
    }
    // Drops all entries from position count on.
    void shrink(int32_t count) { count_ = count < count_ ? count : count_; }
    int32_t count() const { return count_; }
    bool empty() const { return count_ == 0; }
    Entry &operator[](int32_t i) { return entries_[i]; }
    const Entry &operator[](int32_t i) const { return entries_[i]; }
    Entry *begin() { return entries_; }
    Entry *end() { return entries_ + count_; }
    const Entry *begin() const { return entries_; }
    const Entry *end() const { return entries_ + count_; }
    void clear()
    {
        std::free(std::exchange(entries_, nullptr));
        count_ = capacity_ = 0;
    }

private:
    static constexpr int32_t kFirstCapacity = 16;

    bool grow()
    {
        constexpr int32_t kMostEntries = INT32_MAX / static_cast<int32_t>(sizeof(Entry)) / 2;
        const int32_t wanted = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
        if (capacity_ > kMostEntries) {
            clear();
            return false;
        }
        entries_ = static_cast<Entry *>(memrealloc(entries_, wanted * static_cast<int32_t>(sizeof(Entry))));
        capacity_ = entries_ == nullptr ? 0 : wanted;
        count_ = entries_ == nullptr ? 0 : count_;
        return entries_ != nullptr;
    }

    Entry *entries_ = nullptr;
    int32_t count_ = 0;
    int32_t capacity_ = 0;
};

} // namespace tavstrg::disks
