// SPDX-License-Identifier: Apache-2.0
// The allocator, and the product's blocks. Not interposed under the sanitizers, which have an allocator of their own.
#include "sim/blocks.h"
#include "sim/interpose.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <pthread.h>
#include <sys/mman.h>

using namespace sim;

namespace sim {

namespace {

// A hash set of addresses with open addressing. It maps its own pages, because it must not allocate.
class BlockSet {
public:
    void insert(uintptr_t block)
    {
        const Lock held;
        if (4 * (used_ + 1) > 3 * capacity_) {
            grow();
        }
        if (table_ != nullptr) {
            put(table_, capacity_, block);
            ++used_;
            ++live_;
        }
    }

    bool erase(uintptr_t block)
    {
        if (live_ == 0) { // the usual case for code that is not the product
            return false;
        }
        const Lock held;
        for (size_t at = home(block, capacity_); capacity_ != 0 && table_[at] != 0; at = (at + 1) & (capacity_ - 1)) {
            if (table_[at] == block) {
                table_[at] = kErased;
                --live_;
                return true;
            }
        }
        return false;
    }

    int64_t live() const { return live_; }

private:
    static constexpr uintptr_t kErased = 1;

    struct Lock {
        Lock()
        {
            while (busy_.exchange(true, std::memory_order_acquire)) {
                sched_yield();
            }
        }
        ~Lock() { busy_.store(false, std::memory_order_release); }
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;
    };

    static size_t home(uintptr_t block, size_t capacity)
    {
        return capacity == 0 ? 0 : (block >> 4) * 0x9E3779B97F4A7C15 & (capacity - 1);
    }

    static void put(uintptr_t *table, size_t capacity, uintptr_t block)
    {
        size_t at = home(block, capacity);
        while (table[at] > kErased) {
            at = (at + 1) & (capacity - 1);
        }
        table[at] = block;
    }

    void grow()
    {
        const size_t capacity = capacity_ == 0                               ? 4096
                                : 4 * static_cast<size_t>(live_) > capacity_ ? 2 * capacity_
                                                                             : capacity_;
        void *pages =
            mmap(nullptr, capacity * sizeof(uintptr_t), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) {
            return;
        }
        auto *table = static_cast<uintptr_t *>(pages);
        for (size_t i = 0; i < capacity_; ++i) {
            if (table_[i] > kErased) {
                put(table, capacity, table_[i]);
            }
        }
        if (table_ != nullptr) {
            munmap(table_, capacity_ * sizeof(uintptr_t));
        }
        table_ = table;
        capacity_ = capacity;
        used_ = static_cast<size_t>(live_);
    }

    static constinit std::atomic<bool> busy_;
    uintptr_t *table_ = nullptr;
    size_t capacity_ = 0;
    size_t used_ = 0; // entries that are not empty, including erased ones
    std::atomic<int64_t> live_{0};
};

constinit std::atomic<bool> BlockSet::busy_{false};
constinit BlockSet blocks;

} // namespace

void noteBlock(const void *block)
{
    if (block != nullptr && !kSanitized) {
        blocks.insert(reinterpret_cast<uintptr_t>(block));
    }
}

bool forgetBlock(const void *block)
{
    return block != nullptr && blocks.erase(reinterpret_cast<uintptr_t>(block));
}

int64_t liveBlocks()
{
    return blocks.live();
}

} // namespace sim

#if !SIM_SANITIZED

// The C library's allocator under other names that it exports. Looking up the real functions by name would itself
// allocate.
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);
extern "C" void __libc_free(void *block);

SIM_EXPORT void *simMalloc(size_t size) __asm__("malloc");
SIM_EXPORT void *simCalloc(size_t count, size_t size) __asm__("calloc");
SIM_EXPORT void *simRealloc(void *block, size_t size) __asm__("realloc");
SIM_EXPORT void simFree(void *block) __asm__("free");
SIM_EXPORT char *simStrdup(const char *text) __asm__("strdup");
SIM_EXPORT char *simStrndup(const char *text, size_t size) __asm__("strndup");

namespace {

void *noted(void *block, bool product)
{
    if (product) {
        noteBlock(block);
    }
    return block;
}

void *noMemory()
{
    return failedWith<void *>(ENOMEM, nullptr);
}

char *copyOf(const char *text, size_t length, bool product)
{
    auto *copy = static_cast<char *>(noted(__libc_malloc(length + 1), product));
    if (copy != nullptr) {
        std::memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

} // namespace

extern "C" void *simMalloc(size_t size)
{
    return SIM_FAILS(allocate, "malloc") ? noMemory() : noted(__libc_malloc(size), SIM_IS_PRODUCT("malloc"));
}

extern "C" void *simCalloc(size_t count, size_t size)
{
    return SIM_FAILS(allocate, "calloc") ? noMemory() : noted(__libc_calloc(count, size), SIM_IS_PRODUCT("calloc"));
}

extern "C" void *simRealloc(void *block, size_t size)
{
    if (SIM_FAILS(allocate, "realloc")) {
        return noMemory();
    }
    const bool product = SIM_IS_PRODUCT("realloc");
    const bool wasHeld = forgetBlock(block); // before another thread can get the same address
    void *moved = __libc_realloc(block, size);
    if (moved == nullptr && size != 0) { // the old block is still allocated
        noted(block, wasHeld);
        return nullptr;
    }
    return noted(moved, product);
}

extern "C" void simFree(void *block)
{
    forgetBlock(block);
    __libc_free(block);
}

extern "C" char *simStrdup(const char *text)
{
    return SIM_FAILS(allocate, "strdup") ? static_cast<char *>(noMemory())
                                         : copyOf(text, std::strlen(text), SIM_IS_PRODUCT("strdup"));
}

extern "C" char *simStrndup(const char *text, size_t size)
{
    return SIM_FAILS(allocate, "strndup") ? static_cast<char *>(noMemory())
                                          : copyOf(text, strnlen(text, size), SIM_IS_PRODUCT("strndup"));
}

// operator new. It calls malloc from the C++ library, whose calls never count, so calls of the product are counted
// here. With the empty name they do not count at all: tests use operator new, the product does not.
SIM_EXPORT void *simNew(size_t size) __asm__("_Znwm");
SIM_EXPORT void *simNewArray(size_t size) __asm__("_Znam");
SIM_EXPORT void *simNewQuiet(size_t size, const std::nothrow_t &) __asm__("_ZnwmRKSt9nothrow_t");
SIM_EXPORT void *simNewArrayQuiet(size_t size, const std::nothrow_t &) __asm__("_ZnamRKSt9nothrow_t");

namespace {

void *newBlock(size_t size, bool product)
{
    return noted(__libc_malloc(size == 0 ? 1 : size), product && countsOperatorNew());
}

} // namespace

extern "C" void *simNew(size_t size)
{
    void *block = countsOperatorNew() && SIM_FAILS(allocate, "operator new")
                      ? nullptr
                      : newBlock(size, SIM_IS_PRODUCT("operator new"));
    return block != nullptr ? block : throw std::bad_alloc();
}

extern "C" void *simNewArray(size_t size)
{
    void *block = countsOperatorNew() && SIM_FAILS(allocate, "operator new")
                      ? nullptr
                      : newBlock(size, SIM_IS_PRODUCT("operator new"));
    return block != nullptr ? block : throw std::bad_alloc();
}

extern "C" void *simNewQuiet(size_t size, const std::nothrow_t &)
{
    return countsOperatorNew() && SIM_FAILS(allocate, "operator new") ? nullptr
                                                                      : newBlock(size, SIM_IS_PRODUCT("operator new"));
}

extern "C" void *simNewArrayQuiet(size_t size, const std::nothrow_t &)
{
    return countsOperatorNew() && SIM_FAILS(allocate, "operator new") ? nullptr
                                                                      : newBlock(size, SIM_IS_PRODUCT("operator new"));
}

#endif
