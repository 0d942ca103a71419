// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/state.h"

#include "tavstrg/failure.h"
#include "tavstrg/monitor/state_file.h"

#include "runtime/field_text.h"
#include "support/tool_fixture.h"

#include <gmock/gmock.h>

namespace {

using namespace tool::monitor;
using namespace tavstrg::disks;
using tavstrg::copyText;
using testing::HasSubstr;

constexpr bool kAll[kRoutes] = {true, true, true, true};
constexpr bool kJournal[kRoutes] = {true, false, false, false};

Disk diskOf(const std::string &id, HealthState state)
{
    Disk disk{};
    copyText(disk.id, id);
    copyText(disk.name, "sd" + id);
    copyText(disk.model, "MODEL " + id);
    copyText(disk.bay, "Slot " + id);
    setHealth(disk.health, state, "SMART status", "some reason");
    return disk;
}

size_t pass(State &state, const std::vector<Disk> &disks, int64_t now, const bool (&wanted)[kRoutes])
{
    Array<Disk> found;
    for (const Disk &disk : disks) {
        *found.append() = disk;
    }
    Array<Event> events;
    EXPECT_TRUE(enterPass(state.book, found, now, events));
    return addReports(state, events, wanted);
}

State stateOf()
{
    State state;
    pass(state, {diskOf("a", HealthState::good), diskOf("b", HealthState::failing)}, 100, kAll);
    pass(state, {diskOf("a", HealthState::good), diskOf("c", HealthState::good)}, 200, kJournal);
    return state;
}

TEST(MonitorState, EventsAndBookComeBack)
{
    const State state = stateOf();
    ASSERT_EQ(state.reports.size(), 3U); // b failing, removed; c added
    const StateText text = composeState(state);
    State again;
    ASSERT_EQ(parseState(text.text, again), StateRead::whole);
    EXPECT_EQ(again.next, 4U);
    EXPECT_EQ(composeState(again).text, text.text);
    EXPECT_EQ(lettersOf(again.reports[0]), "wwww");
    EXPECT_EQ(lettersOf(again.reports[1]), "w---");
    EXPECT_STREQ(again.reports[0].model, "MODEL b");
    EXPECT_STREQ(again.reports[2].place, "Slot c");
    EXPECT_EQ(again.reports[2].event.kind, EventKind::added);
    EXPECT_FALSE(again.book.fresh);
    EXPECT_EQ(again.book.entries.count(), 3);
}

TEST(MonitorState, LettersAreChangedInPlace)
{
    StateText text = composeState(stateOf());
    text.text.replace(text.lettersAt[0], kRoutes, "dsw-");
    State again;
    ASSERT_EQ(parseState(text.text, again), StateRead::damaged) << "a route was not wanted that was";
    text.text.replace(text.lettersAt[0], kRoutes, "dsww");
    again = State{};
    ASSERT_EQ(parseState(text.text, again), StateRead::whole);
    EXPECT_EQ(again.reports[0].on(Route::hooks), Delivery::sending);
}

TEST(MonitorState, AnyOtherChangeIsDamage)
{
    const std::string text = composeState(stateOf()).text;
    for (size_t i = 0; i < text.size(); i += 7) {
        std::string changed = text;
        changed[i] = changed[i] == 'x' ? 'y' : 'x';
        State state;
        EXPECT_NE(parseState(changed, state), StateRead::whole) << i;
        state = State{};
        EXPECT_NE(parseState(text.substr(0, i), state), StateRead::whole) << i;
    }
    State state;
    EXPECT_EQ(parseState("tavstrg monitor 2\nanything\n", state), StateRead::newer);
}

TEST(MonitorState, DeliveredEventsGoAndOfTooManyTheOldest)
{
    State state = stateOf();
    for (Delivery &delivery : state.reports[0].delivery) {
        delivery = Delivery::done;
    }
    EXPECT_EQ(pass(state, {diskOf("a", HealthState::good), diskOf("c", HealthState::good)}, 300, kAll), 0U);
    EXPECT_EQ(state.reports.size(), 2U);
    state.reports.resize(kMostReports, state.reports[0]);
    EXPECT_EQ(pass(state, {diskOf("a", HealthState::failing)}, 400, kAll), 2U);
    EXPECT_EQ(state.reports.size(), kMostReports);
    EXPECT_EQ(state.reports.back().event.kind, EventKind::failing);
}

TEST(MonitorState, WithoutARouteNothingIsKept)
{
    State state;
    pass(state, {diskOf("b", HealthState::failing)}, 100, {});
    EXPECT_TRUE(state.reports.empty());
    EXPECT_EQ(state.next, 2U);
}

TEST(MonitorState, StandingIsThatOfTheDisksNotOfTheirReadings)
{
    State state = stateOf();
    const uint64_t before = standingOf(state.book);
    Disk warm = diskOf("c", HealthState::good);
    warm.readings.temperatureCelsius.set(50);
    pass(state, {diskOf("a", HealthState::good), warm}, 300, kAll);
    EXPECT_EQ(standingOf(state.book), before);
    pass(state, {diskOf("a", HealthState::asleep), warm}, 300, kAll);
    EXPECT_NE(standingOf(state.book), before);
}

class MonitorStateFile : public tool::testing_support::ToolTest {};

TEST_F(MonitorStateFile, LettersAreNotedInTheFile)
{
    StateFile file(directory_.string());
    State state = stateOf();
    ASSERT_EQ(file.save(state), 0);
    state.reports[1].on(Route::journal) = Delivery::done;
    file.note(state.reports[1]);
    State again;
    EXPECT_EQ(StateFile(directory_.string()).read(again), "");
    EXPECT_EQ(lettersOf(again.reports[0]), "wwww");
    EXPECT_EQ(lettersOf(again.reports[1]), "d---");
}

TEST_F(MonitorStateFile, DamagedFileIsMovedAside)
{
    write("monitor.state", "tavstrg monitor 1\nrubbish\n");
    State state;
    EXPECT_THAT(StateFile(directory_.string()).read(state), HasSubstr("was damaged"));
    EXPECT_TRUE(state.book.fresh);
    EXPECT_TRUE(std::filesystem::exists(directory_ / "monitor.state.damaged"));
    EXPECT_EQ(StateFile(directory_.string()).read(state), "") << "there is none any more";
}

TEST_F(MonitorStateFile, OnlyOneServiceUsesADirectory)
{
    const StateDirectory directory(directory_.string());
    EXPECT_THROW(StateDirectory(directory_.string()), tool::Failure);
    const StateDirectory made((directory_ / "new").string());
    EXPECT_THROW(StateDirectory((directory_ / "no" / "where").string()), tool::Failure);
}

} // namespace
