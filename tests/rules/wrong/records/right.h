// SPDX-License-Identifier: Apache-2.0
// Nothing wrong: an include of its own floor.
#include "records/plain.h"
