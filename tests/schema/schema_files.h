// SPDX-License-Identifier: Apache-2.0
// The files of schema/ and what they are compared with.
#pragma once

#include "schema/mof.h"

#include "classes/disk_properties.h"
#include "records/records.h"

#include <string>
#include <vector>

using namespace tavstrg;

namespace schema_files {

constexpr const char *kThreadClass = "TAV_StorageThread";

// Text of a file of the source tree; a missing one fails the test.
std::string fileText(const std::string &relative);

const std::vector<mof::Class> &schema();
const mof::Class &schemaClass(const std::string &name); // throws when there is none

// The classes as the provider describes them.
std::vector<std::string> classNames();
std::vector<FieldDesc> publishedFields(const ClassDesc &desc);

struct Described {
    std::string where;
    mof::Qualifiers qualifiers;
};

// Everything in the schema that can carry qualifiers.
std::vector<Described> everything();

// "type name" of each, as it would be declared.
std::vector<std::string> declared(const std::vector<mof::Property> &properties);
std::vector<std::string> declared(const std::vector<mof::Method> &methods);

} // namespace schema_files
