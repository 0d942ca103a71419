// SPDX-License-Identifier: Apache-2.0
#include "sim/redirect.h"

#include "sim/api.h"

#include <atomic>
#include <cstring>

namespace sim {
namespace {

// Lists stay: another thread may still read the previous one.
struct Kept {
    std::vector<Redirection> redirections;
    const Kept *before;
};
constinit const Kept *kept = nullptr;
constinit std::atomic<const std::vector<Redirection> *> currentRedirections{nullptr};

// "/a/b" applies to itself, to "/a/b/c" and to "/a/b.tmp", not to "/a/bc".
bool applies(std::string_view from, std::string_view path)
{
    return path.starts_with(from) &&
           (path.size() == from.size() || path[from.size()] == '/' || path[from.size()] == '.');
}

} // namespace

void redirect(std::vector<Redirection> redirections)
{
    if (redirections.empty()) {
        currentRedirections.store(nullptr);
        return;
    }
    kept = new Kept{std::move(redirections), kept};
    currentRedirections.store(&kept->redirections);
}

bool redirected(const char *path, char *buffer, size_t size)
{
    const std::vector<Redirection> *list = currentRedirections.load(std::memory_order_acquire);
    if (list == nullptr || path == nullptr) {
        return false;
    }
    const std::string_view text = path;
    for (const Redirection &one : *list) {
        if (!applies(one.from, text)) {
            continue;
        }
        const std::string_view rest = text.substr(one.from.size());
        if (one.to.size() + rest.size() >= size) {
            return false;
        }
        std::memcpy(buffer, one.to.data(), one.to.size());
        std::memcpy(buffer + one.to.size(), rest.data(), rest.size());
        buffer[one.to.size() + rest.size()] = '\0';
        return true;
    }
    return false;
}

} // namespace sim
