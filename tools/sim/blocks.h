// SPDX-License-Identifier: Apache-2.0
// The product's blocks of memory.
#pragma once

namespace sim {

// The product holds this block; null is nothing.
void noteBlock(const void *block);
// A block is given back, by whomever. Whether the product held it.
bool forgetBlock(const void *block);

} // namespace sim
