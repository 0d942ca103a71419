// SPDX-License-Identifier: Apache-2.0
#include "devcmd/kernel/kernel_version.h"
#include "devcmd/transport/transport.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>
#include <string>

using namespace tavstrg;

namespace {

struct Comparison {
    std::string version1;
    std::string version2;
    int result;
    int level;
    const char *exit;
};

const Comparison kComparisons[] = {
    {"2.6.9", "2.6.9", 0, 0, "_OUT_ (0)"},
    {"2.6", "2.6.9", -1, 0, "_OUT_ (-1)"},
    {"2", "2.0.0", 0, 0, "_OUT_ (0)"},
    {"3", "2.6.9", 1, 0, "_OUT_ (1)"},
    {"2.6.18-8.el5", "2.6.9", 1, 0, "_OUT_ (1)"},
    {"2.6.32-431.el6.x86_64", "2.6.32", 0, 0, "_OUT_ (0)"},
    {"2.6.8", "2.6.9", -1, 0, "_OUT_ (-1)"},
    {"2.4.31", "2.6.9", -1, 0, "_OUT_ (-1)"},
    {"2.10.0", "2.9.9", 1, 0, "_OUT_ (1)"},
    {"10.0", "9.99.99", 1, 0, "_OUT_ (1)"},
    {"6.1.0-56-amd64", "2.6.9", 1, 0, "_OUT_ (1)"},
    // the second version has a build suffix too; a fourth number is ignored
    {"2.6.9", "2.6.10-rc1", -1, 0, "_OUT_ (-1)"},
    {"2.6.9.7", "2.6.9.1", 0, 0, "_OUT_ (0)"},
    // a number that "%d.%d.%d" does not read is 0
    {"2..9", "2.0.0", 0, 0, "_OUT_ (0)"},
    {"2.6.", "2.6.0", 0, 0, "_OUT_ (0)"},
    {"2-6.9", "2.0.0", 0, 0, "_OUT_ (0)"},
    // numbers beyond an int count as the largest
    {"99999999999999999999", "2147483647", 0, 0, "_OUT_ (0)"},
    {"2.99999999999.1", "2.6.9", 1, 0, "_OUT_ (1)"},
    {std::string(255, '9'), "2.6.9", 1, 0, "_OUT_ (1)"},
    {std::string(256, '9'), "2.6.9", -2, 3, "_OUT_ Length of version is invalid!"},
    {"2.6.9", std::string(256, '9'), -2, 3, "_OUT_ Length of version is invalid!"},
    {"2.6.9", std::string(5000, '9'), -2, 3, "_OUT_ Length of version is invalid!"},
    {"", "2.6.9", -2, 3, "_OUT_ Length of version is invalid!"},
    {"2.6.9", "", -2, 3, "_OUT_ Length of version is invalid!"},
    {"abc", "2.6.9", -2, 3, "_OUT_ version1[0] is not a number!"},
    {"-2.6.9", "2.6.9", -2, 3, "_OUT_ version1[0] is not a number!"},
    {" 2.6.9", "2.6.9", -2, 3, "_OUT_ version1[0] is not a number!"},
    {".6.9", "abc", -2, 3, "_OUT_ version1[0] is not a number!"},
    {"2.6.9", "v2", -2, 3, "_OUT_ version2[0] is not a number!"},
    {"3.10.0+", "2.6.9", -2, 3, "_OUT_ version[0] is invalid!"},
    {"6.12.117+deb12-amd64", "2.6.9", -2, 3, "_OUT_ version[0] is invalid!"},
    {"3.10.0 ", "2.6.9", -2, 3, "_OUT_ version[0] is invalid!"},
    {"2.6.9\xFF", "2.6.9", -2, 3, "_OUT_ version[0] is invalid!"},
    {"2.6.9", "2.6.9b", -2, 3, "_OUT_ version[1] is invalid!"},
};

TEST(CmpVersion, ComparesReleasesByTheirNumbers)
{
    for (const Comparison &c : kComparisons) {
        SCOPED_TRACE(c.version1 + " against " + c.version2);
        const TraceRecorder traces;
        EXPECT_EQ(CmpVersion(c.version1.c_str(), c.version2.c_str()), c.result);
        EXPECT_EQ(traces.texts().front(), "_IN_");
        EXPECT_EQ(traces.texts().back(), c.exit);
        EXPECT_EQ(traces.records().back().level, c.level);
        EXPECT_EQ(traces.records().back().function, "CmpVersion");
    }
}

TEST(CmpVersion, IsAntisymmetric)
{
    for (const Comparison &c : kComparisons) {
        if (c.result != -2) {
            EXPECT_EQ(CmpVersion(c.version2.c_str(), c.version1.c_str()), -c.result) << c.version1;
        }
    }
}

TEST(CmpVersion, NullVersionsAreInvalid)
{
    const TraceRecorder traces;
    EXPECT_EQ(CmpVersion(nullptr, "2.6.9"), -2);
    EXPECT_EQ(CmpVersion("2.6.9", nullptr), -2);
    EXPECT_TRUE(traces.has(3, "_OUT_ version is NULL", "CmpVersion"));
    EXPECT_EQ(traces.texts().size(), 4U);
}

} // namespace
