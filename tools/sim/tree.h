// SPDX-License-Identifier: Apache-2.0
// The files of a machine, as the kernel would show them.
#pragma once

#include "sim/description.h"

#include <map>
#include <string>

namespace sim {

struct Node {
    enum Type { directory, file, link } type = file;
    std::string content; // text of a file, target of a link
    bool operator==(const Node &) const = default;
};

// By path. The directories on the way are implied.
using Tree = std::map<std::string, Node>;

// Everything that the description puts into the machine but device nodes' behaviour: sysfs, procfs, device nodes (as
// empty files), the administrator's files. Files that are to be gone are not in it.
Tree treeOf(const Description &description);

// Parts of it.
void addSysfs(Tree &tree, const Description &description);
void addProcScsi(Tree &tree, const Description &description);
void addProcIde(Tree &tree, const Description &description);

// Lays a tree out under a directory: what was in before and is not now is removed, what differs is put in place of the
// old at once. Paths under the agent's root and the configuration are never removed. Throws std::runtime_error.
void layOut(const std::string &root, const Tree &before, const Tree &now);

// One file, link or directory with the directories on its way.
void putFile(const std::string &path, const std::string &content);
void putLink(const std::string &path, const std::string &target);
void putDirectory(const std::string &path);

} // namespace sim
