// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/metrics.h"

#include "tavstrg/json.h"
#include "tavstrg/words.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <regex>
#include <sstream>

namespace tool {
namespace {

using testing::HasSubstr;
using testing::Not;

Device diskDevice(unsigned index, int smartStatus, int level)
{
    Device device;
    device.index = index;
    device.controllerIndex = 3;
    device.targetId = index;
    device.vendor = "ATA";
    device.model = "HALDEN \"M2\\S\"\n";
    device.firmwareRevision = "H2.1";
    device.serialNumber = "HM-\xff";
    HardDisk disk;
    disk.index = index;
    disk.capacity = 1024;
    disk.smartStatus = smartStatus;
    if (level != 0) {
        disk.lifeSpan = LifeSpan{1, level};
    }
    device.disk = disk;
    return device;
}

Inventory threeDisks()
{
    Inventory inventory;
    inventory.totals.hardDisks = 3;
    inventory.monitoring.smartMode = 1;
    inventory.controllers.emplace_back();
    inventory.controllers[0].devices = {diskDevice(1, 0, 4), diskDevice(2, 1, -1)};
    inventory.devicesWithoutController = {diskDevice(3, -1, 0)};
    HardDisk lost;
    lost.index = 4;
    inventory.disksWithoutDevice = {lost};
    return inventory;
}

TEST(Metrics, EveryStateCapacityLevelAndCountIsThere)
{
    const std::string text = metricsText(metricsOf(threeDisks()));
    for (const char *line : {
             "tavstorage_devices{kind=\"hard_disk\"} 3\n",
             "tavstorage_smart_handling_enabled 1\n",
             "tavstorage_disk_capacity_bytes{disk=\"1\"} 1073741824\n",
             "tavstorage_disk_smart_state{disk=\"1\",state=\"no_failure_reported\"} 1\n",
             "tavstorage_disk_smart_state{disk=\"1\",state=\"failing\"} 0\n",
             "tavstorage_disk_smart_state{disk=\"2\",state=\"failing\"} 1\n",
             "tavstorage_disk_smart_state{disk=\"3\",state=\"unreadable\"} 1\n",
             "tavstorage_disk_endurance_level{disk=\"1\"} 4\n",
             "tavstorage_disk_info{disk=\"4\",interface=\"SCSI\"} 1\n",
         }) {
        EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_THAT(text, Not(HasSubstr("endurance_level{disk=\"2\"}"))) << "not read";
    EXPECT_THAT(text, Not(HasSubstr("endurance_level{disk=\"3\"}"))) << "reports none";
}

TEST(Metrics, EachKindHasItsOwnCount)
{
    Inventory inventory;
    inventory.totals = {1, 2, 3, 4, 5, 6, 7, 8};
    const std::string text = metricsText(metricsOf(inventory));
    const char *const kinds[] = {"controller", "scsi_device", "ide_device",     "hard_disk",
                                 "cdrom",      "tape",        "optical_memory", "other"};
    for (int i = 0; i < 8; ++i) {
        EXPECT_THAT(text, HasSubstr("devices{kind=\"" + std::string(kinds[i]) + "\"} " + std::to_string(i + 1) + "\n"));
    }
}

TEST(Metrics, WithoutSmartNothingIsSaidOfIt)
{
    Inventory inventory = threeDisks();
    inventory.monitoring.smartMode = 0;
    const std::string text = metricsText(metricsOf(inventory));
    EXPECT_THAT(text, HasSubstr("tavstorage_smart_handling_enabled 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("disk_smart_state")));
}

TEST(Metrics, AnIdeDiskHasAPosition)
{
    Inventory inventory = threeDisks();
    Device &device = inventory.controllers[0].devices[0];
    device.interfaceType = device.disk->interfaceType = kIde;
    device.ideConfiguration = 2;
    EXPECT_THAT(metricsText(metricsOf(inventory)), HasSubstr("interface=\"IDE\",address=\"3-master\""));
}

TEST(Metrics, WhatADiskIsCalledStandsOnTheInfoMetricAloneAndEscaped)
{
    const std::string text = metricsText(metricsOf(threeDisks()));
    EXPECT_THAT(text, HasSubstr("tavstorage_disk_info{disk=\"1\",interface=\"SCSI\",address=\"3-0-1-0\",vendor=\"ATA\","
                                "model=\"HALDEN \\\"M2\\\\S\\\"\",firmware=\"H2.1\",serial=\"HM-\\\\xff\"} 1\n"));
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("serial=") != std::string::npos) {
            EXPECT_THAT(line, testing::StartsWith("tavstorage_disk_info{"));
        }
    }
}

TEST(Metrics, EachLineIsOfTheExpositionFormatAndEachMetricHasOneHead)
{
    const std::regex sample(R"re([a-z_]+(\{([a-z]+="([^"\\]|\\["\\n])*",?)+\})? [0-9]+)re");
    const std::regex head(R"re(# (HELP [a-z_]+ .+|TYPE [a-z_]+ gauge))re");
    std::istringstream lines(metricsText(metricsOf(threeDisks())));
    std::map<std::string, int> heads;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(std::regex_match(line, line[0] == '#' ? head : sample)) << line;
        if (line.starts_with("# TYPE")) {
            ++heads[line];
        }
    }
    EXPECT_EQ(heads.size(), 6U);
    EXPECT_THAT(heads, testing::Each(testing::Pair(testing::_, 1)));
}

} // namespace
TEST(Metrics, AsJsonAreTheSameSamples)
{
    Inventory inventory = threeDisks();
    inventory.controllers[0].devices.resize(1);
    inventory.controllers[0].devices[0].model = "M2 \"S\"";
    inventory.controllers[0].devices[0].serialNumber = "HM-1";
    inventory.devicesWithoutController.clear();
    const std::vector<Metric> metrics = metricsOf(inventory);
    const nlohmann::ordered_json json = nlohmann::ordered_json::parse(metricsJson(metrics));
    std::string text;
    for (const auto &metric : json.at("metrics")) {
        const auto name = metric.at("name").get<std::string>();
        text += "# HELP " + name + " " + metric.at("help").get<std::string>() + "\n# TYPE " + name + " " +
                metric.at("type").get<std::string>() + "\n";
        for (const auto &sample : metric.at("samples")) {
            std::string labels;
            for (const auto &[label, value] : sample.at("labels").items()) {
                labels += (labels.empty() ? "" : ",") + label + "=" + value.dump();
            }
            text += name + (labels.empty() ? "" : "{" + labels + "}") + " " + sample.at("value").dump() + "\n";
        }
    }
    EXPECT_EQ(text, metricsText(metrics));
}

} // namespace tool
