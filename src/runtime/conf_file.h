// SPDX-License-Identifier: Apache-2.0
// The agent's configuration file: where the agent is installed.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

// Value of a key of "/etc/tavkit/tavkit.conf", a stream of whitespace-separated tokens taken two at a time. Copies it
// with its terminator into value, which must hold size + 1 bytes: size is compared with the length without the
// terminator. Returns the length; 0 if the key is absent or value is null; the negated length if it does not fit.
// Of the file the
// first kConfBytesMax bytes are read. Without a file the result is the default root, whatever the name.
int get_TavEnv(const char *name, char *value, int size);

// The agent's root directory without a trailing slash; path must hold size + 1 bytes. Returns the length; a negative
// number if it does not fit; 0 if path is null.
int get_TavRootPath(char *path, int size);

namespace tavstrg {

constexpr char kDefaultRoot[] = "/opt/qlm/tavkit_sa"; // 18 characters

constexpr size_t kConfTokenMax = 511;             // characters of one token; the rest of a longer one is the next token
constexpr size_t kConfBytesMax = size_t{1} << 20; // of the file; the rest of a larger one is not read

// The agent's root directory as get_TavRootPath finds it, without a trace line, into path, which holds more than
// kDefaultRoot: the default root where the configured one does not fit.
void findRootPath(std::span<char> path);

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

} // namespace tavstrg
