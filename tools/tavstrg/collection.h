// SPDX-License-Identifier: Apache-2.0
// One look at a machine's storage: the provider's answers, and beside them what its trace and the kernel add.
#pragma once

#include "tavstrg/inventory.h"
#include "tavstrg/readings.h"

#include "broker/broker.h"

namespace tool {

// What the provider's collection took and gave. readings has followed the provider's trace since it was loaded. Throws
// Failure; collection is set even then.
Inventory collectInventory(broker::Broker &broker, const SmartReadings &readings, Collection &collection);

} // namespace tool
