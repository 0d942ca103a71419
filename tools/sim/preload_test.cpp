// SPDX-License-Identifier: Apache-2.0
// The library preloaded into other programs.
#include "sim/sim.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::Not;

std::string libraryPath()
{
    Dl_info info{};
    dladdr(dlsym(RTLD_DEFAULT, "ioctl"), &info);
    return std::filesystem::absolute(info.dli_fname);
}

class Preload : public testing::Test {
protected:
    Preload() : directory(std::filesystem::temp_directory_path() / ("tavsim-preload-" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(directory);
        describe(
            R"({"kernel": "6.1.7-test", "hosts": [{"driver": "ahci", "devices": [{"ata": true, "vendor": "FIRST"}]}]})");
    }
    ~Preload() override { std::filesystem::remove_all(directory); }

    void describe(const std::string &json) { std::ofstream(description()) << json; }
    std::string description() const { return directory / "machine.json"; }

    // Output of a shell command on the machine, including its error output. Does nothing with a sanitized library.
    std::string run(const std::string &command, const std::string &environment = "")
    {
        if (!sim::allocationsCanFail()) {
            return "";
        }
        std::string quoted = command;
        for (size_t at = 0; (at = quoted.find('\'', at)) != quoted.npos; at += 4) {
            quoted.replace(at, 1, "'\\''");
        }
        const std::string line = "TAVSIM_MACHINE=" + description() + " " + environment +
                                 " LD_PRELOAD=" + libraryPath() + " bash -c '" + quoted + "' 2>&1";
        FILE *pipe = popen(line.c_str(), "r");
        std::string output;
        std::array<char, 4096> part;
        for (size_t length = 0; (length = fread(part.data(), 1, part.size(), pipe)) > 0;) {
            output.append(part.data(), length);
        }
        status = pclose(pipe);
        return output;
    }

    // A directory for the machines of this test.
    std::string makeMachines() const
    {
        std::filesystem::create_directories(directory / "tmp");
        return directory / "tmp";
    }

    std::filesystem::path directory;
    int status = 0;
};

#define SKIP_WITH_SANITIZERS()                                                                                         \
    if (!sim::allocationsCanFail()) {                                                                                  \
        GTEST_SKIP() << "a sanitized library cannot be preloaded into a program without sanitizer";                    \
    }

TEST_F(Preload, ProgramSeesTheMachine)
{
    SKIP_WITH_SANITIZERS()
    EXPECT_EQ(run("cat /sys/bus/scsi/devices/0:0:0:0/vendor"), "FIRST   \n");
    EXPECT_EQ(run("uname -r"), "6.1.7-test\n");
    EXPECT_THAT(run("ls /sys/bus/scsi/devices"), HasSubstr("0:0:0:0"));
    EXPECT_THAT(run("cat /proc/scsi/scsi; ls -l /dev/sda"), HasSubstr("No such file"));
    EXPECT_THAT(run("ls -lL /dev/sda"), HasSubstr("8, 0"));
}

TEST_F(Preload, ChangedDescriptionIsHotPlug)
{
    SKIP_WITH_SANITIZERS()
    // The shell itself opens the files: one process sees both descriptions.
    const std::string json =
        R"({"kernel": "6.1.7-test", "hosts": [{"driver": "ahci", "devices": [{"ata": true, "vendor": "SECOND"}]}]})";
    const std::string output =
        run("read -r a </sys/bus/scsi/devices/0:0:0:0/vendor; echo $a; echo '" + json + "' >" + description() +
            "; LD_PRELOAD= sleep 0.1; read -r a </sys/bus/scsi/devices/0:0:0:0/vendor; echo $a");
    EXPECT_EQ(output, "FIRST\nSECOND\n");
}

TEST_F(Preload, WaitForAnEventEndsWithAChangeOfTheDescription)
{
    SKIP_WITH_SANITIZERS()
    if (std::system("command -v python3 >/dev/null") != 0) {
        GTEST_SKIP() << "no Python";
    }
    const std::string fresh = description() + ".new";
    std::ofstream(fresh) << R"({"hosts": [{"devices": [{"ata": true}, {"ata": true, "id": 1}]}]})";
    const std::string program = "import os, select, socket, subprocess\n"
                                "s = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 15)\n"
                                "s.bind((0, 1))\n"
                                "p = select.poll()\n"
                                "p.register(s, select.POLLIN)\n"
                                "print(p.poll(1))\n"
                                "os.rename('" +
                                fresh + "', '" + description() +
                                "')\n"
                                "print(len(p.poll()))\n"
                                "print(s.recv(4096).split(bytes(1))[1].decode(), os.path.exists('/dev/sdb'))\n";
    std::ofstream(directory / "events.py") << program;
    EXPECT_EQ(run("python3 " + (directory / "events.py").string()), "[]\n1\nACTION=add True\n");
}

TEST_F(Preload, DamagedChangeIsReportedOnceAndIgnored)
{
    SKIP_WITH_SANITIZERS()
    const std::string output =
        run("echo '{' >" + description() +
            "; LD_PRELOAD= sleep 0.1; for i in 1 2 3; do read -r a </sys/bus/scsi/devices/0:0:0:0/vendor; "
            "echo $a; echo '{ ' >>" +
            description() + "; LD_PRELOAD= sleep 0.1; done");
    EXPECT_THAT(output, HasSubstr("FIRST\nFIRST\nFIRST\n"));
    const size_t message = output.find("tavsim: ");
    ASSERT_NE(message, output.npos);
    EXPECT_THAT(output.substr(message + 1), Not(HasSubstr("tavsim: ")));
}

TEST_F(Preload, DamagedDescriptionEndsTheProgram)
{
    SKIP_WITH_SANITIZERS()
    describe("{");
    EXPECT_THAT(run("echo started"), testing::AllOf(HasSubstr("not JSON"), Not(HasSubstr("started"))));
    EXPECT_EQ(WEXITSTATUS(status), 2);
}

TEST_F(Preload, DirectoryIsRemovedByItsProcessOnly)
{
    SKIP_WITH_SANITIZERS()
    const std::string machines = makeMachines();
    // The subshell is a forked child: its end must not remove the machine.
    EXPECT_EQ(run("(:); read -r a </sys/bus/scsi/devices/0:0:0:0/vendor; echo $a", "TMPDIR=" + machines), "FIRST\n");
    EXPECT_TRUE(std::filesystem::is_empty(machines));
}

TEST_F(Preload, DirectoryOfAKilledProcessIsRemovedByTheNext)
{
    SKIP_WITH_SANITIZERS()
    const std::string machines = makeMachines();
    run("kill -9 $$", "TMPDIR=" + machines);
    EXPECT_FALSE(std::filesystem::is_empty(machines));
    run("true", "TMPDIR=" + machines);
    EXPECT_TRUE(std::filesystem::is_empty(machines));
}

TEST_F(Preload, FailedDescriptionLeavesNoDirectory)
{
    SKIP_WITH_SANITIZERS()
    const std::string machines = makeMachines();
    describe(R"({"files": {"/proc/interrupts/below": "x"}})");
    EXPECT_THAT(run("echo started", "TMPDIR=" + machines), Not(HasSubstr("started")));
    EXPECT_TRUE(std::filesystem::is_empty(machines));
}

// What a killed process leaves: a directory with an unlocked lock file.
void plant(const std::string &at, mode_t mode = 0700)
{
    std::filesystem::create_directories(at);
    std::ofstream(at + "/.lock") << "";
    chmod(at.c_str(), mode);
}

TEST_F(Preload, SweepKeepsDirectoriesOfOthers)
{
    SKIP_WITH_SANITIZERS()
    const std::string machines = makeMachines();
    plant(machines + "/tavsim.open", 0777);
    plant(machines + "/tavsim.own");
    plant(machines + "/tavsim.other");
    if (chown((machines + "/tavsim.other").c_str(), 65534, 65534) != 0) {
        std::filesystem::remove_all(machines + "/tavsim.other"); // only root can test it
    }
    const bool other = std::filesystem::exists(machines + "/tavsim.other");
    run("true", "TMPDIR=" + machines);
    EXPECT_FALSE(std::filesystem::exists(machines + "/tavsim.own"));
    EXPECT_TRUE(std::filesystem::exists(machines + "/tavsim.open"));
    EXPECT_EQ(std::filesystem::exists(machines + "/tavsim.other"), other);
}

TEST_F(Preload, SweepFollowsNoLinks)
{
    SKIP_WITH_SANITIZERS()
    const std::string machines = makeMachines();
    plant(directory / "elsewhere");
    std::filesystem::create_directory_symlink(directory / "elsewhere", machines + "/tavsim.link");
    plant(machines + "/tavsim.locklink");
    std::filesystem::remove(machines + "/tavsim.locklink/.lock");
    std::filesystem::create_symlink(directory / "elsewhere/.lock", machines + "/tavsim.locklink/.lock");
    run("true", "TMPDIR=" + machines);
    EXPECT_TRUE(std::filesystem::exists(directory / "elsewhere/.lock"));
    EXPECT_TRUE(std::filesystem::is_symlink(machines + "/tavsim.link"));
    EXPECT_TRUE(std::filesystem::is_symlink(machines + "/tavsim.locklink/.lock"));
}

// The kernel lets an open for writing, or for reading against a write lease, wait 45 s for the holder of the lease.
TEST_F(Preload, SweepDoesNotWaitForLeases)
{
    SKIP_WITH_SANITIZERS()
    const std::string machines = makeMachines();
    plant(machines + "/tavsim.leased");
    const std::string lock = machines + "/tavsim.leased/.lock";
    const int held = open(lock.c_str(), O_RDWR | O_CLOEXEC);
    std::signal(SIGIO, SIG_IGN); // the kernel's request to give up the lease
    ASSERT_EQ(fcntl(held, F_SETLEASE, F_WRLCK), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(run("echo started", "TMPDIR=" + machines), "started\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_TRUE(std::filesystem::exists(lock));
    close(held);
    std::signal(SIGIO, SIG_DFL);
}

TEST_F(Preload, StateDirectoryKeepsTheAgentsFiles)
{
    SKIP_WITH_SANITIZERS()
    const std::string state = directory / "state";
    run("echo saved >/opt/qlm/tavkit_sa/data/tavstrgsave.dat; echo key >/opt/qlm/tavkit_sa/work/key",
        "TAVSIM_STATE=" + state);
    EXPECT_EQ(run("cat /opt/qlm/tavkit_sa/data/tavstrgsave.dat /opt/qlm/tavkit_sa/work/key", "TAVSIM_STATE=" + state),
              "saved\nkey\n");
    EXPECT_TRUE(std::filesystem::exists(state + "/data/tavstrgsave.dat"));
    EXPECT_THAT(run("cat /opt/qlm/tavkit_sa/data/tavstrgsave.dat"), HasSubstr("No such file"));
}

TEST_F(Preload, CostIsReportedOncePerProcess)
{
    SKIP_WITH_SANITIZERS()
    const std::string file = directory / "report";
    run("read -r a </sys/bus/scsi/devices/0:0:0:0/vendor; (:)", "TAVSIM_REPORT=" + file);
    std::ifstream lines(file);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    const nlohmann::json report = nlohmann::json::parse(line);
    EXPECT_EQ(report["program"], "bash");
    EXPECT_GT(report["cpuSeconds"], 0.0);
    EXPECT_LT(report["cpuSeconds"], 10.0);
    EXPECT_EQ(report["requests"], 0);
    EXPECT_EQ(report["unknownIoctls"], 0);
    EXPECT_GT(report["peakKb"], report["machineKb"]);
    EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST_F(Preload, EmptyVariableLeavesTheRealMachine)
{
    SKIP_WITH_SANITIZERS()
    EXPECT_THAT(run("cat /proc/1/comm", "TAVSIM_MACHINE="), Not(HasSubstr("No such file")));
}

} // namespace
