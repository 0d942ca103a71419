// SPDX-License-Identifier: Apache-2.0
// libtavalert.so for development: writes alerts as JSON, one object per line, to the file TAVALERT_FILE and, unless
// TAVALERT_QUIET is set, to standard error.
#include "agent/line.h"

#include <cstdint>
#include <cstdlib>

namespace {

// Passed by value; 40 bytes on 64-bit platforms.
struct Indication {
    uint32_t version;
    uint32_t method;
    const char *sourceName;
    uint32_t eventId;
    int32_t eventType;
    int32_t numberOfStrings;
    const char **strings;
};
static_assert(sizeof(Indication) == 40);

// Length of the UTF-8 character at text (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF), or 0 if
// the bytes are not UTF-8.
size_t characterLength(const unsigned char *text)
{
    const unsigned char first = text[0];
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    const size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    for (size_t i = 1; i < length; ++i) { // stops at the terminating zero
        if ((text[i] & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (first == 0xE0 && text[1] < 0xA0) || (first == 0xF0 && text[1] < 0x90);
    const bool outside = (first == 0xED && text[1] >= 0xA0) || (first == 0xF4 && text[1] >= 0x90);
    return overlong || outside ? 0 : length;
}

// Adds a JSON string (RFC 8259). A byte that is not UTF-8 becomes the character with its value (U+0080 to U+00FF):
// every reader accepts it, and no byte is lost.
void addString(Line &line, const char *text)
{
    if (text == nullptr) {
        line.add("null");
        return;
    }
    line.add("\"");
    for (const auto *at = reinterpret_cast<const unsigned char *>(text); *at != 0;) {
        const size_t length = characterLength(at);
        if (*at == '"' || *at == '\\') {
            line.format("\\%c", *at);
        } else if (*at < 0x20 || *at == 0x7F || length == 0) {
            line.format("\\u%04x", static_cast<unsigned>(*at));
        } else {
            line.add(reinterpret_cast<const char *>(at), length);
        }
        at += length == 0 ? 1 : length;
    }
    line.add("\"");
}

void addIndication(Line &line, const Indication &record)
{
    line.add("{\"time\":\"");
    line.addTime("%Y-%m-%dT%H:%M:%S", false);
    line.format("Z\",\"version\":%u,\"method\":%u,\"source\":", record.version, record.method);
    addString(line, record.sourceName);
    line.format(",\"eventId\":\"0x%08X\",\"eventType\":%d,\"strings\":[", record.eventId, record.eventType);
    for (int32_t i = 0; record.strings != nullptr && i < record.numberOfStrings; ++i) {
        line.add(i == 0 ? "" : ",");
        addString(line, record.strings[i]);
    }
    line.add("]}\n");
}

} // namespace

// Marks this library for programs that show alerts: it writes them to a file. The agent's library does not have the
// name.
extern "C" [[gnu::visibility("default")]] const int TavAlertTakesFile;
extern "C" const int TavAlertTakesFile = 1;

// Returns 0, or another value if the alert could not be written to its file.
extern "C" [[gnu::visibility("default")]] int SendIndication(Indication record)
{
    const Undisturbed undisturbed;
    Line line;
    addIndication(line, record);
    if (std::getenv("TAVALERT_QUIET") == nullptr) {
        appendLine("-", line, Rotation::checkedAtEachLine);
    }
    const char *path = std::getenv("TAVALERT_FILE");
    const bool hasFile = path != nullptr && *path != '\0';
    const int result = hasFile ? appendLine(path, line, Rotation::checkedAtEachLine) : 0;
    return result != 0 || line.full() ? 1 : 0;
}
