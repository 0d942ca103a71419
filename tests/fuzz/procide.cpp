// SPDX-License-Identifier: Apache-2.0
// /proc/ide: single texts, and a channel with a drive whose files the input is.
#include "collect/ide/ide_discovery.h"
#include "collect/ide/ide_parse.h"
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"
#include "fuzz/machine.h"

#include <cstdio>

using namespace tavstrg;

using fuzz::isWithin;
using fuzz::require;

namespace {

// The kernel's own answer for /dev/hda is there for when the files say nothing.
constexpr char kMachine[] = R"({"kernel": "2.6.18-8", "ide": {"channels": [{"name": "ide0"}],
    "drives": [{"name": "hda", "sizeBytes": 1073741824}]}})";

constexpr const char *kFiles[] = {
    "/proc/ide/ide0/channel",      "/proc/ide/ide0/model",        "/proc/ide/ide0/mate",
    "/proc/ide/ide0/hda/media",    "/proc/ide/ide0/hda/model",    "/proc/ide/ide0/hda/driver",
    "/proc/ide/ide0/hda/geometry", "/proc/ide/ide0/hda/capacity", "/proc/ide/ide0/hda/cache"};

void checkGeometry(std::string_view text)
{
    IDEGeometry geometry{-7, -7, -7};
    if (!parseIDEGeometry(text, geometry)) {
        return;
    }
    char line[64];
    std::snprintf(line, sizeof line, "physical     %d/%d/%d\n", geometry.cylinders, geometry.heads, geometry.sectors);
    IDEGeometry again{};
    require(parseIDEGeometry(line, again) && again.cylinders == geometry.cylinders && again.heads == geometry.heads &&
                again.sectors == geometry.sectors,
            "a geometry comes back");
}

void checkDriver(std::string_view text)
{
    const IDEDriver driver = parseIDEDriver(text);
    if (driver.name == "Unknown") {
        return;
    }
    require(isWithin(driver.name, text) && isWithin(driver.version, text), "name and version lie in the line");
    require(!driver.name.empty() && !driver.version.empty(), "name and version are words");
}

void checkNumbers(std::string_view text)
{
    int64_t sectors = 0;
    if (parseIDECapacity(text, sectors)) {
        char line[32];
        std::snprintf(line, sizeof line, "%lld\n", static_cast<long long>(sectors));
        int64_t again = 0;
        require(parseIDECapacity(line, again) && again == sectors, "a capacity comes back");
    }
    int32_t cache = 0;
    require(!parseIDECache(text, cache) || parseIDEChannel(text) == cache, "both are the first number of the text");
}

void checkTexts(std::string_view text)
{
    const std::string_view line = parseIDELine(text);
    require(isWithin(line, text) && line.size() <= 63 && line.find('\n') == std::string_view::npos,
            "a line is cut to its field");
    std::string_view controller;
    if (parseIDELink(text, controller)) {
        require(isWithin(controller, text) && text[controller.size()] == '/', "a controller's name ends at a slash");
    }
    checkDriver(text);
    checkGeometry(text);
    checkNumbers(text);
}

void requireTexts(const IDEDeviceInfo &device)
{
    fuzz::requireTerminated(device.controllerName);
    fuzz::requireTerminated(device.media);
    fuzz::requireTerminated(device.model);
    fuzz::requireTerminated(device.driver);
    fuzz::requireTerminated(device.driverVersion);
    fuzz::requireTerminated(device.name);
}

void requireTexts(const IDEControllerInfo &controller)
{
    fuzz::requireTerminated(controller.name);
    fuzz::requireTerminated(controller.model);
    fuzz::requireTerminated(controller.mate);
}

void checkDirectory(fuzz::Parts parts)
{
    static fuzz::FuzzedMachine machine(kMachine);
    for (const char *const path : kFiles) {
        machine.file(path, parts.next());
    }
    if (const std::string_view target = parts.next(); !target.empty() && target.find('\0') == target.npos) {
        machine.link("/proc/ide/hda", target.substr(0, 255));
    }
    IDEGeneralInfo info{};
    const int result = GetIDEInfoFromProc(&info);
    const auto look = [](const auto &node, int) { requireTexts(node); };
    require(fuzz::lengthOf(info.controllers, look) == info.controllerCount &&
                fuzz::lengthOf(info.devices, look) == info.deviceCount,
            "the counts are the lists' lengths");
    require(result == 0 || (info.controllers == nullptr && info.devices == nullptr), "a failure gives no lists");
    FreeIDEInfo(&info);
    require(info.controllers == nullptr && info.devices == nullptr && info.deviceCount == 0, "a freed block is empty");
    machine.requireAllClosed();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    checkTexts(fuzz::textOf({data, size}));
    checkDirectory(fuzz::Parts({data, size}));
    return 0;
}
