// SPDX-License-Identifier: Apache-2.0
// Fixture for tests of the built tool: a temporary directory and a small machine.
#pragma once

#include "support/tool_process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tool::testing_support {

inline const std::string kTool = std::string(TAV_BINARY_DIR) + "/bin/tavstrg";

// One managed disk, one CD-ROM drive, no tape.
inline constexpr const char *kSmallMachine = R"({
  "hosts": [
    {"number": 0, "driver": "ahci", "devices": [
      {"id": 0, "type": "disk", "ata": true, "model": "SMALL DISK", "revision": "FW1", "serial": "SER-1",
       "sectors": 16065000},
      {"id": 1, "type": "cdrom", "vendor": "DISCO", "model": "RW", "revision": "2.0"}
    ]}
  ],
  "files": {"storage.inf": "ahci\n"}
})";

inline std::string contentOf(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// The directory is also where the tool puts what it needs for a while.
class ToolTest : public testing::Test {
protected:
    void SetUp() override
    {
        directory_ = makeDirectory();
        std::filesystem::create_directory(directory_ / "tmp");
        write("small.json", kSmallMachine);
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string write(const std::string &name, const std::string &text) const
    {
        std::ofstream(directory_ / name, std::ios::binary) << text;
        return (directory_ / name).string();
    }

    std::vector<std::string> environment() const { return {"LC_ALL=C", "TMPDIR=" + (directory_ / "tmp").string()}; }

    Finished run(std::vector<std::string> words, StandardOutput out = StandardOutput::kept, int signal = 0) const
    {
        words.insert(words.begin(), kTool);
        return runProgram(words, environment(), out, signal);
    }

    Finished runSmall(std::vector<std::string> words) const
    {
        words.insert(words.begin(), {"--machine", (directory_ / "small.json").string()});
        return run(words);
    }

    bool leftNothing(const Finished &finished) const
    {
        return std::filesystem::is_empty(directory_ / "tmp") && segmentsOf(finished.pid) == 0;
    }

    std::filesystem::path directory_;
};

} // namespace tool::testing_support
