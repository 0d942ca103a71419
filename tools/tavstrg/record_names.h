// SPDX-License-Identifier: Apache-2.0
// Serial numbers and world wide names in a recorded machine, replaced by made-up ones. Pure.
//
// A replacement has the length of the original, digits where that has digits and letters where it has letters. What
// says who made the disk stays (the IEEE company identifier of a world wide name), the rest is a count. Equal originals
// have equal replacements and different ones different, wherever they stand: in texts of sysfs, in VPD pages, in
// IDENTIFY data, in any other reply.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

using ByteVector = std::vector<uint8_t>;

class Names {
public:
    explicit Names(bool keep) : keep_(keep) {}

    // From here on, scrub() looks for the names that are met from now on.
    void beginDevice() { met_.clear(); }

    // A serial number; blanks around it stay.
    std::string serial(std::string_view text);
    // The attribute wwid: "naa.", "eui.", "uuid.", "t10.", "nvme." or a SCSI name.
    std::string wwid(const std::string &text);
    // A number of hexadecimal digits, with "-" between them or not: a NGUID, EUI-64 or UUID.
    std::string hexNumber(const std::string &text, std::string_view prefix);
    // The name of an enclosure's component, which may have a world wide name in it: "SLOT 01 [5000C500A1B2C3D4]".
    std::string component(const std::string &text);
    // CID and serial number ("0x12345678") of an MMC or SD card; the one has the digits of the other.
    void card(std::string &cid, std::string &number);

    // Unit Serial Number (VPD page 80h), Device Identification (83h), ATA Information (89h).
    ByteVector serialPage(ByteVector page);
    ByteVector designatorPage(ByteVector page);
    ByteVector ataPage(ByteVector page);
    // IDENTIFY data, from an offset on; they may be cut.
    ByteVector identify(ByteVector data, size_t at = 0);
    // Any other reply.
    ByteVector scrub(ByteVector data) const;

private:
    std::string made(std::string_view token);
    std::string number(const std::string &bytes, std::string_view prefix);
    std::string t10(std::string text);
    void designator(std::string &value, uint8_t type);
    std::string scrubText(const std::string &text) const;

    bool keep_;
    std::map<std::string, std::string, std::less<>> serials_;
    std::map<std::string, std::string> numbers_; // by their bytes
    std::map<std::string, uint64_t> counts_;     // by the kind of the character at each place
    uint64_t count_ = 0;                         // of numbers
    std::vector<std::pair<std::string, std::string>> met_;
};

} // namespace tool
