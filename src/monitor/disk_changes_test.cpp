// SPDX-License-Identifier: Apache-2.0
#include "monitor/disk_changes.h"

#include "runtime/field_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tavstrg;

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// A disk in short: "S1@1-0" has serial number S1 at address 1-0 of controller 1.
struct Seen {
    std::string serial;
    std::string address;
    int16_t smart = 0;
    std::string wwid = {};
    std::string model = "M";
    bool asked = true;
};

SeenDisk seenOf(const Seen &from)
{
    SeenDisk disk = {};
    disk.asked = from.asked;
    disk.smartStatus = from.smart;
    disk.facts.controller = static_cast<uint16_t>(from.address.empty() ? 0 : from.address[0] - '0');
    copyText(disk.facts.serial, from.serial);
    copyText(disk.facts.wwid, from.wwid);
    copyText(disk.facts.model, from.model);
    copyText(disk.facts.address, from.address);
    return disk;
}

// Passes one after the other, each with the events of its own alone.
class Changes : public testing::Test {
protected:
    std::vector<std::string> pass(const std::vector<Seen> &disks)
    {
        std::vector<SeenDisk> seen;
        for (const Seen &disk : disks) {
            seen.push_back(seenOf(disk));
        }
        DiskBook &last = books[current];
        DiskBook &next = books[1 - current];
        EXPECT_TRUE(compareDisks(last, first, seen, next));
        current = 1 - current;
        first = false;
        std::vector<std::string> events;
        for (DiskEvent &event : next.events.entries()) {
            EXPECT_EQ(event.number, ++number);
            const std::string former = event.former;
            events.push_back(std::string(changeName(event.change)) + " " +
                             (event.disk.serial[0] != '\0' ? event.disk.serial : event.disk.wwid) +
                             (former.empty() ? "" : " for " + former));
            event.delivery = Delivery::done;
        }
        return events;
    }
    const DiskBook &now() const { return books[current]; }

    DiskBook books[2];
    int current = 0;
    bool first = true;
    uint32_t number = 0;
};

TEST_F(Changes, InTheFirstPassNothingIsAdded)
{
    EXPECT_THAT(pass({{"A", "1-0"}, {"B", "1-1"}}), IsEmpty());
    EXPECT_EQ(now().disks.size(), 2U);
}

TEST_F(Changes, ADiskThatFailsWhenTheComparisonBeginsIsReported)
{
    EXPECT_THAT(pass({{"A", "1-0", 1}, {"B", "1-1", -1}}), ElementsAre("failing A"));
}

TEST_F(Changes, AddedAndRemovedOnce)
{
    pass({{"A", "1-0"}});
    EXPECT_THAT(pass({{"A", "1-0"}, {"B", "1-1"}}), ElementsAre("added B"));
    EXPECT_THAT(pass({{"A", "1-0"}, {"B", "1-1"}}), IsEmpty());
    EXPECT_THAT(pass({{"B", "1-1"}}), ElementsAre("removed A"));
    EXPECT_THAT(pass({}), ElementsAre("removed B"));
    EXPECT_THAT(pass({}), IsEmpty());
    EXPECT_THAT(pass({{"A", "1-0"}}), ElementsAre("added A"));
}

TEST_F(Changes, ASwapOfEqualCountIsOneReplacementWithBothSerialNumbers)
{
    pass({{"A", "1-0"}, {"B", "1-1"}});
    EXPECT_THAT(pass({{"A", "1-0"}, {"C", "1-1"}}), ElementsAre("replaced C for B"));
}

TEST_F(Changes, AReplacementMayGetAnotherAddressOnItsController)
{
    pass({{"A", "1-0"}, {"B", "1-1"}});
    EXPECT_THAT(pass({{"A", "1-0"}, {"C", "1-7"}}), ElementsAre("replaced C for B"));
}

TEST_F(Changes, DisksOfTwoControllersDoNotReplaceEachOther)
{
    pass({{"A", "1-0"}, {"B", "1-1"}});
    EXPECT_THAT(pass({{"A", "1-0"}, {"C", "2-0"}}), ElementsAre("removed B", "added C"));
}

TEST_F(Changes, WhereCountsDifferOnlyTheAddressPairs)
{
    pass({{"A", "1-0"}, {"B", "1-1"}, {"C", "1-2"}});
    EXPECT_THAT(pass({{"D", "1-1"}, {"C", "1-2"}}), ElementsAre("removed A", "replaced D for B"));
    EXPECT_THAT(pass({{"C", "1-2"}, {"E", "1-8"}, {"F", "1-9"}}), ElementsAre("removed D", "added E", "added F"));
}

TEST_F(Changes, ADiskThatMovesIsTheSame)
{
    pass({{"A", "1-0"}, {"B", "1-1"}});
    EXPECT_THAT(pass({{"B", "1-0"}, {"A", "2-5"}}), IsEmpty());
}

TEST_F(Changes, AFailingDiskThatTakesAnothersIndexIsReported)
{
    pass({{"A", "1-0", 1}, {"B", "1-1"}});
    EXPECT_THAT(pass({{"B", "1-1", 1}}), ElementsAre("removed A", "failing B"));
}

TEST_F(Changes, EachTransitionOfHealthOnce)
{
    pass({{"A", "1-0"}});
    EXPECT_THAT(pass({{"A", "1-0", 1}}), ElementsAre("failing A"));
    EXPECT_THAT(pass({{"A", "1-0", 1}}), IsEmpty());
    EXPECT_THAT(pass({{"A", "1-0", -1}}), ElementsAre("unreadable A"));
    EXPECT_THAT(pass({{"A", "1-0", -1}}), IsEmpty());
    EXPECT_THAT(pass({{"A", "1-0", 1}}), ElementsAre("readable A")) << "it was failing before";
    EXPECT_THAT(pass({{"A", "1-0", 0}}), IsEmpty());
    EXPECT_THAT(pass({{"A", "1-0", 1}}), ElementsAre("failing A"));
    EXPECT_THAT(pass({{"A", "1-0", -1}}), ElementsAre("unreadable A"));
    EXPECT_THAT(pass({{"A", "1-0", 0}}), ElementsAre("readable A"));
}

TEST_F(Changes, ADiskThatNeverWasReadableDoesNotBecomeUnreadable)
{
    pass({{"A", "1-0", -1}});
    EXPECT_THAT(pass({{"A", "1-0", -1}}), IsEmpty());
    EXPECT_THAT(pass({{"A", "1-0", 0}}), IsEmpty());
    EXPECT_THAT(pass({{"A", "1-0", -1}}), ElementsAre("unreadable A"));
}

TEST_F(Changes, WhatIsNotAskedStaysAsItWas)
{
    pass({{"A", "1-0", 1}, {"B", "1-1"}, {"C", "1-2"}});
    pass({{"A", "1-0", 1}, {"B", "1-1", -1}, {"C", "1-2"}});
    const auto quiet = [](const char *serial, const char *address) { return Seen{serial, address, 0, "", "M", false}; };
    EXPECT_THAT(pass({quiet("A", "1-0"), quiet("B", "1-1"), quiet("C", "1-2")}), IsEmpty());
    EXPECT_THAT(pass({{"A", "1-0", 1}, {"B", "1-1", -1}, {"C", "1-2", -1}}), ElementsAre("unreadable C"));
}

TEST_F(Changes, AReplacementStartsAsAnUnknownDisk)
{
    pass({{"A", "1-0", 1}});
    EXPECT_THAT(pass({{"B", "1-0", 1}}), ElementsAre("replaced B for A", "failing B"));
    EXPECT_THAT(pass({{"C", "1-0", -1}}), ElementsAre("replaced C for B"));
}

TEST_F(Changes, WithoutASerialNumberTheWorldwideNameDecides)
{
    pass({{"", "1-0", 0, "naa.1"}, {"", "1-1", 0, "naa.2"}});
    EXPECT_THAT(pass({{"", "1-1", 0, "naa.1"}, {"", "1-0", 0, "naa.2"}}), IsEmpty());
    EXPECT_THAT(pass({{"", "1-1", 0, "naa.3"}, {"", "1-0", 0, "naa.2"}}), ElementsAre("replaced naa.3 for naa.1"));
}

TEST_F(Changes, WithoutAnyIdentityTheAddressAndTheModelDecide)
{
    pass({{"", "1-0"}, {"", "1-1"}});
    EXPECT_THAT(pass({{"", "1-0"}, {"", "1-1"}}), IsEmpty());
    EXPECT_THAT(pass({{"", "1-0", 0, "", "OTHER"}, {"", "1-1"}}), ElementsAre("replaced "));
    EXPECT_THAT(pass({{"", "1-1"}}), ElementsAre("removed "));
}

TEST_F(Changes, ADeadDiskThatDoesNotSayItsNamesKeepsThem)
{
    pass({{"A", "1-0", 0, "naa.1"}});
    EXPECT_THAT(pass({{"", "1-0", -1}}), ElementsAre("unreadable A"));
    EXPECT_THAT(pass({{"A", "1-0", 0, "naa.1"}}), ElementsAre("readable A"));
    EXPECT_THAT(pass({{"", "1-0", -1, "naa.1"}}), ElementsAre("unreadable A"));
    EXPECT_THAT(pass({{"A", "1-3", 0}}), ElementsAre("readable A"));
}

TEST_F(Changes, TwoPathsToADiskAreOneDisk)
{
    pass({{"A", "1-0", 0, "naa.1"}});
    EXPECT_THAT(pass({{"A", "1-0", 0, "naa.1"}, {"A", "2-0", 0, "naa.1"}}), IsEmpty());
    EXPECT_EQ(now().disks.size(), 1U);
    EXPECT_THAT(pass({{"A", "1-0", -1, "naa.1"}, {"A", "2-0", 0, "naa.1"}}), IsEmpty()) << "readable by one";
    EXPECT_THAT(pass({{"A", "1-0", 0, "naa.1"}, {"A", "2-0", 1, "naa.1"}}), ElementsAre("failing A"));
    EXPECT_THAT(pass({{"A", "1-0", -1, "naa.1"}, {"A", "2-0", -1, "naa.1"}}), ElementsAre("unreadable A"));
    EXPECT_THAT(pass({{"A", "2-0", 1, "naa.1"}}), ElementsAre("readable A"));
}

TEST_F(Changes, UnitsWithOneSerialNumberAreTwoDisks)
{
    pass({{"A", "1-0", 0, "naa.1"}, {"A", "1-1", 0, "naa.2"}});
    EXPECT_EQ(now().disks.size(), 2U);
    EXPECT_THAT(pass({{"A", "1-1", 0, "naa.2"}, {"A", "1-0", 1, "naa.1"}}), ElementsAre("failing A"));
    EXPECT_THAT(pass({{"A", "1-1", 0, "naa.2"}}), ElementsAre("removed A"));
}

TEST_F(Changes, ASerialNumberOutlivesAnotherWorldwideName)
{
    pass({{"A", "1-0", 0, "t10.ATA A"}});
    EXPECT_THAT(pass({{"A", "1-0", 0, "naa.1"}}), IsEmpty());
    EXPECT_STREQ(now().disks[0].facts.wwid, "naa.1");
}

TEST_F(Changes, EventsThatAreNotDoneAreKeptInTheirOrder)
{
    pass({});
    std::vector<SeenDisk> seen = {seenOf({"A", "1-0"})};
    ASSERT_TRUE(compareDisks(books[current], false, seen, books[1 - current]));
    books[1 - current].events[0].delivery = Delivery::sending;
    seen.push_back(seenOf({"B", "1-1"}));
    ASSERT_TRUE(compareDisks(books[1 - current], false, seen, books[current]));
    const auto events = books[current].events.entries();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_STREQ(events[0].disk.serial, "A");
    EXPECT_EQ(events[0].delivery, Delivery::sending);
    EXPECT_EQ(events[1].number, 2U);
    EXPECT_EQ(events[1].delivery, Delivery::waiting);
}

TEST_F(Changes, OfTooManyWaitingEventsTheOldestAreGivenUp)
{
    DiskBook last;
    ASSERT_TRUE(last.events.reserve(kMostEvents + 5));
    for (uint32_t n = 1; n <= kMostEvents + 5; ++n) {
        last.events.append({Delivery::waiting, DiskChange::added, n, 0, {}, ""});
    }
    last.next = kMostEvents + 6;
    DiskBook next;
    ASSERT_TRUE(compareDisks(last, false, {}, next));
    ASSERT_EQ(next.events.size(), kMostEvents);
    EXPECT_EQ(next.events[0].number, 6U);
}

TEST_F(Changes, OnlyAChangeNeedsASave)
{
    const std::vector<SeenDisk> one = {seenOf({"A", "1-0"})};
    const std::vector<SeenDisk> moved = {seenOf({"A", "1-1"})};
    DiskBook empty;
    DiskBook with;
    DiskBook again;
    DiskBook elsewhere;
    ASSERT_TRUE(compareDisks(empty, true, one, with) && compareDisks(with, false, one, again) &&
                compareDisks(with, false, moved, elsewhere));
    EXPECT_TRUE(differs(empty, with));
    EXPECT_FALSE(differs(with, again));
    EXPECT_TRUE(differs(with, elsewhere)) << "the address is part of later alerts";
}

} // namespace
