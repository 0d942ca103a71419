// SPDX-License-Identifier: Apache-2.0
// Writes a set of CMPI headers as a broker installs them, from the table of interface facts:
//
//     generate_headers TABLE.csv 2.0|2.1 DIRECTORY
//
// 2.0 is the set of the development package that SFCB is built with. 2.1 is a set of version 2.1 that is asked for the
// 2.0 layout. Nothing is taken from src/cmpi: what is proved with these sets would prove nothing if it were. What the
// table does not have are names that are not in the binary interface, and the ways in which the sets differ.

#include "../cmpi_abi/table.h"
#include "broker_headers/header_set.h"

#include <filesystem>
#include <iostream>

int main(int argc, char **argv)
{
    const std::string edition = argc == 4 ? argv[2] : "";
    const cmpi::Facts facts(cmpi::readTable(argc == 4 ? argv[1] : ""));
    if (facts.empty() || (edition != "2.0" && edition != "2.1")) {
        std::cerr << "usage: generate_headers TABLE.csv 2.0|2.1 DIRECTORY\n";
        return 1;
    }
    const std::filesystem::path directory = argv[3];
    std::filesystem::create_directories(directory);
    for (const cmpi::Header &header : edition == "2.0" ? cmpi::headersOf20(facts) : cmpi::headersOf21(facts)) {
        std::ofstream file(directory / header.name);
        file << header.text;
        if (!file.flush()) {
            std::cerr << "cannot write " << directory / header.name << '\n';
            return 1;
        }
    }
    return 0;
}
