// SPDX-License-Identifier: Apache-2.0
#include "sim/tree.h"

#include "sim/paths.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {

namespace {

[[noreturn]] void failOn(const std::string &path, const char *what)
{
    throw std::runtime_error(std::string("cannot ") + what + " " + path + ": " + std::strerror(errno));
}

// Files in these directories stay when a description no longer names them: the agent may have changed them.
bool belongsToAgent(const TreePath &path)
{
    return path.text().starts_with(kAgentRoot) || path.text().starts_with(kConfigurationRoot);
}

void makeParents(const std::string &path)
{
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) {
        throw std::runtime_error("cannot make the directory of " + path + ": " + error.message());
    }
}

bool writeAll(int descriptor, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t written = write(descriptor, content.data(), content.size());
        if (written < 0) {
            return false;
        }
        content.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// A directory where a file is to be. Nothing else is removed.
void removeDirectory(const std::string &path)
{
    struct stat old {};
    if (lstat(path.c_str(), &old) == 0 && S_ISDIR(old.st_mode)) {
        std::filesystem::remove_all(path);
    }
}

void addDeviceNodes(Tree &tree, const Description &description)
{
    const TreePath dev("/dev");
    tree[dev] = {Node::directory, ""};
    for (const DeviceDescription &device : description.allDevices()) {
        for (const std::string &node : {device.node, device.genericNode}) {
            if (!node.empty()) {
                tree[dev / node] = {Node::file, ""};
            }
        }
    }
}

} // namespace

namespace {

// Block devices by their numbers: links from /sys/dev/block.
void addBlockNumbers(Tree &tree)
{
    const std::string list = "/sys/block/";
    std::vector<std::pair<std::string, TreePath>> found; // number, directory
    for (auto at = tree.lower_bound(TreePath("/sys/block")); at != tree.end(); ++at) {
        const auto &[path, node] = *at;
        if (!path.text().starts_with("/sys/block")) {
            break;
        }
        if (node.type != Node::link || !path.text().starts_with(list)) {
            continue;
        }
        const TreePath directory(plainPath(path.text() + "/../" + node.content));
        if (const auto number = tree.find(directory / "dev"); number != tree.end()) {
            const std::string &text = number->second.content;
            found.emplace_back(text.substr(0, text.find('\n')), directory);
        }
    }
    for (const auto &[number, directory] : found) {
        addLink(tree, TreePath("/sys/dev/block") / number, directory);
    }
}

} // namespace

Tree treeOf(const Description &description)
{
    Tree tree;
    for (const char *directory : {"/sys", "/proc", "/etc/tavkit", "/opt/qlm/tavkit_sa/data", "/opt/qlm/tavkit_sa/work",
                                  "/opt/qlm/tavkit_sa/lib"}) {
        tree[TreePath(directory)] = {Node::directory, ""};
    }
    addDeviceNodes(tree, description);
    if (description.sysfs) {
        addSysfs(tree, description);
        addNvme(tree, description);
        addCards(tree, description);
        addBlockNumbers(tree);
    }
    if (description.procfs) {
        addProcScsi(tree, description);
    }
    if (description.ide) {
        addProcIde(tree, description);
    }
    if (description.interrupts) {
        tree[TreePath("/proc/interrupts")] = {Node::file, *description.interrupts};
    }
    if (description.ioports) {
        tree[TreePath("/proc/ioports")] = {Node::file, *description.ioports};
    }
    for (const auto &[path, content] : description.files) {
        if (content) {
            tree[path] = {Node::file, *content};
        } else {
            tree.erase(path);
        }
    }
    return tree;
}

void addLink(Tree &tree, const TreePath &link, const TreePath &target)
{
    tree[link] = {Node::link, target.relativeTo(link)};
}

std::string padded(const std::string &text, size_t length)
{
    std::string result = text.substr(0, length);
    result.resize(length, ' ');
    return result;
}

std::string realPath(const std::string &root, const TreePath &path)
{
    return root + path.text();
}

void putFile(const std::string &path, const std::string &content, unsigned mode)
{
    constexpr int kFresh = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    int descriptor = open(path.c_str(), kFresh, mode); // mostly it is new, in a directory that exists
    if (descriptor < 0 && errno == ENOENT) {
        makeParents(path);
        descriptor = open(path.c_str(), kFresh, mode);
    }
    const bool replaces = descriptor < 0 && errno == EEXIST;
    // Renamed over the old file: a concurrent reader sees the old text or the new one.
    const std::string fresh = replaces ? path + ".tavsim-new" : path;
    if (replaces) {
        removeDirectory(path);
        descriptor = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    }
    if (descriptor < 0) {
        failOn(path, "create");
    }
    const bool written = writeAll(descriptor, content);
    close(descriptor);
    if (!written || (replaces && rename(fresh.c_str(), path.c_str()) != 0)) {
        unlink(fresh.c_str());
        failOn(path, "write");
    }
}

void putLink(const std::string &path, const std::string &target)
{
    if (symlink(target.c_str(), path.c_str()) == 0) {
        return;
    }
    if (errno == ENOENT) {
        makeParents(path);
    } else {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    if (symlink(target.c_str(), path.c_str()) != 0) {
        failOn(path, "link");
    }
}

void putDirectory(const std::string &path)
{
    makeParents(path + "/x");
}

void layOut(const std::string &root, const Tree &before, const Tree &now)
{
    for (auto old = before.rbegin(); old != before.rend(); ++old) {
        if (const auto still = now.find(old->first);
            (still == now.end() || still->second.type != old->second.type) && !belongsToAgent(old->first)) {
            std::error_code ignored;
            std::filesystem::remove_all(realPath(root, old->first), ignored);
        }
    }
    for (const auto &[path, node] : now) {
        if (const auto old = before.find(path); old != before.end() && old->second == node) {
            continue;
        }
        switch (node.type) {
        case Node::directory:
            putDirectory(realPath(root, path));
            break;
        case Node::file:
            putFile(realPath(root, path), node.content, node.mode);
            break;
        case Node::link:
            putLink(realPath(root, path), node.content);
            break;
        }
    }
}

} // namespace sim
