// SPDX-License-Identifier: Apache-2.0
// The agent's configuration file: a piece of it and the whole of it say the same.
#include "fuzz/fuzz.h"
#include "fuzz/machine.h"
#include "runtime/conf_file.h"

#include <algorithm>
#include <memory>

using namespace tavstrg;

using fuzz::require;

namespace {

constexpr const char *kKey = "TavDir";
constexpr size_t kPieces[] = {1, 7, 511, 512, 4096};

ConfSearch searched(std::string_view text, size_t piece)
{
    ConfSearch search(kKey);
    for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) {
        search.feed(text.substr(0, piece));
    }
    search.finish();
    require(search.value().size() <= kConfTokenMax, "a value is cut to a token");
    return search;
}

// The value of the file by way of a buffer for size characters.
void checkFile(const ConfSearch &whole, int size)
{
    const std::unique_ptr<char[]> value(new char[static_cast<size_t>(size) + 1]);
    const int length = get_TavEnv(kKey, value.get(), size);
    const int expected = whole.found() ? static_cast<int>(whole.value().size()) : 0;
    require(length == (expected > size ? -expected : expected), "the length is told, negated when it does not fit");
    require(length <= 0 || std::string_view(value.get()) == whole.value().substr(0, whole.value().find('\0')),
            "the value is the file's");
}

void checkRoot(int size)
{
    const std::unique_ptr<char[]> path(new char[static_cast<size_t>(size) + 1]);
    const int length = get_TavRootPath(path.get(), size);
    require(length <= size, "a path fits its buffer");
    require(length <= 0 || std::memchr(path.get(), '\0', static_cast<size_t>(length) + 1) != nullptr,
            "a path is terminated");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view content = fuzz::textOf({data, size});
    const ConfSearch whole = searched(content, std::max<size_t>(size, 1));
    for (const size_t piece : kPieces) {
        const ConfSearch pieces = searched(content, piece);
        require(pieces.found() == whole.found() && (!whole.found() || pieces.value() == whole.value()),
                "pieces are read as the whole");
    }
    static fuzz::FuzzedMachine machine;
    machine.file("/etc/tavkit/tavkit.conf", content);
    for (const int room : {0, 17, 18, 511, 512}) {
        checkFile(whole, room);
        checkRoot(room);
    }
    machine.requireAllClosed();
    return 0;
}
