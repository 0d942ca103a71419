// SPDX-License-Identifier: Apache-2.0
#include "disks/book/book.h"

#include "disks/book/book_file.h"
#include "runtime/checksum.h"
#include "runtime/field_text.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tavstrg;
using namespace tavstrg::disks;

namespace {

Disk diskOf(const std::string &id, HealthState state = HealthState::good, const char *slot = "")
{
    Disk disk{};
    copyText(disk.id, id);
    copyText(disk.name, ("sd" + id).c_str());
    copyText(disk.serial, ("SN-" + id).c_str());
    copyText(disk.bay, slot);
    copyText(disk.address, id);
    setHealth(disk.health, state, "SMART status", "some reason");
    disk.readings.temperatureCelsius.set(-5);
    disk.readings.enduranceUsedPercent.set(120);
    disk.readings.mediaErrors.set(UINT64_MAX);
    disk.lastAsked.set(1000);
    return disk;
}

// What a pass over these disks reports: "added a, failing b".
std::string enter(Book &book, std::vector<Disk> now, int64_t time, std::vector<Disk> *after = nullptr)
{
    Array<Disk> disks;
    for (const Disk &disk : now) {
        *disks.append() = disk;
    }
    Array<Event> events;
    EXPECT_TRUE(enterPass(book, disks, time, events));
    if (after != nullptr) {
        after->assign(disks.begin(), disks.end());
    }
    std::string all;
    for (const Event &event : events) {
        all += (all.empty() ? "" : ", ") + std::string(nameOf(event.kind)) + " " + event.id +
               (event.otherId[0] == '\0' ? "" : " for " + std::string(event.otherId));
    }
    return all;
}

std::string textOf(const Book &book)
{
    Array<char> text;
    EXPECT_TRUE(composeBook(book, text));
    return {text.begin(), static_cast<size_t>(text.count())};
}

TEST(Book, FirstPassIsNoNewsButOfDisksThatFail)
{
    Book book;
    EXPECT_EQ(enter(book, {diskOf("a"), diskOf("b", HealthState::failing), diskOf("c", HealthState::unreadable)}, 10),
              "failing b, unreadable c");
    EXPECT_EQ(enter(book, {diskOf("a"), diskOf("b", HealthState::failing), diskOf("c", HealthState::unreadable)}, 20),
              "");
}

TEST(Book, DisksThatComeGoAndComeAgain)
{
    Book book;
    enter(book, {diskOf("b")}, 10);
    EXPECT_EQ(enter(book, {diskOf("b"), diskOf("a")}, 20), "added a");
    EXPECT_EQ(enter(book, {diskOf("a")}, 30), "removed b");
    EXPECT_EQ(enter(book, {diskOf("a")}, 40), "");
    std::vector<Disk> after;
    EXPECT_EQ(enter(book, {diskOf("a"), diskOf("b")}, 50, &after), "added b");
    EXPECT_EQ(after[1].firstSeen.value, 10);
}

TEST(Book, ClockSetBackNeitherRepeatsNorHidesWhatHappens)
{
    constexpr int64_t kDay = 24 * 3600;
    Book book;
    enter(book, {diskOf("a", HealthState::failing, "0:0:8:0 Slot 1"), diskOf("b")}, 10 * kDay);
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::failing, "0:0:8:0 Slot 1")}, 10 * kDay + 300), "removed b");
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::failing, "0:0:8:0 Slot 1")}, 9 * kDay), "");
    EXPECT_EQ(enter(book, {diskOf("c", HealthState::good, "0:0:8:0 Slot 1")}, 9 * kDay + 300),
              "removed a, replaced c for a");
}

TEST(Book, DiskInTheSlotOfOneThatWentReplacesIt)
{
    Book book;
    enter(book, {diskOf("a", HealthState::good, "Slot 1"), diskOf("b", HealthState::good, "Slot 2")}, 10);
    EXPECT_EQ(enter(book, {diskOf("b", HealthState::good, "Slot 2"), diskOf("c", HealthState::good, "Slot 1")}, 20),
              "removed a, replaced c for a");
    EXPECT_EQ(enter(book, {diskOf("b", HealthState::good, "Slot 1"), diskOf("c", HealthState::good, "Slot 2")}, 30), "")
        << "two disks that change places are still there";
}

TEST(Book, EachTransitionIsReportedOnce)
{
    Book book;
    enter(book, {diskOf("a")}, 10);
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::warning)}, 20), "warning a");
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::failing)}, 30), "failing a");
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::asleep)}, 40), "");
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::failing)}, 50), "") << "it slept meanwhile, and fails as before";
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::unreadable)}, 60), "unreadable a");
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::unknown)}, 70), "") << "not asked is not readable";
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::failing)}, 80), "readable a");
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::good)}, 90), "good a");
    EXPECT_EQ(enter(book, {diskOf("a", HealthState::off)}, 100), "");
}

TEST(Book, SinceIsWhenTheStateWasFirstSeen)
{
    Book book;
    std::vector<Disk> after;
    enter(book, {diskOf("a")}, 10);
    enter(book, {diskOf("a")}, 20, &after);
    EXPECT_EQ(after[0].health.since.value, 10);
    enter(book, {diskOf("a", HealthState::warning)}, 30, &after);
    EXPECT_EQ(after[0].health.since.value, 30);
    EXPECT_EQ(after[0].firstSeen.value, 10);
}

TEST(Book, SleepingDiskKeepsItsLastReadings)
{
    Book book;
    enter(book, {diskOf("a")}, 10);
    Disk asleep = diskOf("a", HealthState::asleep);
    asleep.readings = Readings{};
    asleep.readings.power = PowerState::standby;
    asleep.lastAsked = {};
    std::vector<Disk> after;
    enter(book, {asleep}, 20, &after);
    EXPECT_EQ(after[0].readings.temperatureCelsius.value, -5);
    EXPECT_EQ(after[0].readings.power, PowerState::standby);
    EXPECT_EQ(after[0].lastAsked.value, 1000);
}

// An alert about it would end with each sleep, and come back.
TEST(Book, SleepHealsNoDisk)
{
    Book book;
    std::vector<Disk> after;
    for (const HealthState bad : {HealthState::failing, HealthState::warning}) {
        enter(book, {diskOf("a", bad)}, 10);
        Disk asleep = diskOf("a", HealthState::asleep);
        asleep.lastAsked = {};
        for (const int64_t time : {20, 30}) {
            EXPECT_EQ(enter(book, {asleep}, time, &after), "");
            EXPECT_EQ(after[0].health.state, bad);
            EXPECT_EQ(after[0].health.since.value, 10);
            EXPECT_EQ(after[0].lastAsked.value, 1000) << "it was not asked";
        }
        EXPECT_EQ(enter(book, {diskOf("a")}, 10), "good a");
    }
    enter(book, {diskOf("a", HealthState::asleep)}, 40, &after);
    EXPECT_EQ(after[0].health.state, HealthState::asleep) << "a good one sleeps";
}

TEST(Book, SleepCoolsADisk)
{
    Book book;
    std::vector<Disk> after;
    Disk hot = diskOf("a", HealthState::warning);
    copyText(hot.health.reason, "its temperature is beyond a threshold");
    hot.readings.enduranceUsedPercent.set(10);
    EXPECT_EQ(enter(book, {hot}, 10), "warning a");
    for (const int64_t time : {20, 30}) {
        EXPECT_EQ(enter(book, {diskOf("a", HealthState::asleep)}, time, &after), "");
        EXPECT_EQ(after[0].health.state, HealthState::asleep);
    }
    EXPECT_EQ(enter(book, {diskOf("a")}, 40), "good a");
}

TEST(Book, DiskThatFailedIsNotHealedByWhatCameBeforeItsSleep)
{
    for (const HealthState bad : {HealthState::failing, HealthState::warning}) { // that of a disk that is worn out
        for (const HealthState between : {HealthState::unreadable, HealthState::unknown}) {
            Book book;
            std::vector<Disk> after;
            enter(book, {diskOf("a", bad)}, 10);
            enter(book, {diskOf("a", between)}, 20);
            for (const int64_t time : {30, 40}) {
                EXPECT_EQ(enter(book, {diskOf("a", HealthState::asleep)}, time, &after), "") << "it was not read";
                EXPECT_EQ(after[0].health.state, bad);
                EXPECT_STREQ(after[0].health.reason, "was so when it answered last; it sleeps now");
                EXPECT_EQ(after[0].health.since.value, 30);
            }
            EXPECT_EQ(enter(book, {diskOf("a", bad)}, 50), between == HealthState::unknown ? "" : "readable a");
        }
    }
}

// A disk of which the kernel knows no number; it tells its own when it is asked.
Disk namelessDisk(HealthState state, const char *address = "6:0:0:0", uint64_t size = 1000)
{
    const bool asked = state == HealthState::good || state == HealthState::failing;
    Disk disk = diskOf(asked ? "serial.NW1000.S1" : std::string("place.") + address, state);
    copyText(disk.foundId, (std::string("place.") + address).c_str());
    copyText(disk.name, "sda");
    copyText(disk.address, address);
    copyText(disk.serial, asked ? "S1" : "");
    copyText(disk.model, asked ? "NW1000 of many words" : "BRIDGE");
    disk.idSource = asked ? IdentitySource::serialNumber : IdentitySource::place;
    disk.sizeBytes.set(size);
    return disk;
}

TEST(Book, DiskThatIsNotAskedKeepsTheIdThatItTold)
{
    for (const HealthState state : {HealthState::asleep, HealthState::unknown, HealthState::unreadable}) {
        const char *const news = state == HealthState::unreadable ? "unreadable serial.NW1000.S1" : "";
        const char *const end = state == HealthState::unreadable ? "readable serial.NW1000.S1" : "";
        Book book;
        std::vector<Disk> after;
        enter(book, {namelessDisk(HealthState::good)}, 10);
        EXPECT_EQ(enter(book, {namelessDisk(state)}, 20, &after), news);
        EXPECT_STREQ(after[0].id, "serial.NW1000.S1");
        EXPECT_STREQ(after[0].serial, "S1");
        EXPECT_STREQ(after[0].model, "NW1000 of many words");
        EXPECT_EQ(after[0].idSource, IdentitySource::serialNumber);
        EXPECT_EQ(after[0].readings.temperatureCelsius.value, -5);
        Book read; // by another process
        ASSERT_EQ(parseBook(textOf(book), read), BookState::whole);
        EXPECT_EQ(enter(read, {namelessDisk(state)}, 30, &after), "");
        EXPECT_STREQ(after[0].id, "serial.NW1000.S1");
        EXPECT_EQ(enter(read, {namelessDisk(HealthState::good)}, 40), end);
        EXPECT_EQ(read.entries.count(), 1);
    }
}

TEST(Book, DiskThatMayBeAnotherKeepsNoId)
{
    const std::string news = "removed serial.NW1000.S1, replaced place.6:0:0:0 for serial.NW1000.S1";
    Book book;
    enter(book, {namelessDisk(HealthState::good)}, 10);
    EXPECT_EQ(enter(book, {namelessDisk(HealthState::asleep, "6:0:0:0", 2000)}, 20), news) << "another size";
    Book moved;
    enter(moved, {namelessDisk(HealthState::good)}, 10);
    EXPECT_EQ(enter(moved, {namelessDisk(HealthState::asleep, "7:0:0:0")}, 20),
              "removed serial.NW1000.S1, added place.7:0:0:0");
    Book gone;
    enter(gone, {namelessDisk(HealthState::good), diskOf("b")}, 10);
    EXPECT_EQ(enter(gone, {diskOf("b")}, 20), "removed serial.NW1000.S1");
    EXPECT_EQ(enter(gone, {diskOf("b"), namelessDisk(HealthState::asleep)}, 30), "added place.6:0:0:0")
        << "it was not there in the pass before";
    Book elsewhere;
    enter(elsewhere, {namelessDisk(HealthState::good)}, 10);
    Disk there = namelessDisk(HealthState::good, "7:0:0:0");
    std::vector<Disk> after;
    EXPECT_EQ(enter(elsewhere, {namelessDisk(HealthState::asleep), there}, 20, &after), "added place.6:0:0:0");
    EXPECT_STREQ(after[0].id, "place.6:0:0:0") << "the disk is in another place, and tells it";
}

TEST(Book, DiskThatIsAskedForTheFirstTimeIsNotANewOne)
{
    Book book;
    enter(book, {diskOf("z"), namelessDisk(HealthState::asleep), diskOf("a")}, 10);
    std::vector<Disk> after;
    EXPECT_EQ(enter(book, {diskOf("z"), namelessDisk(HealthState::good), diskOf("a")}, 20, &after), "");
    EXPECT_EQ(after[1].firstSeen.value, 10);
    EXPECT_EQ(book.entries.count(), 3);
    EXPECT_EQ(enter(book, {diskOf("z"), namelessDisk(HealthState::asleep), diskOf("a")}, 30), "");
    EXPECT_EQ(enter(book, {diskOf("z"), diskOf("a")}, 40), "removed serial.NW1000.S1");
    // The id is known already, of a disk that went: no id may be in the book twice.
    EXPECT_EQ(enter(book, {diskOf("z"), namelessDisk(HealthState::asleep), diskOf("a")}, 50), "added place.6:0:0:0");
    EXPECT_EQ(enter(book, {diskOf("z"), namelessDisk(HealthState::good), diskOf("a")}, 60),
              "removed place.6:0:0:0, replaced serial.NW1000.S1 for place.6:0:0:0");
    Book read;
    EXPECT_EQ(parseBook(textOf(book), read), BookState::whole);
}

TEST(Book, SleepAloneIsNotWorthAWrite)
{
    Book book;
    enter(book, {diskOf("a")}, 10);
    EXPECT_TRUE(book.changed);
    for (const HealthState state : {HealthState::good, HealthState::asleep, HealthState::asleep, HealthState::good}) {
        enter(book, {diskOf("a", state)}, 20);
        EXPECT_FALSE(book.changed) << nameOf(state);
    }
    enter(book, {diskOf("a", HealthState::unknown)}, 30);
    EXPECT_TRUE(book.changed);
}

TEST(Book, DisksThatWentAreForgottenInTheEnd)
{
    Book book;
    enter(book, {diskOf("a")}, 10);
    enter(book, {}, 20);
    EXPECT_EQ(book.entries.count(), 1);
    enter(book, {}, 20 + kKeptSeconds);
    EXPECT_EQ(book.entries.count(), 0);
}

// ---- the file ----

Book sample()
{
    Book book;
    enter(book, {diskOf("naa.2"), diskOf("naa.1", HealthState::failing, "Slot 1")}, 10);
    return book;
}

TEST(BookText, WhatWasWrittenIsRead)
{
    const std::string text = textOf(sample());
    Book book;
    ASSERT_EQ(parseBook(text, book), BookState::whole);
    EXPECT_FALSE(book.fresh);
    ASSERT_EQ(book.entries.count(), 2);
    EXPECT_STREQ(book.entries[0].id, "naa.1");
    EXPECT_EQ(book.entries[0].verdict, HealthState::failing);
    EXPECT_EQ(book.entries[0].readings.temperatureCelsius.value, -5);
    EXPECT_EQ(book.entries[0].readings.mediaErrors.value, UINT64_MAX);
    EXPECT_FALSE(book.entries[0].readings.powerOnHours);
    EXPECT_EQ(textOf(book), text);
}

// Whoever wrote such a book, its texts are printed on terminals.
TEST(BookText, TextThatIsNotPrintableIsDamage)
{
    for (const char byte : {'\x1b', '\x7f', '\x9b', '\xff', '\x01'}) {
        Book book = sample();
        book.entries[0].health.reason[0] = byte;
        Book read;
        EXPECT_EQ(parseBook(textOf(book), read), BookState::damaged) << static_cast<int>(byte);
    }
}

TEST(BookText, EveryFlippedByteIsFound)
{
    const std::string whole = textOf(sample());
    for (size_t i = 0; i < whole.size(); ++i) {
        for (const int bit : {0, 3, 7}) {
            std::string text = whole;
            text[i] = static_cast<char>(text[i] ^ 1 << bit);
            Book book;
            EXPECT_NE(parseBook(text, book), BookState::whole) << i;
            EXPECT_EQ(book.entries.count(), 0);
            EXPECT_TRUE(book.fresh);
        }
    }
}

TEST(BookText, EveryCutIsFound)
{
    const std::string whole = textOf(sample());
    for (size_t length = 0; length < whole.size(); ++length) {
        Book book;
        EXPECT_EQ(parseBook(whole.substr(0, length), book), BookState::damaged) << length;
    }
    Book book;
    EXPECT_EQ(parseBook(whole + "x", book), BookState::damaged);
}

TEST(BookText, FieldsThatAreMissingAreUnknown)
{
    std::string text = "tavstrg disk book 1\nid=naa.1\tname=sda\tpresent=1\tfirst=10\tlast=20\n";
    char end[64];
    std::snprintf(end, sizeof end, "end 1 %016llx\n", static_cast<unsigned long long>(checksumOf(text)));
    Book book;
    ASSERT_EQ(parseBook(text + end, book), BookState::whole);
    EXPECT_STREQ(book.entries[0].foundId, "naa.1");
    EXPECT_FALSE(book.entries[0].sizeBytes);
}

TEST(BookText, LaterVersionIsNotTakenForDamage)
{
    Book book;
    EXPECT_EQ(parseBook("tavstrg disk book 2\nwhatever\n", book), BookState::newer);
    EXPECT_EQ(parseBook("tavstrg disk book 0\n", book), BookState::damaged);
}

class BookFile : public testing::Test {
protected:
    void SetUp() override
    {
        std::string name = (std::filesystem::temp_directory_path() / "tavbook-XXXXXX").string();
        directory_ = mkdtemp(name.data());
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }
    std::string path() const { return directory_ / "disks.book"; }
    BookRead read(Book &book) const
    {
        int error = 0;
        return readBook(path().c_str(), book, error);
    }
    void write(const std::string &text) const { std::ofstream(path(), std::ios::binary) << text; }

    std::filesystem::path directory_;
};

TEST_F(BookFile, IsSavedReadAndClosedToOthers)
{
    Book book;
    EXPECT_EQ(read(book), BookRead::absent);
    ASSERT_EQ(saveBook(path().c_str(), sample()), 0);
    EXPECT_EQ(read(book), BookRead::done);
    EXPECT_EQ(textOf(book), textOf(sample()));
    EXPECT_EQ(std::filesystem::status(path()).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_FALSE(std::filesystem::exists(path() + ".tmp"));
}

TEST_F(BookFile, DamagedAndNewerOnesAreMovedAside)
{
    Book book;
    write("tavstrg disk book 1\nid=");
    EXPECT_EQ(read(book), BookRead::movedAside);
    EXPECT_TRUE(book.fresh);
    EXPECT_TRUE(std::filesystem::exists(path() + ".damaged"));
    write("tavstrg disk book 9\n");
    EXPECT_EQ(read(book), BookRead::movedNewer);
    EXPECT_TRUE(std::filesystem::exists(path() + ".newer"));
    EXPECT_EQ(read(book), BookRead::absent);
}

TEST_F(BookFile, AnythingElseInItsPlaceIsAFailure)
{
    Book book;
    std::filesystem::create_directory(path());
    EXPECT_EQ(read(book), BookRead::failed);
    EXPECT_NE(saveBook(path().c_str(), sample()), 0);
    std::filesystem::remove(path());
    std::filesystem::create_symlink("/etc/passwd", path());
    EXPECT_EQ(read(book), BookRead::failed);
    EXPECT_EQ(saveBook("/nonexistent/book", sample()), ENOENT);
}

TEST_F(BookFile, WhatSomebodyPutInTheTemporaryFilesPlaceIsNotWrittenTo)
{
    const std::filesystem::path other = path() + ".other";
    std::ofstream(other) << "of somebody else";
    std::filesystem::create_hard_link(other, path() + ".tmp");
    EXPECT_EQ(saveBook(path().c_str(), sample()), 0);
    std::string kept;
    std::getline(std::ifstream(other), kept);
    EXPECT_EQ(kept, "of somebody else");
    std::filesystem::remove(other);
}

TEST_F(BookFile, IsNotMovedToANameThatWasCut)
{
    std::string longest = path(); // as long as a path may be: no extension fits
    longest.insert(longest.rfind('/'), PATH_MAX - 1 - longest.size(), '/');
    std::ofstream(path()) << "damaged";
    Book book;
    int error = 0;
    EXPECT_EQ(readBook(longest.c_str(), book, error), BookRead::failed);
    EXPECT_EQ(error, ENAMETOOLONG);
    EXPECT_TRUE(std::filesystem::exists(path()));
}

TEST_F(BookFile, KilledWhileSavingItIsNeverLost)
{
    ASSERT_EQ(saveBook(path().c_str(), sample()), 0);
    for (int i = 0; i < 200; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            const Book book = sample();
            for (;;) {
                saveBook(path().c_str(), book);
            }
        }
        ASSERT_GT(child, 0);
        usleep(static_cast<useconds_t>(100 * (i % 20)));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        Book book;
        ASSERT_EQ(read(book), BookRead::done) << i;
    }
    EXPECT_EQ(saveBook(path().c_str(), sample()), 0) << "what a killed one left is in nobody's way";
}

} // namespace
