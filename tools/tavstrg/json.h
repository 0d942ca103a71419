// SPDX-License-Identifier: Apache-2.0
// Everything as JSON for programs. A field that a kind of thing has is always there, null where there is nothing to
// say.
#pragma once

#include "tavstrg/catalogue.h"
#include "tavstrg/inventory.h"
#include "tavstrg/metrics.h"

#include <string>
#include <vector>

namespace tool {

// Each is a document of its own, which ends in a newline.
std::string inventoryJson(const Inventory &inventory);
std::string instancesJson(const std::string &className, const std::vector<broker::Instance> &instances);
std::string instanceJson(const std::string &className, const broker::Instance &instance);
std::string returnValuesJson(const std::string &className, const std::string &method,
                             const std::vector<broker::Value> &values);
std::string catalogueJson(const std::vector<ClassEntry> &classes);
std::string metricsJson(const std::vector<Metric> &metrics);

// For standard error, in one line: why a command failed. cimStatus is the status with which the provider refused a
// request, 0 when it refused none. error has one message a line.
std::string failureJson(const char *command, int exitStatus, int cimStatus, const std::string &error);
// For standard error, in one line: information for people.
std::string noteJson(const char *command, const std::string &note);

} // namespace tool
