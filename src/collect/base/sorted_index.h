// SPDX-License-Identifier: Apache-2.0
// Looking up the entries of a list by a key, without walking the list.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace tavstrg {

// Positions of a list's entries in the order of their keys. It holds no part of the list; after a change of the list it
// is built again.
template <class Key> class SortedIndex {
    static_assert(std::is_trivial_v<Key>);

public:
    SortedIndex() = default;
    ~SortedIndex() { clear(); }
    SortedIndex(const SortedIndex &) = delete;
    SortedIndex &operator=(const SortedIndex &) = delete;

    // Room for the keys of count entries: false if memory is short. Not from memalloc, whose trace lines would report
    // blocks that hold no data of the collection.
    bool reserve(int32_t count)
    {
        clear();
        items_ = count <= 0 ? nullptr : static_cast<Item *>(std::calloc(static_cast<size_t>(count), sizeof(Item)));
        return count <= 0 || items_ != nullptr;
    }
    // The key of the next entry, at most as many as there is room for.
    void add(const Key &key)
    {
        items_[count_] = {key, count_};
        ++count_;
    }
    // After the last add. less(a, b): whether key a comes before key b.
    template <class Less> void sort(Less less)
    {
        std::sort(items_, items_ + count_, [&](const Item &a, const Item &b) {
            return less(a.key, b.key) || (!less(b.key, a.key) && a.position < b.position);
        });
    }
    // Position of the first entry with a key; -1 if there is none.
    template <class Less> int32_t find(const Key &key, Less less) const
    {
        const Item *const found = std::lower_bound(
            items_, items_ + count_, key, [&](const Item &item, const Key &wanted) { return less(item.key, wanted); });
        return found == items_ + count_ || less(key, found->key) ? -1 : found->position;
    }
    void clear()
    {
        std::free(items_);
        items_ = nullptr;
        count_ = 0;
    }

private:
    struct Item {
        Key key;
        int32_t position;
    };
    Item *items_ = nullptr;
    int32_t count_ = 0;
};

} // namespace tavstrg
