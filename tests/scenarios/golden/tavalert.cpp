// SPDX-License-Identifier: Apache-2.0
// libtavalert.so of the golden traces: an alert is a line among those of the trace.
#include "runtime/trace.h"
#include "scenarios/golden/line.h"

using namespace tavstrg;

extern "C" [[gnu::visibility("default")]] int SendIndication(AlertIndication record)
{
    char head[128];
    std::snprintf(head, sizeof head, "ALERT %u %u %s %#x %d %d", record.version, record.method, record.sourceName,
                  record.eventID, record.eventType, record.numOfStrings);
    std::string text = head;
    for (int i = 0; record.strings != nullptr && i < 3; ++i) {
        text += " [" + std::string(record.strings[i] == nullptr ? "NULL" : record.strings[i]) + "]";
    }
    golden::writeLine(text);
    return 0;
}
