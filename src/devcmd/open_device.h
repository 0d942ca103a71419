// SPDX-License-Identifier: Apache-2.0
// Opening of device nodes and of kernel text files, and error texts: for the device routines and the endurance table.
#pragma once

#include <cstdio>

namespace tavstrg {

// Opens a device node with O_RDONLY or O_RDWR: a descriptor, which the caller closes, or -1 with errno. A null path,
// and a FIFO in place of the node (opening one would wait for its other end), are failed opens.
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
