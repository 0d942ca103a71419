// SPDX-License-Identifier: Apache-2.0
// Holds the precompiled headers of the tools' static libraries.
