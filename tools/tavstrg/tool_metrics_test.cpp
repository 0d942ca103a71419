// SPDX-License-Identifier: Apache-2.0
// metrics, run as a user and as a timer of the node exporter's textfile collector run it.

#include "support/tool_fixture.h"

#include <gmock/gmock.h>

#include <charconv>
#include <map>
#include <optional>
#include <set>
#include <sys/stat.h>

namespace {

using namespace tool::testing_support;
using testing::HasSubstr;

namespace fs = std::filesystem;

// A strict reader of the Prometheus text format, version 0.0.4: HELP and TYPE of a metric appear once, directly before
// its samples, and no series is there twice.
class Exposition {
public:
    // What is wrong with the text, with its line; empty for nothing.
    std::string read(const std::string &text)
    {
        if (text.empty() || text.back() != '\n') {
            return "the last line has no end";
        }
        size_t number = 0;
        for (std::string_view rest = text; !rest.empty();) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            rest.remove_prefix(line.size() + 1);
            ++number;
            if (const char *problem = take(line); problem != nullptr) {
                return "line " + std::to_string(number) + ": " + problem + ": " + std::string(line);
            }
        }
        return typed_ ? "" : "a HELP without TYPE at the end";
    }

    // The value of a series as written in the text, "name{label="value"}".
    std::optional<double> value(const std::string &series) const
    {
        const auto found = series_.find(series);
        return found == series_.end() ? std::nullopt : std::optional(found->second);
    }
    size_t size() const { return series_.size(); }

private:
    const char *take(std::string_view line)
    {
        constexpr std::string_view kHelp = "# HELP ";
        constexpr std::string_view kType = "# TYPE ";
        if (line.starts_with(kHelp)) {
            return begin(line.substr(kHelp.size()));
        }
        if (line.starts_with(kType)) {
            const bool due =
                !typed_ && line.substr(kType.size()) == metric_ + (metric_.ends_with("_total") ? " counter" : " gauge");
            typed_ = true;
            return due ? nullptr : "no TYPE is due here";
        }
        return typed_ && !metric_.empty() ? sample(line) : "a sample without HELP and TYPE";
    }

    const char *begin(std::string_view rest)
    {
        metric_ = rest.substr(0, rest.find(' '));
        const bool right = typed_ && rest.size() > metric_.size() + 1 && metrics_.insert(metric_).second &&
                           metric_.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") == std::string::npos;
        typed_ = false;
        return right ? nullptr : "a HELP without TYPE, text or a name of its own";
    }

    const char *sample(std::string_view line)
    {
        if (!line.starts_with(metric_)) {
            return "a sample of another metric";
        }
        std::string_view rest = line.substr(metric_.size());
        if (rest.starts_with('{') && !takeLabels(rest)) {
            return "labels that are none";
        }
        const std::string series(line.substr(0, line.size() - rest.size()));
        double number = 0;
        const char *end = rest.data() + rest.size();
        if (!rest.starts_with(' ') || std::from_chars(rest.data() + 1, end, number).ptr != end) {
            return "a value that is no number";
        }
        return series_.emplace(series, number).second ? nullptr : "a series that was there";
    }

    // name="value",... with \\, \" and \n escaped in the value; each name once.
    static bool takeLabels(std::string_view &rest)
    {
        std::set<std::string_view> names;
        do {
            rest.remove_prefix(1);
            const std::string_view name = rest.substr(0, rest.find('='));
            rest.remove_prefix(name.size());
            if (!rest.starts_with("=\"") || name.empty() || !names.insert(name).second) {
                return false;
            }
            rest.remove_prefix(2);
            while (!rest.empty() && rest.front() != '"') {
                const bool escape = rest.front() == '\\';
                if (escape && (rest.size() < 2 || std::string_view("\\\"n").find(rest[1]) == std::string_view::npos)) {
                    return false;
                }
                rest.remove_prefix(escape ? 2 : 1);
            }
            if (rest.empty()) {
                return false;
            }
            rest.remove_prefix(1);
        } while (rest.starts_with(','));
        const bool closed = rest.starts_with('}');
        rest.remove_prefix(closed ? 1 : 0);
        return closed;
    }

    std::string metric_;
    bool typed_ = true;
    std::set<std::string> metrics_;
    std::map<std::string, double> series_;
};

TEST(ExpositionReader, RefusesWhatTheFormatForbids)
{
    const std::string head = "# HELP a_b Text.\n# TYPE a_b gauge\n";
    EXPECT_EQ(Exposition().read(head + "a_b{x=\"1\\\\\\\"\\n\",y=\"\"} 2\na_b 1e3\n"), "");
    for (const char *wrong :
         {"a_b{x=\"1\"} 2\na_b{x=\"1\"} 3\n", "a_b{x=\"\\x\"} 1\n", "a_b{x=\"1\",x=\"2\"} 1\n", "a_b{x=\"1\" 1\n",
          "a_b\n", "a_b one\n", "a_c 1\n", "a_b 1", "# HELP a_b Text.\n# TYPE a_b gauge\n", "# HELP a_c Text.\n",
          "# TYPE a_b gauge\n", "a_b{} 1\n"}) {
        EXPECT_NE(Exposition().read(head + wrong), "") << wrong;
    }
    EXPECT_NE(Exposition().read("a_b 1\n"), "");
}

using MetricsTool = ToolTest;

TEST_F(MetricsTool, PrintsTheTextFormatOfEveryMachine)
{
    for (const char *machine : {"failing", "ide", "empty"}) {
        const Finished finished =
            run({"--machine", std::string(TAV_SOURCE_DIR "/examples/machines/") + machine + ".json", "metrics",
                 "--classes"});
        EXPECT_EQ(finished.status, 0) << finished.err;
        EXPECT_EQ(finished.err, "");
        Exposition exposition;
        EXPECT_EQ(exposition.read(finished.out), "") << machine;
        EXPECT_GE(exposition.size(), 9U);
        EXPECT_TRUE(exposition.value("tavstorage_devices{kind=\"controller\"}")) << machine;
        EXPECT_TRUE(leftNothing(finished));
    }
}

TEST_F(MetricsTool, LabelsAreEscaped)
{
    std::string machine = kSmallMachine;
    const std::string name = "SMALL DISK";
    machine.replace(machine.find(name), name.size(), R"(A\\B\"C}, d=)");
    const Finished finished = run({"--machine", write("odd.json", machine), "metrics", "--classes"});
    EXPECT_EQ(finished.status, 0) << finished.err;
    Exposition exposition;
    EXPECT_EQ(exposition.read(finished.out), "");
    EXPECT_THAT(finished.out, HasSubstr(R"(model="A\\B\"C}, d=")"));
    EXPECT_EQ(exposition.value("tavstorage_disk_capacity_bytes{disk=\"1\",serial=\"SER-1\",node=\"sda\"}"),
              7844.0 * 1024 * 1024);
}

TEST_F(MetricsTool, WithOutputTheFileIsReplacedInOneStepAndReadableByAll)
{
    fs::create_directory(directory_ / "collector");
    const std::string path = write("collector/storage.prom", "old\n");
    std::ifstream reader(path); // began before
    const mode_t before = umask(077);
    const Finished finished = runSmall({"metrics", "--classes", "--output", path});
    umask(before);
    EXPECT_EQ(finished.status, 0) << finished.err;
    EXPECT_EQ(finished.out + finished.err, "");
    Exposition exposition;
    EXPECT_EQ(exposition.read(contentOf(path)), "");
    EXPECT_EQ(exposition.value("tavstorage_collection_success"), 1);
    EXPECT_GT(exposition.value("tavstorage_collection_timestamp_seconds"), 1e9);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    std::string line;
    EXPECT_TRUE(std::getline(reader, line) && line == "old") << "a reader keeps the file that it opened";
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_ / "collector"), {}), 1) << "nothing else is left there";
}

// A managed disk that is no ATA disk fails every inventory.
TEST_F(MetricsTool, AFailedCollectionIsPublished)
{
    fs::create_directory(directory_ / "collector");
    const std::string path = write("collector/storage.prom", "old\n");
    std::string broken = kSmallMachine;
    const std::string ata = "\"ata\": true, ";
    broken.erase(broken.find(ata), ata.size());
    const Finished finished =
        run({"--machine", write("broken.json", broken), "metrics", "--classes", "--output", path});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, testing::MatchesRegex("tavstrg: TAV_Storage[^\n]+\n"));
    Exposition exposition;
    EXPECT_EQ(exposition.read(contentOf(path)), "");
    EXPECT_EQ(exposition.value("tavstorage_collection_success"), 0);
    EXPECT_THAT(contentOf(path), testing::Not(HasSubstr("disk=")));
}

TEST_F(MetricsTool, AFailureBeforeTheCollectionIsPublished)
{
    const std::string path = write("storage.prom", "old\n");
    const Finished finished =
        runSmall({"--provider", "/nonexistent/provider.so", "metrics", "--classes", "--output", path});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.err, HasSubstr("cannot load /nonexistent/provider.so"));
    Exposition exposition;
    EXPECT_EQ(exposition.read(contentOf(path)), "");
    EXPECT_EQ(exposition.value("tavstorage_collection_success"), 0);
}

TEST_F(MetricsTool, AFileThatCannotBeReplacedIsAFailure)
{
    fs::create_directory(directory_ / "collector");
    const std::string path = write("collector/storage.prom", "old\n");
    const std::string nowhere = (directory_ / "none/storage.prom").string();
    EXPECT_EQ(runSmall({"metrics", "--output", nowhere}).err, "tavstrg: " + nowhere + ": No such file or directory\n");
    const std::string taken = (directory_ / "collector").string(); // a directory is not replaced
    EXPECT_EQ(runSmall({"metrics", "--output", taken}).err, "tavstrg: " + taken + ": Is a directory\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_ / "collector"), {}), 1);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_), {}), 3) << "no temporary file is left";
}

// ---- the disks themselves ----

TEST_F(MetricsTool, DisksAreLabelledWithTheirIdentityAndKeepItUnderAnotherName)
{
    const std::string before = runSmall({"metrics"}).out;
    Exposition exposition;
    EXPECT_EQ(exposition.read(before), "");
    EXPECT_EQ(exposition.value("tavstrg_pass_success"), 1);
    EXPECT_EQ(exposition.value("tavstrg_disks"), 1);
    const std::string good = "tavstrg_disk_health{disk=\"serial.ATA_SMALL_DISK.SER-1\",state=\"good\"}";
    EXPECT_EQ(exposition.value(good), 1) << before;
    write("small.json", R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true, "model": "M", "serial": "SER-0"},
        {"id": 1, "ata": true, "model": "SMALL DISK", "serial": "SER-1"}]}]})");
    const std::string after = runSmall({"metrics"}).out;
    Exposition moved;
    EXPECT_EQ(moved.read(after), "");
    EXPECT_EQ(moved.value(good), 1) << after;
    EXPECT_THAT(after, HasSubstr("disk=\"serial.ATA_SMALL_DISK.SER-1\",name=\"sdb\""));
}

TEST_F(MetricsTool, DisksThatNobodyMayAskAreAFailedPass)
{
    const std::string path = write("storage.prom", "old\n");
    const std::string machine = write("closed.json", R"({"hosts": [{"driver": "ahci", "devices": [
        {"ata": true, "model": "M", "serial": "S", "openError": "EACCES"}]}]})");
    const Finished finished = run({"--machine", machine, "metrics", "--output", path});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: metrics: 1 disk could not be asked: that needs root.\n");
    Exposition exposition;
    EXPECT_EQ(exposition.read(contentOf(path)), "");
    EXPECT_EQ(exposition.value("tavstrg_pass_success"), 0);
    EXPECT_THAT(contentOf(path), testing::Not(HasSubstr("disk=")));
}

// A disk that hangs, or sleeps, is not touched: the values are those of the last pass.
TEST_F(MetricsTool, FromABookNoDiskIsAskedAndTheBookStaysAsItIs)
{
    const std::string book = (directory_ / "book").string();
    const std::string asked = runSmall({"metrics", "--book", book}).out;
    const std::string content = contentOf(book);
    std::string machine = kSmallMachine;
    const std::string ata = "\"ata\": true, ";
    machine.replace(machine.find(ata), ata.size(), ata + "\"openError\": \"EIO\", ");
    write("small.json", machine);
    const Finished finished = runSmall({"metrics", "--from-book", book});
    EXPECT_EQ(finished.status, 0) << finished.err;
    const auto values = [](const std::string &text) { return text.substr(text.find("# HELP tavstrg_disks ")); };
    EXPECT_EQ(values(finished.out), values(asked));
    EXPECT_EQ(contentOf(book), content);
    EXPECT_THAT(runSmall({"metrics"}).out, HasSubstr("state=\"unreadable\"} 1\n"));
}

TEST_F(MetricsTool, FromADamagedBookIsAFailureThatLeavesIt)
{
    const std::string book = write("book", "damaged");
    const Finished finished = runSmall({"metrics", "--from-book", book});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: " + book + ": is no book of disks, or damaged\n");
    EXPECT_THAT(finished.out, HasSubstr("tavstrg_pass_success 0\n"));
    EXPECT_EQ(contentOf(book), "damaged");
}

} // namespace
