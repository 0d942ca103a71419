// SPDX-License-Identifier: Apache-2.0
// The agent's configuration file: where the agent is installed.
#pragma once

// Value of a key of "/etc/tavkit/tavkit.conf", a stream of whitespace-separated tokens taken two at a time. Copies it
// with its terminator into value, which must hold size + 1 bytes: size is compared with the length without the
// terminator. Returns the length; 0 when the key is absent or value is null; the negated length when it does not fit.
// Where there is no file the answer is the default root, whatever was asked.
int get_TavEnv(const char *name, char *value, int size);

// The agent's root directory without a trailing slash; path must hold size + 1 bytes. Returns the length; a negative
// number when it does not fit; 0 when path is null.
int get_TavRootPath(char *path, int size);

constexpr char kDefaultRoot[] = "/opt/qlm/tavkit_sa"; // 18 characters
