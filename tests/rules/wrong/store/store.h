// SPDX-License-Identifier: Apache-2.0
// Nothing wrong: an include that runs downwards.
#include "records/plain.h"
