// SPDX-License-Identifier: Apache-2.0
// Turns the table of interface facts into a source of checks, one expression per row: generate TABLE.csv OUTPUT.inc

#include "cmpi_abi/table.h"

#include <iostream>
#include <map>

namespace {

using cmpi::commas;
using cmpi::Row;

using Writer = std::string (*)(const Row &);

// What must hold for a row of each kind, as an expression.
const std::map<std::string, Writer> kWriters = {
    {"typesize", [](const Row &row) { return "sizeof(" + row.name + ") == " + row.value; }},
    {"typesigned", [](const Row &row) { return "std::is_signed_v<" + row.name + "> == (" + row.value + " != 0)"; }},
    {"size", [](const Row &row) { return "sizeof(" + row.name + ") == " + row.value; }},
    {"align", [](const Row &row) { return "alignof(" + row.name + ") == " + row.value; }},
    {"members", [](const Row &row) { return "hasMembers<" + row.name + ", " + row.value + ">(\"" + row.name + "\")"; }},
    {"offset", [](const Row &row) { return "offsetof(" + row.name + ", " + row.member + ") == " + row.value; }},
    {"membersize", [](const Row &row) { return "sizeof(" + row.name + "::" + row.member + ") == " + row.value; }},
    {"functype",
     [](const Row &row) {
         return "isType<decltype(" + row.name + "::" + row.member + "), std::add_pointer_t<" + commas(row.value) +
                ">>()";
     }},
    {"membertype",
     [](const Row &row) {
         return "isType<decltype(" + row.name + "::" + row.member + "), " + commas(row.value) + ">()";
     }},
    {"const", [](const Row &row) { return "(" + row.name + ") == " + row.value; }},
    {"enum",
     [](const Row &row) {
         return "std::is_same_v<decltype(" + row.member + "), " + row.name + "> && static_cast<int>(" + row.member +
                ") == " + row.value;
     }},
    {"string", [](const Row &row) { return "std::string_view(" + row.name + ") == \"" + row.value + "\""; }},
};

} // namespace

int main(int argc, char **argv)
{
    const std::vector<Row> rows = cmpi::readTable(argc == 3 ? argv[1] : "");
    if (rows.empty()) {
        std::cerr << "no table of interface facts\n";
        return 1;
    }
    std::ofstream output(argv[2]);
    for (const Row &row : rows) {
        const auto writer = kWriters.find(row.kind);
        if (writer == kWriters.end() || row.value.empty()) {
            std::cerr << "cannot check: " << row.line << '\n';
            return 1;
        }
        output << "{\"" << row.line << "\", " << writer->second(row) << "},\n";
    }
    return output.flush() ? 0 : 1;
}
