// SPDX-License-Identifier: Apache-2.0
// Comparison of kernel releases.
#pragma once

// Kernel releases as major.minor.patch: 1, 0 or -1 as version1 is newer, equal or older; -2 when either is invalid.
int CmpVersion(const char *version1, const char *version2);
