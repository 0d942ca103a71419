// SPDX-License-Identifier: Apache-2.0
#include "broker_headers/header_set.h"

#include <iterator>
#include <map>
#include <stdexcept>

namespace cmpi {

bool Structure::isUnion() const
{
    return members.size() > 1 && members.back().offset == 0;
}

Facts::Facts(std::vector<Row> rows) : rows_(std::move(rows))
{
    std::map<std::string, size_t> places;
    for (const Row &row : of("size")) {
        places[row.name] = structures_.size();
        structures_.push_back({row.name, {}});
    }
    for (const Row &row : of("offset")) {
        structures_.at(places.at(row.name)).members.push_back({row.member, "", false, std::stoi(row.value)});
    }
    for (Structure &structure : structures_) {
        std::stable_sort(structure.members.begin(), structure.members.end(),
                         [](const Member &left, const Member &right) { return left.offset < right.offset; });
    }
    for (const Row &row : rows_) {
        if (row.kind == "membertype" || row.kind == "functype") {
            for (Member &member : structures_.at(places.at(row.name)).members) {
                if (member.name == row.member) {
                    member.type = commas(row.value);
                    member.slot = row.kind == "functype";
                }
            }
        }
    }
}

std::vector<Row> Facts::of(const std::string &kind) const
{
    std::vector<Row> found;
    std::copy_if(rows_.begin(), rows_.end(), std::back_inserter(found),
                 [&kind](const Row &row) { return row.kind == kind; });
    return found;
}

std::string Facts::slotType(const std::string &table, const std::string &slot) const
{
    for (const Row &row : rows_) {
        if (row.kind == "functype" && row.name == table && row.member == slot) {
            return commas(row.value);
        }
    }
    throw std::out_of_range(table + "." + slot);
}

} // namespace cmpi
