// Everything as JSON for programs. Each document has "formatVersion"; it changes when a name or a meaning does, not
// when something is added.
#pragma once

#include "catalogue.h"
#include "inventory.h"

#include <string>
#include <vector>

namespace tool {

constexpr int kJsonFormatVersion = 1;

// Each ends in a newline. Bytes that are no UTF-8 become U+FFFD.
std::string inventoryJson(const Inventory &inventory);
std::string instancesJson(const std::string &className, const std::vector<broker::Instance> &instances);
std::string instanceJson(const std::string &className, const broker::Instance &instance);
std::string returnValuesJson(const std::string &className, const std::string &method,
                             const std::vector<broker::Value> &values);
std::string catalogueJson(const std::vector<ClassEntry> &classes);

} // namespace tool
