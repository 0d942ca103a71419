// SPDX-License-Identifier: Apache-2.0
// Opening of device nodes and of kernel text files, and error texts: for the device routines and the endurance table.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace tavstrg {

enum class NodeUse {
    kAsAsked,  // with the access mode that the caller asks for, waiting for the device
    kReadOnly, // for reading, without waiting, whatever the caller asks for: a privileged process may send every
               // command on such a descriptor, and udev does not probe the disk when it is closed, as after one for
               // writing
};
extern std::atomic<NodeUse> g_nodeUse; // how nodes are opened; set by every collection

// Opens a device node with O_RDONLY or O_RDWR, or as g_nodeUse says: a descriptor, which the caller closes, or -1 with
// errno. A null path, and a FIFO in place of the node (opening one would wait for its other end), are failed opens.
// Whether the path is a FIFO is looked up once in the life of a KnownNodes.
int openDevice(const char *path, int mode);

// The paths that openDevice found not to be a FIFO while this object is the one that its thread made last and that
// still lives. Other threads do not use it: they look at each node at each open.
class KnownNodes {
public:
    KnownNodes();
    ~KnownNodes();
    KnownNodes(const KnownNodes &) = delete;
    KnownNodes &operator=(const KnownNodes &) = delete;

    bool has(std::string_view path) const;
    // A path that is too long, or for which there is no room, stays unknown.
    void add(std::string_view path);

private:
    static constexpr size_t kSlots = 256;     // a power of two, for the 128 disk names and the IDE drives
    static constexpr size_t kMostPaths = 192; // leaves free slots, at which a search ends
    using Path = std::array<char, 16>;        // "/dev/sddx" and the like; empty in a free slot

    // The slot that has the path, or the free one where it belongs.
    size_t slotOf(std::string_view path) const;

    std::array<Path, kSlots> slots_ = {};
    size_t paths_ = 0;
    KnownNodes *const outer_;
};

// Opens a text file of procfs or of the agent for reading: a stream, which the caller closes, or null with errno.
// Anything but a regular file in its place is a failed open.
std::FILE *openProcText(const char *path);

// The text of an errno value, without the shared buffer of strerror.
class ErrorText {
public:
    explicit ErrorText(int error);
    const char *text() const { return text_; }

private:
    char buffer_[128];
    const char *text_;
};

} // namespace tavstrg
