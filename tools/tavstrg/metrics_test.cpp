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
    device.serialNumber = "HM" + std::to_string(index) + "-\xff  ";
    device.node = std::string("sd") + static_cast<char>('a' + index);
    device.host = 5;
    HardDisk disk;
    disk.index = index;
    disk.capacity = 1024;
    disk.smartStatus = smartStatus;
    disk.reading = Smart::good;
    if (level != 0) {
        disk.lifeSpan = LifeSpan{1, level};
    }
    device.disk = disk;
    return device;
}

Inventory threeDisks()
{
    Inventory inventory;
    inventory.collection = {1700000000.25, 1.5};
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
             "tavstorage_disk_capacity_bytes{disk=\"1\",serial=\"HM1-\\\\xff\",node=\"sdb\"} 1073741824\n",
             "tavstorage_disk_smart_state{disk=\"1\",serial=\"HM1-\\\\xff\",node=\"sdb\",state=\"good\"} 1\n",
             "tavstorage_disk_smart_state{disk=\"1\",serial=\"HM1-\\\\xff\",node=\"sdb\",state=\"failing\"} 0\n",
             "tavstorage_disk_smart_state{disk=\"2\",serial=\"HM2-\\\\xff\",node=\"sdc\",state=\"failing\"} 1\n",
             "tavstorage_disk_smart_state{disk=\"3\",serial=\"HM3-\\\\xff\",node=\"sdd\",state=\"not_readable\"} 1\n",
             "tavstorage_disk_endurance_level{disk=\"1\",serial=\"HM1-\\\\xff\",node=\"sdb\"} 4\n",
             "tavstorage_disk_endurance_readable{disk=\"1\",serial=\"HM1-\\\\xff\",node=\"sdb\"} 1\n",
             "tavstorage_disk_endurance_readable{disk=\"2\",serial=\"HM2-\\\\xff\",node=\"sdc\"} 0\n",
             "tavstorage_disk_info{disk=\"4\",serial=\"\",node=\"\",interface=\"SCSI\"} 1\n",
             "tavstorage_build_info{version=\"" TAV_VERSION "\"} 1\n",
             "tavstorage_collection_success 1\n",
             "tavstorage_collection_timestamp_seconds 1700000000.250000\n",
             "tavstorage_collection_duration_seconds 1.500000\n",
         }) {
        EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_THAT(text, Not(HasSubstr("endurance_level{disk=\"2\""))) << "not read";
    EXPECT_THAT(text, Not(HasSubstr("endurance_level{disk=\"3\""))) << "reports none";
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

TEST(Metrics, ADiskThatWasNotAskedIsNeitherGoodNorAbsent)
{
    Inventory inventory = threeDisks();
    inventory.monitoring.smartMode = 0;
    inventory.controllers[0].devices[0].disk->reading = Smart::notAsked;
    inventory.controllers[0].devices[1].disk->smartStatus = 0;
    inventory.controllers[0].devices[1].disk->reading = Smart::notSupported;
    const std::string text = metricsText(metricsOf(inventory));
    EXPECT_THAT(text, HasSubstr("tavstorage_smart_handling_enabled 0\n"));
    EXPECT_THAT(text, HasSubstr("node=\"sdb\",state=\"not_asked\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("node=\"sdb\",state=\"good\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("node=\"sdc\",state=\"not_supported\"} 1\n"));
}

TEST(Metrics, OfAFailureAreTheCollectionAlone)
{
    const std::string text = metricsText(metricsOfFailure({1700000000, 0.5}));
    EXPECT_THAT(text, HasSubstr("tavstorage_collection_success 0\n"));
    EXPECT_THAT(text, HasSubstr("tavstorage_collection_timestamp_seconds 1700000000\n"));
    EXPECT_THAT(text, Not(HasSubstr("disk")));
}

TEST(Metrics, AnIdeDiskHasAPosition)
{
    Inventory inventory = threeDisks();
    Device &device = inventory.controllers[0].devices[0];
    device.interfaceType = device.disk->interfaceType = kIde;
    device.ideConfiguration = 2;
    EXPECT_THAT(metricsText(metricsOf(inventory)), HasSubstr("interface=\"IDE\",address=\"3-master\""));
}

TEST(Metrics, TheNameOfADiskIsOnTheInfoMetricAloneAndEscaped)
{
    const std::string text = metricsText(metricsOf(threeDisks()));
    EXPECT_THAT(text,
                HasSubstr("tavstorage_disk_info{disk=\"1\",serial=\"HM1-\\\\xff\",node=\"sdb\",interface=\"SCSI\","
                          "address=\"3-0-1-0\",hctl=\"5:0:1:0\",vendor=\"ATA\","
                          "model=\"HALDEN \\\"M2\\\\S\\\"\",firmware=\"H2.1\"} 1\n"));
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("model=") != std::string::npos) {
            EXPECT_THAT(line, testing::StartsWith("tavstorage_disk_info{"));
        }
    }
}

TEST(Metrics, EachLineIsOfTheExpositionFormatAndEachMetricHasOneHead)
{
    const std::regex sample(R"re([a-z_]+(\{([a-z]+="([^"\\]|\\["\\n])*",?)+\})? [0-9]+(\.[0-9]{6})?)re");
    const std::regex head(R"re(# (HELP [a-z_]+ .+|TYPE [a-z_]+ gauge))re");
    std::istringstream lines(metricsText(metricsOf(threeDisks())));
    std::map<std::string, int> heads;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(std::regex_match(line, line[0] == '#' ? head : sample)) << line;
        if (line.starts_with("# TYPE")) {
            ++heads[line];
        }
    }
    EXPECT_EQ(heads.size(), 11U);
    EXPECT_THAT(heads, testing::Each(testing::Pair(testing::_, 1)));
}

} // namespace
TEST(Metrics, AsJsonAreTheSameSamples)
{
    Inventory inventory = threeDisks();
    inventory.collection = {1700000000, 2}; // fractions are written in another way
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
