// SPDX-License-Identifier: Apache-2.0
// SSD endurance: which drives report it, and the level of each.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavstrg {

// One drive model of "tavm2ssd.inf". The bounds of the levels are figures as the drive's attribute gives them.
struct M2SSDInf {
    char model[16]; // without a terminator when it has 16 characters
    int32_t attid;  // SMART attribute that carries the wear figure
    int16_t max;    // upper bound of level 5
    int16_t lv5;    // lower bound of level 5
    int16_t lv4;
    int16_t lv3;
    int16_t lv2;
    int16_t min; // lower bound of level 1
};
static_assert(sizeof(M2SSDInf) == 32);

constexpr int32_t kMaxM2SSD = 128;

} // namespace tavstrg

extern tavstrg::M2SSDInf g_M2SSDInf[tavstrg::kMaxM2SSD];
extern int32_t g_M2SSDCnt;   // entries loaded
extern uint16_t g_M2SSDEndu; // endurance figure that was read last

namespace tavstrg {

constexpr char kM2SSDRoot[] = "/opt/qlm/tavkit_sa/"; // fixed, whatever the agent's configuration is
constexpr char kM2SSDFileName[] = "tavm2ssd.inf";

} // namespace tavstrg

// Loads the endurance table, once per process: not again while it has entries.
void strgGetInfFile();

namespace tavstrg {

constexpr int16_t kLevelUnknown = -1;

// Level of an endurance figure, 5 (most left) to 1, or kLevelUnknown outside all bounds. The first rule that holds
// wins.
int16_t enduranceLevel(const M2SSDInf &entry, uint16_t figure);

// First of count entries whose model equals a disk's over 16 characters; null if there is none.
const M2SSDInf *findM2SSD(const M2SSDInf *table, int32_t count, const char *model);

} // namespace tavstrg
