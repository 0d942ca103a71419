// SPDX-License-Identifier: Apache-2.0
#include "runtime/conf_tokens.h"

#include <strings.h>

void ConfSearch::feed(std::string_view text)
{
    constexpr std::string_view whitespace = " \t\n\v\f\r";
    for (const char c : text) {
        if (found_) {
            return;
        }
        if (whitespace.find(c) != std::string_view::npos) {
            endToken();
            continue;
        }
        (atValue_ ? value_ : key_)[length_++] = c;
        if (length_ == kConfTokenMax) {
            endToken();
        }
    }
}

void ConfSearch::finish()
{
    if (!found_) {
        endToken();
    }
}

void ConfSearch::endToken()
{
    if (length_ == 0) {
        return;
    }
    (atValue_ ? value_ : key_)[length_] = '\0';
    length_ = 0;
    found_ = atValue_ && name_ != nullptr && ::strcasecmp(key_, name_) == 0;
    atValue_ = !atValue_;
}
