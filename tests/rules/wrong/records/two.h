// SPDX-License-Identifier: Apache-2.0
// The other half.
#include "records/one.h"
