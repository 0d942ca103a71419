// SPDX-License-Identifier: Apache-2.0
// Requests to the provider, with failures in the tool's words.
#pragma once

#include "tavstrg/inventory.h"
#include "tavstrg/session.h"

#include "broker/broker.h"

#include <string>
#include <vector>

namespace tool {

// "TAV_StorageTape: NotFound Data (status 6)"; target is a class, or a class and a method with a dot between them.
std::string failureText(const std::string &target, int status, const std::string &message);

// The status of a method. The methods of the thread class return theirs as a value of a successful call.
int statusOf(const broker::Reply &reply);

// All instances. Throws Failure on any status but 0, so also for a class without instances.
std::vector<broker::Instance> askAll(broker::Broker &broker, const std::string &className);

// The instance with that Index, or the only one of a class without a key (index null). Throws Failure.
broker::Instance askOne(broker::Broker &broker, const std::string &className, const std::string *index);

// Everything that the tree shows, as it was at one moment: one request makes the provider collect and save, and the
// instances are read from what it saved. A class without instances is missing. The surroundings have a private copy.
// Throws Failure.
Answers askInventory(Session &session);

// The same while the monitoring thread runs: each class is asked for what the last pass has published, so a pass that
// ends meanwhile can change the later answers. Throws Failure.
Answers askPublished(broker::Broker &broker);

} // namespace tool
