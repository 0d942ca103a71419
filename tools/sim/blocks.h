// SPDX-License-Identifier: Apache-2.0
// Blocks of memory that the product holds.
#pragma once

namespace sim {

// Counts a block as the product's; null is ignored.
void noteBlock(const void *block);
// To be called when any code frees a block. Returns whether it was the product's.
bool forgetBlock(const void *block);

} // namespace sim
