// SPDX-License-Identifier: Apache-2.0
// The configuration file's text as it is looked through: a stream of tokens, whatever the lines.
#pragma once

#include <cstddef>
#include <string_view>

constexpr size_t kConfTokenMax = 511; // characters of one token; what is longer goes on as the next token

// Looks for the first value of a key in whitespace-separated tokens that are taken two at a time, key then value. Keys
// compare without regard to case. A last token without a partner counts for nothing.
class ConfSearch {
public:
    // A null name is found nowhere; name must outlive the search.
    explicit ConfSearch(const char *name) : name_(name) {}
    // The stream's next characters, in pieces of any size.
    void feed(std::string_view text);
    // The stream's end, which ends its last token.
    void finish();
    bool found() const { return found_; }
    // The value found, up to kConfTokenMax characters.
    std::string_view value() const { return value_; }

private:
    void endToken();

    const char *name_;
    char key_[kConfTokenMax + 1] = "";
    char value_[kConfTokenMax + 1] = "";
    size_t length_ = 0; // of the token that is being read
    bool atValue_ = false;
    bool found_ = false;
};
