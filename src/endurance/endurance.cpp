// SPDX-License-Identifier: Apache-2.0
#include "endurance/endurance.h"

#include "devcmd/open_device.h"
#include "endurance/endurance_parse.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cstdio>
#include <cstring>

using namespace tavstrg;

M2SSDInf g_M2SSDInf[kMaxM2SSD] = {};
int32_t g_M2SSDCnt = 0;
uint16_t g_M2SSDEndu = 0;

namespace {

void addModel(const M2SSDInf &entry)
{
    g_M2SSDInf[g_M2SSDCnt] = entry;
    TRACE(kDetail, "g_M2SSDCnt[%d] model=[%.16s] attid=[%d] max=[%d] lv5=[%d] lv4=[%d] lv3=[%d] lv2=[%d] min=[%d] ",
          g_M2SSDCnt, g_M2SSDInf[g_M2SSDCnt].model, entry.attid, entry.max, entry.lv5, entry.lv4, entry.lv3, entry.lv2,
          entry.min);
    ++g_M2SSDCnt;
}

// A line as it was read, in the terms of the table. Traced without what ends it.
void useLine(EnduranceLines &lines, char (&text)[kM2SSDLineBuffer])
{
    text[withoutBreaks(text).size()] = '\0';
    M2SSDInf entry = {};
    switch (lines.take(text, entry)) {
    case TableLine::empty:
        TRACE(kDetail, "fgets line len 0 continue .");
        break;
    case TableLine::sectionEnds:
        TRACE(kDetail, "  read data is next section. line=[%s].", text);
        break;
    case TableLine::otherFields:
        TRACE(kDetail, "  read data continue. line=[%s].", text);
        break;
    case TableLine::entry:
        addModel(entry);
        break;
    case TableLine::outside:
    case TableLine::sectionBegins:
        break;
    }
}

} // namespace

int16_t tavstrg::enduranceLevel(const M2SSDInf &entry, uint16_t figure)
{
    const struct {
        int lower;
        int upper; // inclusive
        int16_t level;
    } rules[] = {
        {entry.lv5, entry.max, 5},     {entry.lv4, entry.lv5 - 1, 4}, {entry.lv3, entry.lv4 - 1, 3},
        {entry.lv2, entry.lv3 - 1, 2}, {entry.min, entry.lv2 - 1, 1},
    };
    for (const auto &rule : rules) {
        if (rule.lower <= figure && figure <= rule.upper) {
            return rule.level;
        }
    }
    return kLevelUnknown;
}

const M2SSDInf *tavstrg::findM2SSD(const M2SSDInf *table, int32_t count, const char *model)
{
    for (int32_t i = 0; i < count; ++i) {
        if (std::strncmp(table[i].model, model, sizeof table[i].model) == 0) {
            return &table[i];
        }
    }
    return nullptr;
}

void strgGetInfFile()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (g_M2SSDCnt != 0) {
        TRACE(kDetail, "_OUT_ g_M2SSDCnt is not 0");
        return;
    }
    std::memset(g_M2SSDInf, 0, sizeof g_M2SSDInf);
    char path[64];
    std::snprintf(path, sizeof path, "%s/data/%s", kM2SSDRoot, kM2SSDFileName);
    TRACE(kDetail, "m2ssdinfFilePass=[%s]", path);
    const FilePtr file(openProcText(path));
    if (!file) {
        TRACE(kFailure, "_OUT_ fopen failed. [%s]", path);
        return;
    }
    EnduranceLines lines;
    char text[kM2SSDLineBuffer];
    while (g_M2SSDCnt < kMaxM2SSD && lines.more() && std::fgets(text, sizeof text, file.get()) != nullptr) {
        useLine(lines, text);
    }
    TRACE(kDetail, "_OUT_ g_M2SSDCnt=[%d]", g_M2SSDCnt);
}
