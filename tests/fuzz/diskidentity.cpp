// SPDX-License-Identifier: Apache-2.0
// Pages and texts from which the kernel's idea of a disk's identity comes: VPD pages 80h and 89h, "wwid", and the block
// of HDIO_GET_IDENTITY. The input is each of them in turn.
#include "collect/devices/vpd_serial.h"
#include "fuzz/fuzz.h"

#include <array>
#include <string_view>

using namespace tavstrg;

using fuzz::Bytes;
using fuzz::require;

namespace {

bool isTrimmed(char c)
{
    return static_cast<unsigned char>(c) > ' ' && c != '\x7F';
}

void checkSerial(std::string_view serial, size_t longest)
{
    require(serial.size() <= longest, "a serial number is no longer than its field");
    require(serial.find('\0') == std::string_view::npos, "a serial number is one text");
    require(serial.empty() || (isTrimmed(serial.front()) && isTrimmed(serial.back())), "a serial number is trimmed");
}

void checkPage89(Bytes page)
{
    std::array<char, kAtaSerialLength> buffer;
    const std::string_view serial = serialOfPage89(page, buffer);
    checkSerial(serial, kAtaSerialLength);
    require(serial.empty() || page.size() >= 100, "a page 89h holds the field of the serial number");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Exact input(fuzz::textOf({data, size}));
    const std::string_view text = input.text();
    checkSerial(serialOfPage80(input.bytes()), size < 4 ? 0 : size - 4);
    checkPage89(input.bytes());
    checkSerial(trimmedSerial(text), size);
    checkSerial(serialOfIdentity(text), kAtaSerialLength);
    return 0;
}
