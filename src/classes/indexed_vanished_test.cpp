// SPDX-License-Identifier: Apache-2.0
// Records that go between the store's handing them out and the handler's taking them.
#include "store/arrays.h"
#include "support/indexed_fixture.h"
#include "support/lock_at.h"

#include <cstdlib>

using namespace tavstrg;

namespace {

using broker::Reply;

constexpr char kHandedOut[] = "strgGetInstance _OUT_ ret=[0]"; // before the handler takes its copy

void removeRecords(int classId)
{
    std::free(takeRecords(instSt[classId]));
}

TEST_F(Indexed, LastRecordGoneMeanwhileIsNoData)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        for (const bool one : {true, false}) {
            fill(member.classId, {1});
            const AtLine pass(kHandedOut, [&] { removeRecords(member.classId); });
            const Reply reply = one ? get(member, "1") : enumerate(member);
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_FOUND);
            EXPECT_EQ(reply.message, "NotFound Data");
            EXPECT_TRUE(reply.instances.empty());
        }
    }
}

TEST_F(Indexed, StoreFreedMeanwhileFailsTheRequest)
{
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        for (const bool one : {true, false}) {
            fill(member.classId, {1});
            const AtLine stop(kHandedOut, [&] {
                *strgGetThreadID() = 0;
                removeRecords(TAV_CID_STRG_CONF); // a stop frees it first
                removeRecords(member.classId);
            });
            const Reply reply = one ? get(member, "1") : enumerate(member);
            *strgGetThreadID() = pthread_self();
            put<StrgConfRec>(TAV_CID_STRG_CONF, {{60, 10, 3600, 60, 1, 0}});
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
            EXPECT_EQ(reply.message, "strgGetInstance() FAILED");
        }
    }
}

TEST_F(Indexed, ThreadStartedOnAFreedStoreFindsNoData)
{
    for (const Member &member : kMembers) {
        fill(member.classId, {1});
    }
    *strgGetThreadID() = 0;
    ASSERT_EQ(strgFreeInstance(&outside), 0);
    *strgGetThreadID() = pthread_self();
    for (const Member &member : kMembers) {
        SCOPED_TRACE(member.cimName);
        for (const bool one : {true, false}) {
            const Reply reply = one ? get(member, "1") : enumerate(member);
            EXPECT_EQ(reply.rc, CMPI_RC_ERR_NOT_FOUND);
            EXPECT_EQ(reply.message, "NotFound Data");
        }
    }
}

} // namespace
