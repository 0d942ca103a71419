// SPDX-License-Identifier: Apache-2.0
#include "sim/callers.h"

#include "sim/acting.h"
#include "sim/thread.h"

#include <array>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <mutex>
#include <string>
#include <string_view>
#include <unistd.h>
#include <unwind.h>

namespace sim {

namespace {

constexpr size_t kCallKinds = static_cast<size_t>(Call::count);

struct Range {
    uintptr_t begin, end;
};

// Executable segments of the code whose calls count. Never changed once published, because readers take no lock.
struct Ranges {
    std::array<Range, 64> range;
    size_t count;
    const Ranges *previous; // still reachable: a reader may be using it
    bool operator==(const Ranges &other) const
    {
        return count == other.count && std::memcmp(range.data(), other.range.data(), count * sizeof(Range)) == 0;
    }
};

constinit std::atomic<const Ranges *> counted{nullptr};
constinit std::array<std::atomic<unsigned>, kCallKinds> made{};
constinit std::array<std::atomic<unsigned>, kCallKinds> armed{}; // calls until the one that fails; 0: disarmed
constinit std::atomic<bool> failed{false};
constinit std::atomic<bool> everyCaller{false};

std::mutex &choosing()
{
    static std::mutex *mutex = new std::mutex; // never destroyed: destructors may still open a library
    return *mutex;
}

std::string &chosenObject()
{
    static auto *name = new std::string("libTAVStorageProvider.so");
    return *name;
}

std::string_view baseName(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);
}

// The C and C++ runtime. With the empty name its own calls do not count, those of its callers do.
bool isRuntime(std::string_view name)
{
    constexpr std::array<std::string_view, 11> kRuntime{"libc.",    "libstdc++.", "libm.",     "libgcc_s.",
                                                        "libasan.", "libtsan.",   "libubsan",  "ld-linux",
                                                        "libdl.",   "libpthread", "linux-vdso"};
    for (const std::string_view known : kRuntime) {
        if (name.starts_with(known)) {
            return true;
        }
    }
    return false;
}

struct Search {
    Ranges found{};
    std::string program;
};

bool holds(const dl_phdr_info &object, const void *address)
{
    const auto place = reinterpret_cast<uintptr_t>(address);
    for (size_t i = 0; i < object.dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = object.dlpi_phdr[i];
        const uintptr_t begin = object.dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_LOAD && place >= begin && place < begin + segment.p_memsz) {
            return true;
        }
    }
    return false;
}

int visitObject(dl_phdr_info *object, size_t, void *context)
{
    auto &search = *static_cast<Search *>(context);
    const std::string_view path = object->dlpi_name != nullptr ? object->dlpi_name : "";
    const std::string_view name = path.empty() ? std::string_view(search.program) : baseName(path);
    const std::string &chosen = chosenObject();
    if (chosen.empty() ? isRuntime(name) || holds(*object, &made) : name != chosen) {
        return 0;
    }
    for (size_t i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = object->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 &&
            search.found.count < search.found.range.size()) {
            const uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
            search.found.range[search.found.count++] = {begin, begin + segment.p_memsz};
        }
    }
    return 0;
}

bool isCounted(uintptr_t address)
{
    const Ranges *ranges = counted.load(std::memory_order_acquire);
    for (size_t i = 0; ranges != nullptr && i < ranges->count; ++i) {
        if (address >= ranges->range[i].begin && address < ranges->range[i].end) {
            return true;
        }
    }
    return false;
}

// Finds the caller behind the sanitizers' interceptors.
struct Unwinding {
    const char *function;
    uintptr_t caller;
    int frames;
};

bool isInterceptor(uintptr_t address, const char *function)
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(address), &info) == 0) {
        return false;
    }
    const std::string_view object = baseName(info.dli_fname != nullptr ? info.dli_fname : "");
    const std::string_view symbol = info.dli_sname != nullptr ? info.dli_sname : "";
    Dl_info own{};
    dladdr(&made, &own);
    return info.dli_fbase == own.dli_fbase || object.starts_with("libasan.") || object.starts_with("libtsan.") ||
           object.starts_with("libubsan.") || symbol == function || symbol.find("interceptor_") != symbol.npos;
}

_Unwind_Reason_Code visitFrame(_Unwind_Context *frame, void *context)
{
    constexpr int kDeepest = 12;
    auto &unwinding = *static_cast<Unwinding *>(context);
    const uintptr_t address = _Unwind_GetIP(frame);
    if (address == 0 || ++unwinding.frames > kDeepest) {
        return _URC_END_OF_STACK;
    }
    if (isInterceptor(address - 1, unwinding.function)) {
        return _URC_NO_REASON;
    }
    unwinding.caller = address;
    return _URC_END_OF_STACK;
}

[[gnu::constructor]] void seeLoadedObjects()
{
    objectsChanged();
}

} // namespace

void objectsChanged()
{
    const Inside inside;
    const std::lock_guard held(choosing());
    Search search;
    char program[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program);
    search.program = baseName({program, length > 0 ? static_cast<size_t>(length) : 0});
    dl_iterate_phdr(visitObject, &search);
    const Ranges *before = counted.load(std::memory_order_relaxed);
    if (before == nullptr || !(*before == search.found)) {
        search.found.previous = before;
        counted.store(new Ranges(search.found), std::memory_order_release);
    }
}

bool isProduct(const void *returnAddress, const char *function)
{
    const Ranges *ranges = counted.load(std::memory_order_acquire);
    if (ranges == nullptr || ranges->count == 0 || thisThread.inside != 0) {
        return false;
    }
    if (kSanitized) {
        Unwinding unwinding{function, 0, 0};
        const Inside inside;
        _Unwind_Backtrace(visitFrame, &unwinding);
        return isCounted(unwinding.caller);
    }
    return isCounted(reinterpret_cast<uintptr_t>(returnAddress));
}

bool mustFail(Call kind, const void *returnAddress, const char *function)
{
    if (!isProduct(returnAddress, function)) {
        return false;
    }
    runActBefore(kind);
    const auto index = static_cast<size_t>(kind);
    made[index].fetch_add(1, std::memory_order_relaxed);
    unsigned left = armed[index].load(std::memory_order_relaxed);
    while (left != 0 && !armed[index].compare_exchange_weak(left, left - 1)) {
    }
    if (left == 1) {
        failed = true;
    }
    return left == 1;
}

void countCallsOf(const std::string &sharedObject)
{
    {
        const Inside inside;
        const std::lock_guard held(choosing());
        chosenObject() = sharedObject;
        everyCaller = sharedObject.empty();
    }
    objectsChanged();
}

void failNth(Call kind, unsigned nth)
{
    if (kind < Call::count) {
        failed = false;
        armed[static_cast<size_t>(kind)] = nth;
    }
}

bool failureStruck()
{
    return failed;
}

unsigned callsMade(Call kind)
{
    return kind < Call::count ? made[static_cast<size_t>(kind)].load() : 0;
}

void resetCounts()
{
    for (std::atomic<unsigned> &count : made) {
        count = 0;
    }
}

bool countsOperatorNew()
{
    return !everyCaller.load(std::memory_order_relaxed);
}

bool allocationsCanFail()
{
    return !kSanitized;
}

} // namespace sim
