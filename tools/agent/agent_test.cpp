// SPDX-License-Identifier: Apache-2.0
// The two libraries as the provider uses them: loaded by name, called through pointers.
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

struct Indication {
    uint32_t version, method;
    const char *sourceName;
    uint32_t eventId;
    int32_t eventType, numberOfStrings;
    const char **strings;
};

class Library {
public:
    explicit Library(const char *name)
        : handle_(dlopen((std::string(TAV_BINARY_DIR) + "/lib/" + name).c_str(), RTLD_LAZY))
    {
        EXPECT_NE(handle_, nullptr) << dlerror();
    }
    ~Library() { close(); }
    void close()
    {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
        handle_ = nullptr;
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    template <class F> F *find(const char *name) const
    {
        void *symbol = dlsym(handle_, name);
        EXPECT_NE(symbol, nullptr) << name;
        return reinterpret_cast<F *>(symbol);
    }

private:
    void *handle_;
};

class Agent : public testing::Test {
protected:
    Agent() : directory(std::filesystem::temp_directory_path() / ("tav-agent-" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(directory);
        path = directory / "out";
        for (const char *name : {"TAVLOG_FILE", "TAVLOG_LEVEL", "TAVALERT_FILE"}) {
            unsetenv(name);
        }
        setenv("TAVALERT_QUIET", "1", 1);
    }
    ~Agent() override { std::filesystem::remove_all(directory); }

    std::vector<std::string> lines() const
    {
        std::vector<std::string> result;
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            result.push_back(line);
        }
        return result;
    }

    std::filesystem::path directory;
    std::string path;
    Library log{"libtavlog.so"};
    Library alert{"libtavalert.so"};
    void (*setFilePath)(const char *) = log.find<void(const char *)>("SetFilePath");
    void (*trace)(int, const char *, const char *, int, const char *,
                  ...) = log.find<void(int, const char *, const char *, int, const char *, ...)>("TraceLog");
    int (*send)(Indication) = alert.find<int(Indication)>("SendIndication");
};

TEST_F(Agent, TraceLineHasTimeLevelFunctionAndLine)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    setFilePath("tavstrg.log");
    trace(3, "", "strgInitProvider", 117, "_OUT_ ret=[%d] name=[%s]", -1, "x");
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_THAT(lines()[0],
                MatchesRegex("[0-9-]{10} [0-9:]{8}\\.[0-9]{3} 3 strgInitProvider:117 _OUT_ ret=\\[-1\\] name=\\[x\\]"));
}

TEST_F(Agent, AlertLibraryIsMarkedAsDevelopment)
{
    EXPECT_EQ(*alert.find<const int>("TavAlertTakesFile"), 1);
}

TEST_F(Agent, WithoutFileNothingIsTraced)
{
    trace(3, "", "f", 1, "x");
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}

TEST_F(Agent, LowerLevelsCanBeOmitted)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    setenv("TAVLOG_LEVEL", "3", 1);
    trace(0, "", "f", 1, "detail");
    trace(3, "", "f", 1, "failure");
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_THAT(lines()[0], HasSubstr("failure"));
}

TEST_F(Agent, TracingKeepsErrno)
{
    setenv("TAVLOG_FILE", "/nowhere/at/all", 1);
    errno = ENOTTY;
    trace(0, "", "f", 1, "%s", "x");
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(Agent, LineEndsBecomeBlanksAndLongTextIsKept)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    const std::string longText(100000, 'x');
    trace(0, "module", "f", 1, "a\nb\r%s", longText.c_str());
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_TRUE(lines()[0].ends_with("module f:1 a b " + longText));
}

TEST_F(Agent, LinesOfManyThreadsStayWhole)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            const std::string text(200, static_cast<char>('a' + i));
            for (int n = 0; n < 100; ++n) {
                trace(0, "", "f", n, "%s.", text.c_str());
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lines().size(), 400U);
    for (const std::string &line : lines()) {
        EXPECT_THAT(line, MatchesRegex(".* f:[0-9]+ (a{200}|b{200}|c{200}|d{200})\\."));
    }
}

TEST_F(Agent, FifoWithoutReaderDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    setenv("TAVLOG_FILE", path.c_str(), 1);
    trace(0, "", "f", 1, "x");
}

TEST_F(Agent, AlertIsOneJsonObject)
{
    setenv("TAVALERT_FILE", path.c_str(), 1);
    std::array<const char *, 2> strings{"Hard Disk[1] : ACME DISK 1.0", "SCSI"};
    EXPECT_EQ(send({0, 3, "TAV Storage Service", 0x800403E9, 2, 2, strings.data()}), 0);
    EXPECT_EQ(send({0, 2, "TAV Storage Service", 0x4004044D, 4, 0, nullptr}), 0);
    ASSERT_EQ(lines().size(), 2U);
    const nlohmann::json first = nlohmann::json::parse(lines()[0]);
    EXPECT_EQ(first["source"], "TAV Storage Service");
    EXPECT_EQ(first["eventId"], "0x800403E9");
    EXPECT_EQ(first["eventType"], 2);
    EXPECT_EQ(first["method"], 3);
    EXPECT_EQ(first["version"], 0);
    EXPECT_THAT(first["strings"].get<std::vector<std::string>>(), ElementsAre("Hard Disk[1] : ACME DISK 1.0", "SCSI"));
    EXPECT_TRUE(nlohmann::json::parse(lines()[1])["strings"].empty());
}

TEST_F(Agent, EveryByteGivesValidJson)
{
    setenv("TAVALERT_FILE", path.c_str(), 1);
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    const std::vector<std::string> texts{
        all,        "\"quoted\" back\\slash", "gr\xC3\xBC\xC3\x9F", "\xE2\x82",
        "\xC0\xAF", "\xED\xA0\x80",           "\xF0\x9F\x92\xBE",   "\xF5\x80\x80\x80"};
    std::vector<const char *> pointers;
    for (const std::string &text : texts) {
        pointers.push_back(text.c_str());
    }
    pointers.push_back(nullptr);
    EXPECT_EQ(send({0, 3, "\x01", 1, 4, static_cast<int32_t>(pointers.size()), pointers.data()}), 0);
    ASSERT_EQ(lines().size(), 1U);
    const nlohmann::json object = nlohmann::json::parse(lines()[0]);
    EXPECT_EQ(object["strings"][1], texts[1]);
    EXPECT_EQ(object["strings"][2], texts[2]);
    EXPECT_EQ(object["strings"][3],
              "\xC3\xA2\xC2\x82"); // invalid bytes become characters with their values
    EXPECT_EQ(object["strings"][6], texts[6]);
    EXPECT_TRUE(object["strings"][8].is_null());
}

TEST_F(Agent, UnwritableAlertIsAnError)
{
    setenv("TAVALERT_FILE", "/nowhere/at/all", 1);
    errno = ENOTTY;
    EXPECT_NE(send({0, 3, "s", 1, 4, 0, nullptr}), 0);
    EXPECT_EQ(errno, ENOTTY);
    setenv("TAVALERT_FILE", "/dev/full", 1);
    EXPECT_NE(send({0, 3, "s", 1, 4, 0, nullptr}), 0);
    unsetenv("TAVALERT_FILE");
    EXPECT_EQ(send({0, 3, "s", 1, 4, 0, nullptr}), 0);
}

TEST_F(Agent, WithoutQuietAlertGoesToStandardErrorToo)
{
    unsetenv("TAVALERT_QUIET");
    testing::internal::CaptureStderr();
    EXPECT_EQ(send({0, 3, "source", 1, 4, 0, nullptr}), 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("\"source\":\"source\""));
}

TEST_F(Agent, FilesAreNotReadableByOthers)
{
    for (const auto &[mask, mode] : {std::pair<mode_t, mode_t>(0, 0640), {077, 0600}}) {
        for (const char *variable : {"TAVLOG_FILE", "TAVALERT_FILE"}) {
            const std::string file = path + variable + std::to_string(mask);
            setenv(variable, file.c_str(), 1);
            const mode_t before = umask(mask);
            trace(0, "", "f", 1, "x");
            send({0, 3, "s", 1, 4, 0, nullptr});
            umask(before);
            struct stat status {};
            ASSERT_EQ(stat(file.c_str(), &status), 0) << file;
            EXPECT_EQ(status.st_mode & 07777, mode) << file;
            EXPECT_EQ(status.st_uid, geteuid());
        }
    }
}

TEST_F(Agent, OnlyOwnLinksAreFollowed)
{
    const std::string link = directory / "link";
    std::filesystem::create_symlink(path, link);
    setenv("TAVALERT_FILE", link.c_str(), 1);
    EXPECT_EQ(send({0, 3, "s", 1, 4, 0, nullptr}), 0);
    EXPECT_EQ(lines().size(), 1U);
    if (lchown(link.c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root can change the owner of the link";
    }
    EXPECT_NE(send({0, 3, "s", 1, 4, 0, nullptr}), 0);
    setenv("TAVLOG_FILE", link.c_str(), 1);
    trace(3, "", "f", 1, "x");
    EXPECT_EQ(lines().size(), 1U);
}

// The far end of a terminal, whose near end is what the libraries write to.
class Terminal {
public:
    Terminal() : far_(posix_openpt(O_RDWR | O_NOCTTY))
    {
        EXPECT_EQ(grantpt(far_), 0);
        EXPECT_EQ(unlockpt(far_), 0);
        near_ = open(ptsname(far_), O_RDWR | O_NOCTTY);
    }
    ~Terminal()
    {
        close(near_);
        close(far_);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    std::string name() const { return ptsname(far_); }
    std::string received() const
    {
        char text[4096];
        const ssize_t count = read(far_, text, sizeof text);
        return {text, count > 0 ? static_cast<size_t>(count) : 0};
    }

private:
    int far_;
    int near_ = -1;
};

TEST_F(Agent, ATerminalGetsNoByteThatWouldControlIt)
{
    const Terminal terminal;
    const char *hostile = "\x1b[2J \x9b"
                          "2J \xc2\x9b \xe2\x80\xae \xff";
    setenv("TAVLOG_FILE", terminal.name().c_str(), 1);
    trace(3, "", "f", 1, "model=[%s]", hostile);
    EXPECT_THAT(terminal.received(),
                testing::EndsWith("model=[\\x1b[2J \\x9b2J \\xc2\\x9b \\xe2\\x80\\xae \\xff]\r\n"));
    setenv("TAVALERT_FILE", terminal.name().c_str(), 1);
    std::array<const char *, 1> strings{hostile};
    EXPECT_EQ(send({0, 3, "s", 1, 4, 1, strings.data()}), 0);
    const std::string received = terminal.received();
    for (const char c : received.substr(0, received.size() - 2)) {
        EXPECT_TRUE(c >= 0x20 && c < 0x7f) << received;
    }
    setenv("TAVLOG_FILE", path.c_str(), 1); // a file gets every byte as it is
    trace(3, "", "f", 1, "%s", hostile);
    EXPECT_THAT(lines().back(), testing::EndsWith(hostile));
}

// Descriptors of this process that are open on the file.
std::vector<int> descriptorsOn(const std::string &file)
{
    std::vector<int> result;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == file) {
            result.push_back(std::stoi(entry.path().filename()));
        }
    }
    return result;
}

size_t linesIn(const std::string &file)
{
    std::ifstream stream(file);
    return static_cast<size_t>(std::count(std::istreambuf_iterator<char>(stream), {}, '\n'));
}

TEST_F(Agent, FileStaysOpenUntilUnload)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    trace(0, "", "f", 1, "x");
    const std::vector<int> first = descriptorsOn(path);
    ASSERT_EQ(first.size(), 1U);
    trace(0, "", "f", 1, "x");
    EXPECT_EQ(descriptorsOn(path), first);
    EXPECT_GT(first[0], STDERR_FILENO);
    EXPECT_NE(fcntl(first[0], F_GETFD) & FD_CLOEXEC, 0);
    log.close();
    EXPECT_TRUE(descriptorsOn(path).empty());
}

// The trace library looks for a rotated file only now and then.
void awaitNextLook()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
}

TEST_F(Agent, RenamedOrRemovedFileIsOpenedAgain)
{
    for (const bool renamed : {true, false}) {
        for (const char *variable : {"TAVLOG_FILE", "TAVALERT_FILE"}) {
            setenv(variable, path.c_str(), 1);
            const auto writeLine = [&] {
                std::string_view(variable) == "TAVLOG_FILE" ? trace(0, "", "f", 1, "x")
                                                            : void(send({0, 3, "s", 1, 4, 0, nullptr}));
            };
            writeLine();
            writeLine();
            if (renamed) {
                std::filesystem::rename(path, path + ".1");
                EXPECT_EQ(linesIn(path + ".1"), 2U);
            } else {
                std::filesystem::remove(path);
            }
            if (std::string_view(variable) == "TAVLOG_FILE") {
                awaitNextLook();
            }
            writeLine();
            EXPECT_EQ(linesIn(path), 1U) << variable;
            EXPECT_EQ(descriptorsOn(path).size(), 1U);
            std::filesystem::remove(path);
            unsetenv(variable);
        }
    }
}

TEST_F(Agent, VariableMayChangeAtAnyTime)
{
    const std::string other = path + "-other";
    for (int i = 0; i < 3; ++i) {
        setenv("TAVLOG_FILE", path.c_str(), 1);
        trace(0, "", "f", 1, "x");
        setenv("TAVLOG_FILE", other.c_str(), 1);
        trace(0, "", "f", 1, "x");
        setenv("TAVLOG_LEVEL", "1", 1);
        trace(0, "", "f", 1, "left out");
        unsetenv("TAVLOG_LEVEL");
        unsetenv("TAVLOG_FILE");
        trace(0, "", "f", 1, "left out");
    }
    EXPECT_EQ(linesIn(path), 3U);
    EXPECT_EQ(linesIn(other), 3U);
}

TEST_F(Agent, RelativePathFollowsTheWorkingDirectory)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::create_directories(directory / "sub");
    setenv("TAVLOG_FILE", "out", 1);
    for (const std::filesystem::path &at : {directory, directory / "sub"}) {
        std::filesystem::current_path(at);
        awaitNextLook();
        trace(0, "", "f", 1, "x");
        EXPECT_EQ(linesIn(at / "out"), 1U);
    }
    std::filesystem::current_path(before);
}

// A program that becomes a daemon may close all descriptors.
TEST_F(Agent, DescriptorClosedByTheHostIsNotWrittenTo)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    trace(0, "", "f", 1, "x");
    const std::vector<int> kept = descriptorsOn(path);
    ASSERT_EQ(kept.size(), 1U);
    const std::string other = path + "-other";
    const int file = open(other.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(dup2(file, kept[0]), kept[0]);
    trace(0, "", "f", 1, "x");
    EXPECT_EQ(linesIn(path), 2U);
    EXPECT_EQ(linesIn(other), 0U);
    EXPECT_EQ(fcntl(kept[0], F_GETFD), 0) << "the library closed a file of the host";
    close(kept[0]);
    close(file);
}

TEST_F(Agent, PipeWithoutReaderDoesNotEndTheProcess)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    setenv("TAVLOG_FILE", path.c_str(), 1);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    trace(0, "", "f", 1, "x");
    close(reader);
    trace(0, "", "f", 1, "x");
}

TEST_F(Agent, LinesOfSeveralProcessesStayWhole)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    trace(0, "", "f", 0, "%s.", std::string(200, 'a').c_str());
    for (int i = 0; i < 4; ++i) {
        if (fork() == 0) {
            for (int n = 0; n < 100; ++n) {
                trace(0, "", "f", n, "%s.", std::string(200, static_cast<char>('a' + i)).c_str());
            }
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
    EXPECT_EQ(lines().size(), 401U);
    for (const std::string &line : lines()) {
        EXPECT_THAT(line, MatchesRegex(".* f:[0-9]+ (a{200}|b{200}|c{200}|d{200})\\."));
    }
}

TEST_F(Agent, ForkedChildDoesNotHangOnLocks)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    std::atomic<bool> enough{false};
    std::thread other([&] {
        while (!enough) {
            trace(0, "", "f", 1, "x");
            send({0, 3, "s", 1, 4, 0, nullptr});
        }
    });
    int status = 0;
    for (int i = 0; i < 500 && status == 0; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20); // ends a child that waits for a lock
            trace(0, "", "f", 1, "x");
            send({0, 3, "s", 1, 4, 0, nullptr});
            _exit(0);
        }
        EXPECT_EQ(waitpid(child, &status, 0), child);
    }
    EXPECT_EQ(status, 0);
    enough = true;
    other.join();
}

TEST_F(Agent, ForeignLinkReplacingTheFileIsNotFollowed)
{
    setenv("TAVLOG_FILE", path.c_str(), 1);
    trace(0, "", "f", 1, "x");
    std::filesystem::rename(path, path + ".1");
    std::filesystem::create_symlink(path + ".1", path);
    awaitNextLook();
    trace(0, "", "f", 1, "x");
    EXPECT_EQ(linesIn(path + ".1"), 2U) << "our own link leads to the same file";
    if (lchown(path.c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root can change the owner of the link";
    }
    awaitNextLook();
    trace(0, "", "f", 1, "x");
    EXPECT_EQ(linesIn(path + ".1"), 2U);
}

} // namespace
