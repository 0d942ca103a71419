// SPDX-License-Identifier: Apache-2.0
// Includes a file of an unknown floor.
#include "attic/box.h"
