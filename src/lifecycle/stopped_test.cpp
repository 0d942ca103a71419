// SPDX-License-Identifier: Apache-2.0
// A request that meets a stop: the store is being freed, or built anew, while it reads.
#include "lifecycle/access.h"
#include "support/store_fixture.h"

#include <atomic>
#include <thread>

using namespace tavstrg;

namespace {

using testing::Contains;

class Stopped : public StoreTest {
protected:
    Stopped()
    {
        EXPECT_EQ(strgInitProvider(&cInfo), 0);
        trace->clear();
    }

    DatInfo dat = {};
};

TEST_F(Stopped, RecordsFreedDuringTheReadFailIt)
{
    // The pass of a request ends with saving the records.
    sim::atNth(sim::Call::write, 1, [] {
        for (DatInfo &records : instSt) {
            std::free(takeRecords(records));
        }
    });
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), -1);
    EXPECT_EQ(dat.datNum, 0);
    EXPECT_THAT(linesOf("strgGetInstance"), Contains("3 _OUT_ ret=[-1]"));
}

TEST_F(Stopped, AClassWithoutRecordsInAWholeStoreIsEmpty)
{
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_TAPE, &dat), 0);
    EXPECT_EQ(dat.datNum, 0);
}

} // namespace
