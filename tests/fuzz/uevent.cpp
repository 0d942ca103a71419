// SPDX-License-Identifier: Apache-2.0
// A uevent message: only its whole fields decide, in whatever order they come.
#include "fuzz/fuzz.h"
#include "monitor/uevents.h"

#include <string>

using namespace tavstrg;

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Exact input(fuzz::textOf({data, size}));
    const bool counts = callsForPass(input.text());
    const std::string text(input.text());
    if (counts) {
        require(text.find("SUBSYSTEM=") != std::string::npos && text.find("ACTION=") != std::string::npos,
                "what decides is there");
    }
    require(callsForPass(text + '\0') == counts, "the last zero does not decide");
    require(callsForPass(text + std::string("\0OTHER=x", 8)) == counts, "another field does not decide");
    return 0;
}
