// SPDX-License-Identifier: Apache-2.0
// The table of interface facts, tests/data/cmpi-abi.csv: rows kind,name,member,value without quoting. A semicolon
// is the comma between the parameters of a function.
#pragma once

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace cmpi {

struct Row {
    std::string line, kind, name, member, value;
};

// Returns all rows, or none if the text is no such table.
inline std::vector<Row> readTable(const std::string &path)
{
    std::ifstream table(path);
    std::vector<Row> rows;
    std::string line;
    if (!std::getline(table, line) || line != "kind,name,member,value") {
        return rows;
    }
    while (std::getline(table, line)) {
        Row row{line, "", "", "", ""};
        std::istringstream fields(line);
        std::getline(fields, row.kind, ',');
        std::getline(fields, row.name, ',');
        std::getline(fields, row.member, ',');
        std::getline(fields, row.value);
        rows.push_back(row);
    }
    return rows;
}

// A type of the table as C writes it.
inline std::string commas(std::string type)
{
    std::replace(type.begin(), type.end(), ';', ',');
    return type;
}

} // namespace cmpi
