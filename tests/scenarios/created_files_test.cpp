// SPDX-License-Identifier: Apache-2.0
// Owners and modes of what the provider creates, under any umask and with any file that another user has put in its
// place.
#include "scenarios/child.h"
#include "scenarios/generations.h"
#include "scenarios/monitored.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using scenario::machineOf;
using scenario::Server;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uid_t kSomebody = 65534;
constexpr char kAgentRoot[] = "/opt/qlm/tavkit_sa";
constexpr char kTemporary[] = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat.tmp";
constexpr char kKeyFile[] = "/opt/qlm/tavkit_sa/work/tavstrgshm.key3";
constexpr char kVictim[] = "/opt/qlm/tavkit_sa/victim";
const std::vector<std::string> kFiles = {
    "data/tavstrgsave.dat", "work/tavstrgshm.key0", "work/tavstrgshm.key1",
    "work/tavstrgshm.key2", "work/tavstrgshm.key3", "work/tavstrgshm.key5",
};

struct stat statOf(const std::string &path)
{
    struct stat info = {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

void expectOwn(const std::string &path, mode_t mode)
{
    const struct stat info = statOf(path);
    EXPECT_TRUE(S_ISREG(info.st_mode)) << path;
    EXPECT_EQ(info.st_mode & ALLPERMS, mode) << path;
    EXPECT_EQ(info.st_uid, ::geteuid()) << path;
    EXPECT_EQ(info.st_gid, ::getegid()) << path;
    EXPECT_EQ(info.st_nlink, 1U) << path;
}

class Umask {
public:
    explicit Umask(mode_t mask) : before_(::umask(mask)) {}
    ~Umask() { ::umask(before_); }
    Umask(const Umask &) = delete;
    Umask &operator=(const Umask &) = delete;

private:
    mode_t before_;
};

// A monitored machine whose provider runs under an umask.
class Service {
public:
    explicit Service(mode_t mask) : umask_(mask), before_(entries()) {}

    std::string where(const std::string &name) const { return machine.where(std::string(kAgentRoot) + "/" + name); }

    bool start()
    {
        server = std::make_unique<Server>(scenario::inServiceMode());
        return steps.start(**server);
    }

    // Files that appeared in the agent's root since construction.
    std::vector<std::string> made() const
    {
        std::vector<std::string> fresh;
        for (const std::string &entry : entries()) {
            if (before_.count(entry) == 0) {
                fresh.push_back(entry);
            }
        }
        return fresh;
    }

    void expectEverythingOwn() const
    {
        for (const std::string &file : kFiles) {
            expectOwn(where(file), 0600);
        }
        const std::vector<process::Segment> segments = process::segmentsOf(::getpid());
        EXPECT_EQ(segments.size(), 5U);
        for (const process::Segment &segment : segments) {
            struct shmid_ds info = {};
            ASSERT_EQ(::shmctl(segment.id, IPC_STAT, &info), 0);
            EXPECT_EQ(info.shm_perm.mode & 0777, 0600);
            EXPECT_EQ(info.shm_perm.uid, ::geteuid());
            EXPECT_EQ(info.shm_perm.cuid, ::geteuid());
            EXPECT_EQ(info.shm_perm.gid, ::getegid());
        }
    }

private:
    std::set<std::string> entries() const
    {
        std::set<std::string> names;
        const std::filesystem::path root = machine.where(kAgentRoot);
        for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
            names.insert(entry.path().lexically_relative(root));
        }
        return names;
    }

    Umask umask_; // first: it applies to all that is created

public:
    scenario::Agent agent{0};
    sim::Machine machine{machineOf(1, true)};
    scenario::Steps steps;
    std::unique_ptr<Server> server;

private:
    std::set<std::string> before_;
};

class Created : public testing::TestWithParam<mode_t> {};

TEST_P(Created, IsWritableByItsOwnerAlone)
{
    Service service(GetParam());
    mode_t whileWritten = 0;
    sim::atNth(sim::Call::write, 1, [&] { whileWritten = statOf(service.machine.where(kTemporary)).st_mode; });
    ASSERT_TRUE(service.start());
    EXPECT_EQ(whileWritten & ALLPERMS, 0600U);
    EXPECT_EQ(service.made(), kFiles);
    service.expectEverythingOwn();

    service.machine.change(machineOf(2, true));
    ASSERT_TRUE(service.steps.pass());
    EXPECT_THAT(service.agent.alerts(), ElementsAre(scenario::kConfigurationChange));
    EXPECT_EQ(service.made(), kFiles);
    service.expectEverythingOwn();
    for (const char *variable : {"TAVLOG_FILE", "TAVALERT_FILE"}) {
        expectOwn(std::getenv(variable), 0640 & ~GetParam());
    }

    (*service.server)->stop();
    EXPECT_EQ(service.made(), kFiles) << "a stop leaves the files";
    expectOwn(service.where("data/tavstrgsave.dat"), 0600);
    EXPECT_THAT(process::segmentsOf(::getpid()), IsEmpty());
    scenario::expectNothingLeft(**service.server);
}

INSTANTIATE_TEST_SUITE_P(UnderUmask, Created, testing::Values(0, 022, 077), [](const auto &testInfo) {
    return std::to_string(testInfo.param >> 6) + std::to_string(testInfo.param >> 3 & 7) +
           std::to_string(testInfo.param & 7);
});

// A user who may write to the agent's directories has put something at the paths of the provider's files. The provider
// works, its files are its own, and the other user's content is unchanged.
using Put = std::function<bool(sim::Machine &)>;

struct Place {
    const char *name;
    Put put; // false if this process is not permitted to
};

void PrintTo(const Place &place, std::ostream *out)
{
    *out << place.name;
}

Put linkAt(const char *path, const char *target)
{
    return [=](sim::Machine &machine) {
        const std::string link = machine.where(path);
        return ::symlink(machine.where(target).c_str(), link.c_str()) == 0 &&
               ::lchown(link.c_str(), kSomebody, kSomebody) == 0;
    };
}

Put secondNameAt(const char *path)
{
    return
        [=](sim::Machine &machine) { return ::link(machine.where(kVictim).c_str(), machine.where(path).c_str()) == 0; };
}

Put fileAt(const char *path)
{
    return [=](sim::Machine &machine) {
        machine.write(path, "open to everyone");
        const std::string file = machine.where(path);
        return ::chmod(file.c_str(), 0666) == 0 && ::chown(file.c_str(), kSomebody, kSomebody) == 0;
    };
}

const Place kPlaces[] = {
    {"ALinkForTheState", linkAt(scenario::kStateFile, kVictim)},
    {"ALinkToNothingForTheState", linkAt(scenario::kStateFile, "/opt/qlm/tavkit_sa/data/nothing")},
    {"ASecondNameForTheState", secondNameAt(scenario::kStateFile)},
    {"AFileForTheState", fileAt(scenario::kStateFile)},
    {"ASecondNameForTheTemporaryFile", secondNameAt(kTemporary)},
    {"AFileForTheTemporaryFile", fileAt(kTemporary)},
    {"ALinkForAKeyFile", linkAt(kKeyFile, kVictim)},
    {"ALinkToNothingForAKeyFile", linkAt(kKeyFile, "/opt/qlm/tavkit_sa/data/nothing")},
};

class Placed : public testing::TestWithParam<Place> {};

TEST_P(Placed, IsReplacedAndNotWritten)
{
    Service service(0);
    service.machine.write(kVictim, "precious");
    const struct stat before = statOf(service.machine.where(kVictim));
    if (!GetParam().put(service.machine)) {
        GTEST_SKIP() << "only root can let it be somebody else's";
    }
    ASSERT_TRUE(service.start());
    service.expectEverythingOwn();
    ASSERT_TRUE(service.steps.pass());
    service.expectEverythingOwn();
    EXPECT_FALSE(service.machine.exists(kTemporary));
    EXPECT_FALSE(service.machine.exists("/opt/qlm/tavkit_sa/data/nothing"));
    EXPECT_EQ(service.machine.read(kVictim), "precious");
    const struct stat after = statOf(service.machine.where(kVictim));
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    std::string why;
    EXPECT_EQ(scenario::generationOf(service.machine.read(scenario::kStateFile), why), 1U) << why;
}

INSTANTIATE_TEST_SUITE_P(Before, Placed, testing::ValuesIn(kPlaces),
                         [](const auto &testInfo) { return std::string(testInfo.param.name); });

// They are read only; administrators link them from a checkout.
TEST(AdministratorsFiles, MayBeLinks)
{
    sim::Machine machine(machineOf(1));
    const std::string data = std::string(kAgentRoot) + "/data/";
    for (const std::string name : {"storage.inf", "noscsi.inf"}) {
        const std::string elsewhere = std::string(kAgentRoot) + "/" + name;
        machine.write(elsewhere, machine.read(data + name));
        machine.remove(data + name);
        machine.link(data + name, elsewhere);
    }
    Server server;
    scenario::expectGeneration(*server, 1);
}

TEST(AnotherUser, CanOpenNoFileAndAttachNoSegment)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become somebody else";
    }
    const Umask everything(0);
    const sim::Machine machine(machineOf(1));
    ASSERT_EQ(::chmod(machine.where("").c_str(), 0755), 0) << "nothing but the files' own modes is to count";
    Server server; // outside service mode: one thread, so the process can be forked
    ASSERT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    const std::vector<process::Segment> segments = process::segmentsOf(::getpid());
    ASSERT_EQ(segments.size(), 5U);
    scenario::Child somebody([&] {
        ASSERT_EQ(::setgid(kSomebody), 0);
        ASSERT_EQ(::setuid(kSomebody), 0);
        for (const std::string &file : kFiles) {
            const std::string path = machine.where(std::string(kAgentRoot) + "/" + file);
            statOf(path);
            for (const int flags : {O_RDONLY, O_WRONLY}) {
                EXPECT_EQ(::open(path.c_str(), flags), -1) << path;
                EXPECT_EQ(errno, EACCES) << path;
            }
        }
        for (const process::Segment &segment : segments) {
            for (const int flags : {SHM_RDONLY, 0}) {
                EXPECT_EQ(::shmat(segment.id, nullptr, flags), reinterpret_cast<void *>(-1));
                EXPECT_EQ(errno, EACCES);
            }
            EXPECT_EQ(::shmctl(segment.id, IPC_RMID, nullptr), -1);
        }
    });
    EXPECT_EQ(somebody.wait().status, 0);
}

} // namespace
