// SPDX-License-Identifier: Apache-2.0
// Recorded trees of tests/data/recordings, laid out in a simulated machine.
#pragma once

#include "sim/sim.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

inline std::string recordingPath(const std::string &name)
{
    return std::string(TAV_SOURCE_DIR) + "/tests/data/recordings/" + name;
}

inline std::string readRecorded(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<std::string> recordedLines(const std::string &name, const std::string &file)
{
    std::ifstream stream(recordingPath(name) + "/" + file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Writes what the recording has below a directory ("sys", "proc") into the machine. The drives' entries of /proc/ide
// become the links that they are in the kernel. Returns the number of files.
inline int layOutRecording(sim::Machine &machine, const std::string &name, const std::string &directory)
{
    const std::filesystem::path root = recordingPath(name);
    int files = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(root / directory)) {
        if (!entry.is_regular_file()) {
            continue;
        }
        const std::string path = "/" + entry.path().lexically_relative(root).string();
        const std::string content = readRecorded(entry.path());
        if (path.starts_with("/proc/ide/hd") && path.find('/', 10) == std::string::npos) {
            machine.link(path, content);
        } else {
            machine.write(path, content);
        }
        ++files;
    }
    return files;
}
