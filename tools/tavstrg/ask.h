// SPDX-License-Identifier: Apache-2.0
// Requests to the provider, with failures as the tool tells them.
#pragma once

#include "tavstrg/inventory.h"

#include "broker/broker.h"

#include <string>
#include <vector>

namespace tool {

// "TAV_StorageTape: NotFound Data (status 6)"; target is a class, or a class and a method with a dot between them.
std::string failureText(const std::string &target, int status, const std::string &message);

// What a method came to. The thread's methods tell their outcome as a return value and call themselves successful, the
// others by the status.
int statusOf(const broker::Reply &reply);

// All instances; throws Failure on any status but 0, so also for a class without instances.
std::vector<broker::Instance> askAll(broker::Broker &broker, const std::string &className);

// The instance with that Index, or the only one of a class without a key (index null). Throws Failure.
broker::Instance askOne(broker::Broker &broker, const std::string &className, const std::string *index);

// Everything that the tree shows; a class without instances is an empty part of it. Throws Failure.
Answers askInventory(broker::Broker &broker);

} // namespace tool
