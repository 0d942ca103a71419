// SPDX-License-Identifier: Apache-2.0
// The header sets of brokers, made of the table of interface facts.
#pragma once

#include "../cmpi_abi/table.h"

namespace cmpi {

struct Header {
    std::string name, text;
};

struct Member {
    std::string name, type; // of a slot: its function type
    bool slot;
    int offset;
};

struct Structure {
    std::string name;
    std::vector<Member> members; // by offset
    bool isUnion() const;
};

// The table by what a header declares.
class Facts {
public:
    explicit Facts(std::vector<Row> rows);
    bool empty() const { return rows_.empty(); }
    const std::vector<Row> &rows() const { return rows_; }
    std::vector<Row> of(const std::string &kind) const;
    const std::vector<Structure> &structures() const { return structures_; }
    // The function type of a slot: throws std::out_of_range when the table has no such slot.
    std::string slotType(const std::string &table, const std::string &slot) const;

private:
    std::vector<Row> rows_;
    std::vector<Structure> structures_;
};

// Declarations, in C.
std::string scalarTypes(const Facts &facts);
std::string enumerations(const Facts &facts);
std::string constants(const Facts &facts);
std::string forwardDeclarations(const Facts &facts);
// The values are CMPIValuePtr, CMPIValue, CMPIData and CMPIStatus; the others are objects and tables.
enum class Part { values, objectsAndTables };
std::string definitions(const Facts &facts, Part part);

// Calls of slots by convenience names: as macros, or as functions.
std::string callMacros(const Facts &facts);
std::string callFunctions(const Facts &facts);
// Macros that make the factories of a provider.
std::string factoryMacros();

std::vector<Header> headersOf20(const Facts &facts);
std::vector<Header> headersOf21(const Facts &facts);

} // namespace cmpi
