// SPDX-License-Identifier: Apache-2.0
#include "runtime/holders.h"

#include <cerrno>

using namespace tavstrg;

DirListing::DirListing(const char *path)
{
    count_ = ::scandir(path, &entries_, nullptr, ::alphasort);
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
