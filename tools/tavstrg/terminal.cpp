// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace tool {
namespace {

constexpr size_t kUsualWidth = 80;

} // namespace

size_t lineWidth(bool terminal, unsigned reported, const char *columns)
{
    if (!terminal || reported != 0) {
        return terminal ? reported : 0;
    }
    const std::string_view text = columns == nullptr ? "" : columns;
    unsigned short number = 0; // as wide as the kernel's own figure
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool usable = error == std::errc() && end == text.data() + text.size() && number > 0;
    return usable ? number : kUsualWidth;
}

size_t widthOf(int descriptor)
{
    winsize size{};
    const bool terminal = isatty(descriptor) == 1;
    const bool known = terminal && ioctl(descriptor, TIOCGWINSZ, &size) == 0;
    return lineWidth(terminal, known ? size.ws_col : 0, std::getenv("COLUMNS"));
}

} // namespace tool
