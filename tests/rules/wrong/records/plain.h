// SPDX-License-Identifier: Apache-2.0
// Nothing wrong: no include.
