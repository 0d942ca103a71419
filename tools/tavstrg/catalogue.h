// SPDX-License-Identifier: Apache-2.0
// The classes as a client knows them: names, properties, methods.
#pragma once

#include <cmpidt.h>

#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct PropertyEntry {
    std::string name;
    CMPIType type; // CMPI_chars for text
    bool key;
};

struct MethodEntry {
    std::string name;
    std::vector<std::string> arguments; // all of them text
};

struct ClassEntry {
    std::string name;
    std::vector<PropertyEntry> properties; // in the order in which the provider sets them
    std::vector<MethodEntry> methods;

    bool keyed() const;          // many instances, one for each value of the key; else a single instance without one
    std::string keyName() const; // "Index" or "DiskID"; empty without one
    std::string shortName() const;
};

// All of them: those with records, the thread's class, and TAV_StorageDisk, which the option every-disk switches on.
const std::vector<ClassEntry> &catalogue();

// By full or short name ("TAV_StorageHardDisk", "HardDisk"), without regard to case; null if there is none.
const ClassEntry *findClass(std::string_view given);

// By name without regard to case; null if the class has no such method.
const MethodEntry *findMethod(const ClassEntry &entry, std::string_view given);

// What a method takes for an argument: a decimal number from least to most.
struct NumberRange {
    int least;
    int most;
};
// By the exact name of an argument of a known method. Sent text that is no such number would be refused or, worse, read
// as another number by the provider.
NumberRange rangeOf(std::string_view argument);
bool isWithin(const NumberRange &range, std::string_view text);

// "uint16", "boolean" or "string", as the schema spells it.
std::string schemaType(CMPIType type);

} // namespace tool
