// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/changes.h"

#include "tavstrg/words.h"

#include <algorithm>
#include <tuple>

namespace tool {
namespace {

Change changeOf(const Device &device)
{
    return {false,
            deviceTypeWords(device.interfaceType, device.deviceType),
            device.nameWords(),
            device.serialWords(),
            device.node,
            device.address(),
            device.host};
}

Change changeOf(const Controller &controller)
{
    return {false,
            "controller",
            printable(saysSomething(controller.driver) ? controller.driver : controller.model),
            "",
            "",
            "",
            controller.host};
}

std::vector<Change> everythingOf(const Inventory &inventory)
{
    std::vector<Change> all;
    for (const Controller &controller : inventory.controllers) {
        all.push_back(changeOf(controller));
        for (const Device &device : controller.devices) {
            all.push_back(changeOf(device));
        }
    }
    for (const Device &device : inventory.devicesWithoutController) {
        all.push_back(changeOf(device));
    }
    return all;
}

bool isSame(const Change &one, const Change &other)
{
    const auto identity = [](const Change &of) { return std::tie(of.kind, of.name, of.serial); };
    const bool samePlace = one.address == other.address && one.host == other.host;
    return identity(one) == identity(other) && (!one.serial.empty() || samePlace);
}

// Takes one that is the same out of a list; false when there is none.
bool takeSame(std::vector<Change> &list, const Change &wanted)
{
    const auto found =
        std::find_if(list.begin(), list.end(), [&wanted](const Change &each) { return isSame(each, wanted); });
    if (found == list.end()) {
        return false;
    }
    list.erase(found);
    return true;
}

std::string wordsOf(const Change &change)
{
    std::string words = (change.added ? "added " : "removed ") + change.kind;
    words += change.node.empty() ? "" : " " + change.node;
    std::string details = change.address;
    if (change.kind == "controller" && change.host) {
        details = "host " + std::to_string(*change.host);
    }
    for (const std::string &part : {change.name, change.serial.empty() ? "" : "serial " + change.serial}) {
        details += (details.empty() || part.empty() ? "" : ", ") + part;
    }
    return words + (details.empty() ? "" : " (" + details + ")");
}

} // namespace

std::vector<Change> changesBetween(const Inventory &before, const Inventory &after)
{
    std::vector<Change> removed = everythingOf(before);
    std::vector<Change> changes;
    for (Change &now : everythingOf(after)) {
        if (!takeSame(removed, now)) {
            now.added = true;
            changes.push_back(std::move(now));
        }
    }
    changes.insert(changes.end(), removed.begin(), removed.end());
    return changes;
}

std::string changeWords(const std::vector<Change> &changes)
{
    std::string words;
    for (const Change &change : changes) {
        words += (words.empty() ? "" : "; ") + wordsOf(change);
    }
    return words;
}

} // namespace tool
