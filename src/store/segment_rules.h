// SPDX-License-Identifier: Apache-2.0
// What the option stale-segments changes in the life of segments.
#pragma once

namespace tavstrg {

struct SegmentRules {
    // Before a start creates its segments: removes what killed processes left of the given key files' base.
    void (*clearWork)(const char *keyFileBase);
    // Whether another key may cure an error of shmget.
    bool (*anotherKeyHelps)(int error);
};

const SegmentRules &segmentRules();

// Removes each segment whose key is that of one of our key files, also a retired one, if no process is attached to it
// and the process that created it is gone. A segment that is not like ours (another owner, mode, or size) stays, and so
// does one whose creator cannot be seen from here.
void removeStaleSegments(const char *keyFileBase);

} // namespace tavstrg
