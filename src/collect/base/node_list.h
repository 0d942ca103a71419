// SPDX-License-Identifier: Apache-2.0
// Owners of what a discovery builds: whatever ends the building early, what was built is released.
#pragma once

#include "runtime/memory.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace tavstrg {

// Frees every node of a list and nulls its head.
template <class Node> void freeNodes(Node *&head)
{
    while (head != nullptr) {
        Node *node = std::exchange(head, head->next);
        memfree(node);
    }
}

// A list under construction, in the order of appending. Freed unless handed over.
template <class Node> class NodeList {
    static_assert(std::is_trivial_v<Node>);

public:
    NodeList() = default;
    ~NodeList() { release(); }
    NodeList(const NodeList &) = delete;
    NodeList &operator=(const NodeList &) = delete;
    // A zero-filled node at the tail, or null if memory is short.
    Node *append()
    {
        auto *const node = static_cast<Node *>(memalloc(sizeof(Node)));
        if (node != nullptr) {
            (tail_ == nullptr ? head_ : tail_->next) = node;
            tail_ = node;
            ++count_;
        }
        return node;
    }
    Node *head() const { return head_; }
    int32_t count() const { return count_; }
    void release()
    {
        freeNodes(head_);
        tail_ = nullptr;
        count_ = 0;
    }
    Node *handOver()
    {
        tail_ = nullptr;
        return std::exchange(head_, nullptr);
    }

private:
    Node *head_ = nullptr;
    Node *tail_ = nullptr;
    int32_t count_ = 0;
};

// An array that grows as it is filled, in one block from memrealloc. Freed unless handed over.
template <class Entry> class GrowingArray {
    static_assert(std::is_trivial_v<Entry>);

public:
    GrowingArray() = default;
    ~GrowingArray() { release(); }
    GrowingArray(const GrowingArray &) = delete;
    GrowingArray &operator=(const GrowingArray &) = delete;
    // A zero-filled entry at the end; null if memory is short, and then what was there is lost.
    Entry *append()
    {
        if (count_ == capacity_ && !grow()) {
            return nullptr;
        }
        Entry *const entry = &entries_[count_++];
        *entry = Entry{};
        return entry;
    }
    int32_t count() const { return count_; }
    const Entry &operator[](int32_t i) const { return entries_[i]; }
    Entry *handOver() { return std::exchange(entries_, nullptr); }
    void release()
    {
        if (entries_ != nullptr) {
            memfree(entries_);
        }
        count_ = capacity_ = 0;
    }

private:
    static constexpr int32_t kFirstCapacity = 16;

    bool grow()
    {
        constexpr int32_t kMostEntries = INT32_MAX / static_cast<int32_t>(sizeof(Entry)) / 2;
        const int32_t wanted = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
        if (capacity_ > kMostEntries) {
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

} // namespace tavstrg
