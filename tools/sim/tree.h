// SPDX-License-Identifier: Apache-2.0
// The files of a machine, as the kernel would show them.
#pragma once

#include "sim/description.h"
#include "sim/paths.h"

#include <map>
#include <string>

namespace sim {

struct Node {
    enum Type { directory, file, link } type = file;
    std::string content;  // text of a file, target of a link
    unsigned mode = 0644; // of a file
    bool operator==(const Node &) const = default;
};

// By path. The directories on the way to an entry are implied.
using Tree = std::map<TreePath, Node>;

// All files, links and directories of a description: sysfs, procfs, device nodes (as empty files), the administrator's
// files. Files that the description removes are not in it.
Tree treeOf(const Description &description);

// Parts of it.
void addSysfs(Tree &tree, const Description &description);
void addNvme(Tree &tree, const Description &description);
void addCards(Tree &tree, const Description &description); // virtio-blk and MMC
void addProcScsi(Tree &tree, const Description &description);
void addProcIde(Tree &tree, const Description &description);

// A symbolic link as sysfs has them, relative.
void addLink(Tree &tree, const TreePath &link, const TreePath &target);

// Where a path of the tree is in the real file system.
std::string realPath(const std::string &root, const TreePath &path);

// Changes the directory root from one tree to another: removes what only the first has, writes what is new or differs;
// a file that differs is replaced atomically. Files of the agent's root and the configuration are never removed. Throws
// std::runtime_error; the directory is then between the two.
void layOut(const std::string &root, const Tree &before, const Tree &now);

// Makes one file, link or directory, with the directories on its way, in place of any that is there. Throws
// std::runtime_error.
void putFile(const std::string &path, const std::string &content, unsigned mode = 0644);
void putLink(const std::string &path, const std::string &target);
void putDirectory(const std::string &path);

// A text of the device as the kernel shows it: cut or filled with blanks to a length.
std::string padded(const std::string &text, size_t length);

} // namespace sim
