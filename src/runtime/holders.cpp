// SPDX-License-Identifier: Apache-2.0
#include "runtime/holders.h"

#include <cerrno>
#include <cstring>

using namespace tavstrg;

namespace {

// By bytes, whatever the process's locale: processes that share segments must number devices alike. alphasort compares
// by LC_COLLATE.
int compareNames(const dirent **left, const dirent **right)
{
    return std::strcmp((*left)->d_name, (*right)->d_name);
}

} // namespace

DirListing::DirListing(const char *path, Filter filter)
{
    count_ = ::scandir(path, &entries_, filter, compareNames);
    error_ = count_ < 0 ? errno : 0;
}

DirListing::~DirListing()
{
    for (int i = 0; i < count_; ++i) {
        std::free(entries_[i]);
    }
    if (count_ >= 0) {
        std::free(entries_);
    }
}
