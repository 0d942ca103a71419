// SPDX-License-Identifier: Apache-2.0
// Opening of device nodes and of kernel text files, and error texts: for the device routines and the endurance table.
#pragma once

#include <cstdio>

namespace tavstrg {

enum class NodeUse {
    kAsAsked,  // with the access mode that the caller asks for, waiting for the device
    kReadOnly, // for reading, without waiting, whatever the caller asks for: a privileged process may send every
               // command on such a descriptor, and udev does not probe the disk when it is closed, as after one for
               // writing
};
extern NodeUse g_nodeUse; // how nodes are opened; set by every collection

// Opens a device node with O_RDONLY or O_RDWR, or as g_nodeUse says: a descriptor, which the caller closes, or -1 with
// errno. A null path, and a FIFO in place of the node (opening one would wait for its other end), are failed opens.
int openDevice(const char *path, int mode);

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
