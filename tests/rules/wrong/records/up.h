// SPDX-License-Identifier: Apache-2.0
// An include that runs upwards.
#include "store/store.h"
