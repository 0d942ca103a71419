// SPDX-License-Identifier: Apache-2.0
// /proc/scsi/scsi: single lines, single records, the whole file.
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_records.h"
#include "collect/scsi/scsi_variants.h"
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"
#include "fuzz/machine.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <cstdio>

using namespace tavstrg;

using fuzz::isWithin;
using fuzz::require;

namespace {

constexpr const char *kKeys[] = {"Vendor", "Model", "Rev", "Type", "revision", "", ":"};
constexpr size_t kFieldSize = 64;

void requireTexts(const SCSIDeviceInfo &device)
{
    fuzz::requireTerminated(device.vendor);
    fuzz::requireTerminated(device.model);
    fuzz::requireTerminated(device.scsiRev);
    fuzz::requireTerminated(device.type);
    fuzz::requireTerminated(device.ansiRev);
}

void checkLine(std::string_view line)
{
    const fuzz::ExactString text(line);
    for (const char *const key : kKeys) {
        std::string_view value;
        const bool named = namedValue(line, key, value);
        require(!named || (isWithin(value, line) && value.find('\n') == std::string_view::npos),
                "a value lies in its line");
        char out[kFieldSize];
        std::fill_n(out, sizeof out, 'x');
        if (FindName(text.text(), key, out) == 0) {
            fuzz::requireTerminated(out);
        } else {
            require(out[0] == 'x', "what is not found leaves the field as it was");
        }
    }
}

// A word that cannot be taken for a key.
bool isPlain(std::string_view text)
{
    const auto plain = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'q') || c == '-'; };
    return !text.empty() && std::all_of(text.begin(), text.end(), plain);
}

// Writes a record as the kernel does, and reads it back.
void checkRoundTrip(const SCSIDeviceInfo &device)
{
    if (!isPlain(fieldText(device.vendor)) || !isPlain(fieldText(device.model)) || !isPlain(fieldText(device.type))) {
        return;
    }
    char lines[3][256];
    std::snprintf(lines[0], sizeof lines[0], "Host: scsi%d Channel: %02d Id: %02d Lun: %02d\n", device.host,
                  device.channel, device.id, device.lun);
    std::snprintf(lines[1], sizeof lines[1], "  Vendor: %-8s Model: %-16s Rev: %-4s\n", device.vendor, device.model,
                  "1");
    std::snprintf(lines[2], sizeof lines[2], "  Type:   %-33s ANSI SCSI revision: 5\n", device.type);
    ScsiRecordReader reader;
    require(reader.take(lines[0]) == ScsiRecordReader::Step::more &&
                reader.take(lines[1]) == ScsiRecordReader::Step::more &&
                reader.take(lines[2]) == ScsiRecordReader::Step::complete,
            "three lines are a record");
    const SCSIDeviceInfo &read = reader.record();
    require(read.host == device.host && read.channel == device.channel && read.id == device.id &&
                read.lun == device.lun,
            "an address comes back");
    // Text after a type belongs to it: types are compared by prefix.
    require(fieldText(read.vendor) == fieldText(device.vendor) && fieldText(read.model) == fieldText(device.model) &&
                fieldText(read.type).starts_with(fieldText(device.type)),
            "texts come back");
}

void checkFile(std::string_view content)
{
    static fuzz::FuzzedMachine machine;
    machine.file(kProcDevices, content);
    SCSIDeviceInfo *list = nullptr;
    int32_t count = -1;
    int32_t status = -1;
    const int result = proc_GetSCSIDeviceInfoFromProc(&list, &count, &status);
    const int length = fuzz::lengthOf(list, [](const SCSIDeviceInfo &device, int position) {
        require(device.sequence == position, "devices are numbered in their order");
        requireTexts(device);
        checkRoundTrip(device);
    });
    require(length == count, "the count is the list's length");
    require(static_cast<size_t>(length) * 3 <= fuzz::linesIn(content) + content.size() / 1023,
            "a device takes three lines");
    require(result == 0 ? status == 0 : list == nullptr && status < 0, "a failure tells its status and gives no list");
    FreeSCSIDeviceInfo(&list);
    require(list == nullptr, "a freed list is null");
    machine.requireAllClosed();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view content = fuzz::textOf({data, size});
    checkLine(content);
    checkFile(content);
    return 0;
}
