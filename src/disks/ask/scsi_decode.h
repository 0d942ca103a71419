// SPDX-License-Identifier: Apache-2.0
// What SCSI disks reply. Pure; nothing beyond the bytes that came counts, whatever lengths they claim.
#pragma once

#include "disks/bytes.h"
#include "disks/disk.h"

namespace tavstrg::disks {

// The power condition that sense data of REQUEST SENSE report (SPC-5, ASC 5Eh; NOT READY with 04h/02h is a disk that
// was stopped); active where they report none; unknown where they are no sense data.
PowerState powerOfSense(Bytes sense);

// Whether a reply of LOG SENSE page 00h lists a page.
bool listsPage(Bytes supported, uint8_t page);
// Whether a reply of INQUIRY page 00h lists a page of vital product data.
bool listsVpdPage(Bytes supported, uint8_t page);

// Additional sense code and qualifier of page 2Fh, code << 8 | qualifier; 0: nothing is wrong. Also the temperature, if
// it is not known yet.
Maybe<uint16_t> exceptionOf(Bytes page, Readings &readings);
// Temperature (0Dh), start-stop cycles (0Eh), percentage used (11h), hours (15h), uncorrected errors (02h and 03h,
// which are added): what the page of that code reports. Nothing, if the reply is another page's.
void takeLogPage(Bytes page, uint8_t code, Readings &readings);

// DEXCPT of the Informational Exceptions Control page in a reply of MODE SENSE(10): exceptions are switched off. False
// where the page is not there.
bool exceptionsAreDisabled(Bytes reply);

} // namespace tavstrg::disks
