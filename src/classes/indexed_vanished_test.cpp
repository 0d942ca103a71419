// SPDX-License-Identifier: Apache-2.0
// Records that go between the store's handing them out and the handler's taking them.
#include "store/arrays.h"
#include "support/indexed_fixture.h"

#include <cstdlib>
#include <functional>
#include <string_view>

using namespace tavstrg;

namespace {

using broker::Reply;

// Acts when the store has handed out what it has, before the handler looks at it.
class AfterHandingOut {
public:
    explicit AfterHandingOut(std::function<void()> what)
    {
        act = std::move(what);
        g_Func.trace.TraceLog = look;
    }
    ~AfterHandingOut() { g_Func.trace.TraceLog = nullptr; }
    AfterHandingOut(const AfterHandingOut &) = delete;
    AfterHandingOut &operator=(const AfterHandingOut &) = delete;

private:
    static void look(int, const char *, const char *function, int, const char *format, ...)
    {
        if (std::string_view(function) == "strgGetInstance" && std::string_view(format) == "_OUT_ ret=[%d]") {
            act();
        }
    }
    static inline std::function<void()> act;
};

void removeRecords(int classId)
{
    std::free(takeRecords(instSt[classId]));
}

TEST_F(Indexed, TheLastDeviceThatGoesMeanwhileLeavesAnEmptyClass)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        for (const bool one : {true, false}) {
            fill(member.classId, {1});
            const AfterHandingOut pass([&] { removeRecords(member.classId); });
            const Reply reply = one ? get(member, "1") : enumerate(member);
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_FOUND);
            EXPECT_EQ(reply.message, "NotFound Data");
            EXPECT_TRUE(reply.instances.empty());
        }
    }
}

TEST_F(Indexed, AStoreThatIsFreedMeanwhileIsAFailureNotAnEmptyClass)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        for (const bool one : {true, false}) {
            fill(member.classId, {1});
            const AfterHandingOut stop([&] {
                removeRecords(TAV_CID_STRG_CONF); // first of all
                removeRecords(member.classId);
            });
            const Reply reply = one ? get(member, "1") : enumerate(member);
            put<StrgConfRec>(TAV_CID_STRG_CONF, {{60, 10, 3600, 60, 1, 0}});
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
        }
    }
}

} // namespace
