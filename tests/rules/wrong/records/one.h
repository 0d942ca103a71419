// SPDX-License-Identifier: Apache-2.0
// One half of a circle.
#include "records/two.h"
