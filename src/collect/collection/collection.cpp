// SPDX-License-Identifier: Apache-2.0
#include "collect/collection/collection.h"

#include <utility>

using namespace tavstrg;

namespace {

Collection *current = nullptr;

} // namespace

Collection::Collection() : outer_(std::exchange(current, this)), outerHosts_(exchangeSysHosts(&sysHosts)) {}

Collection::~Collection()
{
    release();
    current = outer_;
    exchangeSysHosts(outerHosts_);
}

void Collection::release()
{
    if (!released_) {
        released_ = true;
        FreeDeviceTable();
        FreeSCSIAndIDEInfoListFromProc();
        FreeControllerTable();
    }
}

Collection &tavstrg::collection()
{
    return *current;
}

Collection *tavstrg::currentCollection()
{
    return current;
}
