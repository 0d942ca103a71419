// SPDX-License-Identifier: Apache-2.0
// Is in an unknown floor.
#include "records/plain.h"
