// SPDX-License-Identifier: Apache-2.0
#include "store/state_file_layout.h"
#include "support/store_fixture.h"

#include <climits>

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

constexpr char kNewLine[] = "# Version=1.0.0.1\n";
constexpr char kOldLine[] = "# Version=1.0.0.0\n";

template <class Rec> void append(std::string &bytes, const Rec &record, size_t size = sizeof(Rec))
{
    bytes.append(reinterpret_cast<const char *>(&record), size);
}

void appendRecords(std::string &bytes, const DatInfo &dat)
{
    bytes.append(static_cast<const char *>(dat.datAdr), static_cast<size_t>(dat.datNum) * dat.datSize);
}

std::string fileOf(const DatInfo *records)
{
    std::string bytes = kNewLine;
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        appendRecords(bytes, records[id]);
    }
    return bytes;
}

std::string sampleFile()
{
    OwnedRecords sample;
    fillSample(sample.dat);
    return fileOf(sample.dat);
}

// The sample as the old version has it: eight counters, no life span.
std::string oldSampleFile()
{
    OwnedRecords sample;
    fillSample(sample.dat);
    std::string bytes = kOldLine;
    appendRecords(bytes, sample.dat[TAV_CID_STRG_CONF]);
    bytes.append(static_cast<const char *>(sample.dat[TAV_CID_STRG_TNUM].datAdr), kOldTotalsSize);
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_LIFE; ++id) {
        appendRecords(bytes, sample.dat[id]);
    }
    return bytes;
}

// A stream over these bytes, to be read from its beginning.
class Stream {
public:
    Stream() : file_(std::tmpfile()) {}
    explicit Stream(const std::string &bytes) : bytes_(bytes)
    {
        file_ = bytes.empty() ? std::fopen("/dev/null", "r") : ::fmemopen(bytes_.data(), bytes_.size(), "r");
    }
    ~Stream() { std::fclose(file_); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    operator std::FILE *() const { return file_; }
    std::string content() const
    {
        std::fflush(file_);
        std::rewind(file_);
        std::string bytes(1 << 20, '\0');
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file_));
        return bytes;
    }

private:
    std::string bytes_;
    std::FILE *file_;
};

int read(const std::string &bytes, DatInfo *records)
{
    const Stream stream(bytes);
    return strgGetBinFile(stream, records);
}

size_t bytesIn(const DatInfo *records)
{
    size_t bytes = 0;
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        bytes += records[id].datAdr == nullptr ? 0 : records[id].datSize * static_cast<size_t>(records[id].datNum);
    }
    return bytes;
}

class SavedStateFile : public testing::Test {
protected:
    SavedStateFile() { sim::countCallsOf(""); }
    ~SavedStateFile() override { sim::failNth(sim::Call::allocate, 0); }

    OwnedRecords store;
    TraceRecorder trace;
};

TEST_F(SavedStateFile, IsTheVersionLineAndEveryClassBackToBack)
{
    fillSample(store.dat);
    const Stream stream;
    EXPECT_EQ(strgPutBinFile(stream, store.dat), 0);
    const std::string bytes = stream.content();
    EXPECT_EQ(bytes, sampleFile());
    EXPECT_EQ(bytes.size(), 18U + 12 + 20 + 120 + 2 * 352 + 316 + 3 * 284 + 8 + 8 + 2 * 8);
    EXPECT_THAT(bytes, StartsWith("# Version=1.0.0.1\n"));
}

TEST_F(SavedStateFile, WritingTracesWhatItWrites)
{
    fillSample(store.dat);
    const Stream stream;
    ASSERT_EQ(strgPutBinFile(stream, store.dat), 0);
    const std::vector<std::string> texts = trace.textsOf("strgPutBinFile");
    EXPECT_THAT(texts,
                ElementsAre("_IN_", "- to File Info -", "datCur[0] Size=[12]*Num=[1]", "datCur[1] Size=[20]*Num=[1]",
                            "datCur[2] Size=[120]*Num=[1]", "datCur[3] Size=[352]*Num=[2]",
                            "datCur[4] Size=[316]*Num=[1]", "datCur[5] Size=[284]*Num=[3]",
                            "datCur[7] Size=[8]*Num=[1]", "datCur[9] Size=[8]*Num=[1]", "datCur[10] Size=[8]*Num=[2]",
                            "outputSize=[2074]", StartsWith("memfree(0x"), "_OUT_"));
    EXPECT_TRUE(trace.has(kDetail, "++++ TAV_StorageLifeSpan[1] ++++", "strgLogDumpInstanceDat"));
}

TEST_F(SavedStateFile, ComesBackAsItWasWritten)
{
    EXPECT_EQ(read(sampleFile(), store.dat), 0);
    EXPECT_EQ(fileOf(store.dat), sampleFile());
    EXPECT_EQ(trace.textsOf("strgGetBinFile"),
              (std::vector<std::string>{"_IN_", "cDatVar=[# Version=1.0.0.1\n]", "- from File Info -", "_OUT_"}));
    EXPECT_TRUE(trace.has(kDetail, "++++ TAV_StorageLifeSpan[1] ++++", "strgLogDumpInstanceDat"));
}

TEST_F(SavedStateFile, ComesBackOverWhatTheStoreHad)
{
    fillSample(store.dat);
    fill<StrgHddRec>(store.dat[TAV_CID_STRG_HDD], {});
    fill<StrgDevRec>(store.dat[TAV_CID_STRG_CDROM], {{1, 0, 1, 0}});
    EXPECT_EQ(read(sampleFile(), store.dat), 0);
    EXPECT_EQ(fileOf(store.dat), sampleFile());
}

TEST_F(SavedStateFile, ClassWithoutRecordsHasNoBytes)
{
    fill<StrgDevRec>(store.dat[TAV_CID_STRG_CDROM], {{1, 0, 1, 0}, {2, 0, 2, 0}});
    ASSERT_EQ(read(sampleFile(), store.dat), 0);
    EXPECT_EQ(store.dat[TAV_CID_STRG_CDROM].datNum, 0);
    EXPECT_EQ(store.dat[TAV_CID_STRG_CDROM].datAdr, nullptr);
    EXPECT_THAT(trace.textsOf("getDatFromBinFile"), Contains(StartsWith("memfree(0x")));
}

TEST_F(SavedStateFile, OldVersionIsReadWithoutLifeSpanAndWrittenAsTheNewOne)
{
    fill<StrgLifeRec>(store.dat[TAV_CID_STRG_LIFE], {{1, 7, 3, 0}});
    ASSERT_EQ(read(oldSampleFile(), store.dat), 0);
    const StrgTnumRec totals = recordsIn<StrgTnumRec>(store.dat[TAV_CID_STRG_TNUM]).at(0);
    EXPECT_EQ(totals.MiscTotalNumber, 1);
    EXPECT_EQ(totals.LifeSpanTotalNumber, 0);
    EXPECT_EQ(totals.reserved, 0);
    EXPECT_EQ(store.dat[TAV_CID_STRG_TNUM].datSize, 20U);
    ASSERT_EQ(store.dat[TAV_CID_STRG_LIFE].datNum, 1) << "the entry stays as it was";
    EXPECT_EQ(recordsIn<StrgLifeRec>(store.dat[TAV_CID_STRG_LIFE])[0].HDDIndex, 7);

    fill<StrgLifeRec>(store.dat[TAV_CID_STRG_LIFE], {});
    const Stream stream;
    ASSERT_EQ(strgPutBinFile(stream, store.dat), 0);
    EXPECT_THAT(stream.content(), StartsWith(kNewLine));
    EXPECT_EQ(stream.content().size(), oldSampleFile().size() + 4);
}

TEST_F(SavedStateFile, UnknownVersionFailsAfterTheConfigurationWasTakenOver)
{
    std::string bytes = sampleFile();
    bytes[16] = '2';
    EXPECT_EQ(read(bytes, store.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ DatfileVer Failure!!", "strgGetBinFile"));
    EXPECT_EQ(recordsIn<StrgConfRec>(store.dat[TAV_CID_STRG_CONF]).at(0).MonitorCycleMax, 3600);
    EXPECT_EQ(store.dat[TAV_CID_STRG_TNUM].datAdr, nullptr);
}

TEST_F(SavedStateFile, BytesAfterTheLastBlockAreIgnored)
{
    EXPECT_EQ(read(sampleFile() + std::string(5000, '\xAA'), store.dat), 0);
    EXPECT_EQ(fileOf(store.dat), sampleFile());
}

TEST_F(SavedStateFile, TruncatedAnywhereFailsAtTheFirstShortBlock)
{
    struct Part {
        size_t size;
        const char *failure;
    };
    const Part parts[] = {
        {18, "_OUT_ fread[TAV_DAT_STRG_VERNAME] Failure!!"},  {12, "_OUT_ getDatFromBinFile[CONF] Failure!!"},
        {20, "_OUT_ getDatFromBinFile[TNUM] Failure!!"},      {120, "_OUT_ getDatFromBinFile[CTRL] Failure!!"},
        {2 * 352, "_OUT_ getDatFromBinFile[SCSI] Failure!!"}, {316, "_OUT_ getDatFromBinFile[IDE] Failure!!"},
        {3 * 284, "_OUT_ getDatFromBinFile[HDD] Failure!!"},  {8, "_OUT_ getDatFromBinFile[TAPE] Failure!!"},
        {8, "_OUT_ getDatFromBinFile[MISC] Failure!!"},       {16, "_OUT_ getDatFromBinFile[LIFE] Failure!!"}};
    const std::string whole = sampleFile();
    size_t length = 0;
    for (const Part &part : parts) {
        for (size_t i = 0; i < part.size; ++i, ++length) {
            OwnedRecords fresh;
            trace.clear();
            ASSERT_EQ(read(whole.substr(0, length), fresh.dat), -1) << length;
            ASSERT_TRUE(trace.has(kFailure, part.failure, "strgGetBinFile")) << length;
            ASSERT_LE(bytesIn(fresh.dat), length);
        }
    }
    EXPECT_EQ(length, whole.size());
}

TEST_F(SavedStateFile, CdromAndOpticalMemoryBlocksFailUnderTheirNames)
{
    std::string bytes = sampleFile();
    bytes[18 + 12 + 8] = 100; // CDROMTotalNumber
    EXPECT_EQ(read(bytes, store.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ getDatFromBinFile[CDROM] Failure!!", "strgGetBinFile"));
    bytes[18 + 12 + 8] = 0;
    bytes[18 + 12 + 12] = 100; // OpticalMemoryTotalNumber
    OwnedRecords fresh;
    EXPECT_EQ(read(bytes, fresh.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ getDatFromBinFile[OPTM] Failure!!", "strgGetBinFile"));
}

TEST_F(SavedStateFile, OldVersionTruncatedAnywhereFails)
{
    const std::string whole = oldSampleFile();
    for (size_t length = 0; length < whole.size(); ++length) {
        OwnedRecords fresh;
        ASSERT_EQ(read(whole.substr(0, length), fresh.dat), -1) << length;
    }
    trace.clear();
    OwnedRecords fresh;
    EXPECT_EQ(read(whole.substr(0, 18 + 12 + 15), fresh.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ getDatFromBinFile[TNUM] Failure!!", "strgGetBinFile"));
}

TEST(SavedStateFileUntraced, AnyFlippedBitIsRefusedOrAcceptedWithinTheFilesSize)
{
    for (const std::string &whole : {sampleFile(), oldSampleFile()}) {
        int refused = 0;
        for (size_t bit = 0; bit < whole.size() * 8; ++bit) {
            std::string bytes = whole;
            bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << (bit % 8)));
            OwnedRecords fresh;
            const int ret = read(bytes, fresh.dat);
            ASSERT_TRUE(ret == 0 || ret == -1) << bit;
            ASSERT_LE(bytesIn(fresh.dat), bytes.size() + 4) << bit; // the old totals grow by four bytes
            refused += ret == 0 ? 0 : 1;
        }
        EXPECT_GE(refused, 18 * 8 - 1) << "a flip in the version line is always seen, but for the one between versions";
    }
}

TEST_F(SavedStateFile, CountsBeyondTheFilesLengthTakeNoMemory)
{
    std::string bytes = sampleFile();
    for (size_t i = 0; i < 18; ++i) {
        bytes[18 + 12 + i] = '\xFF'; // every class: 65535 records
    }
    EXPECT_EQ(read(bytes, store.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ getDatFromBinFile[CTRL] Failure!!", "strgGetBinFile"));
    EXPECT_EQ(store.dat[TAV_CID_STRG_CTRL].datAdr, nullptr);
    EXPECT_FALSE(trace.has(kDetail, "_IN_ realloc size=[7864200] ptr=[(nil)]", "memrealloc"));
}

TEST_F(SavedStateFile, TextWithoutTerminatorEndsWithItsField)
{
    std::string bytes = sampleFile();
    bytes.replace(18 + 12 + 20 + 4, 64, std::string(64, 'M')); // Model of the controller
    ASSERT_EQ(read(bytes, store.dat), 0);
    EXPECT_STREQ(recordsIn<StrgCtrlRec>(store.dat[TAV_CID_STRG_CTRL])[0].Model, std::string(63, 'M').c_str());
    ASSERT_EQ(read(bytes, store.dat), 0) << "also where the area is there already";
    EXPECT_STREQ(recordsIn<StrgCtrlRec>(store.dat[TAV_CID_STRG_CTRL])[0].Model, std::string(63, 'M').c_str());
}

TEST_F(SavedStateFile, TotalsInTheFileAreThoseOfItsBlocks)
{
    fillSample(store.dat);
    changeRecords<StrgTnumRec>(store.dat[TAV_CID_STRG_TNUM], [](StrgTnumRec &totals) {
        totals.HardDiskTotalNumber = 9;
        totals.LifeSpanTotalNumber = 0;
    });
    const Stream stream;
    ASSERT_EQ(strgPutBinFile(stream, store.dat), 0);
    EXPECT_EQ(stream.content(), sampleFile());
    EXPECT_EQ(recordsIn<StrgTnumRec>(store.dat[TAV_CID_STRG_TNUM])[0].HardDiskTotalNumber, 9)
        << "the store is only read";
}

TEST_F(SavedStateFile, AWriteThatFailsIsTracedWithItsError)
{
    fillSample(store.dat);
    std::FILE *const full = std::fopen("/dev/full", "wb");
    ASSERT_NE(full, nullptr);
    std::setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_EQ(strgPutBinFile(full, store.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ fwrite Failure!! err=[28]", "strgPutBinFile"));
    std::fclose(full);
}

TEST_F(SavedStateFile, MissingArgumentsAreRefused)
{
    EXPECT_EQ(strgPutBinFile(nullptr, store.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(fp) Failure!!", "strgPutBinFile"));
    EXPECT_EQ(strgGetBinFile(nullptr, store.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(fp) Failure!!", "strgGetBinFile"));
    const Stream stream(sampleFile());
    EXPECT_EQ(strgPutBinFile(stream, nullptr), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(instSt) Failure!!", "strgPutBinFile"));
    EXPECT_EQ(strgGetBinFile(stream, nullptr), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(instSt) Failure!!", "strgGetBinFile"));
}

TEST_F(SavedStateFile, EveryAllocationThatFailsFailsTheReading)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
    for (const std::string &bytes : {sampleFile(), oldSampleFile()}) {
        unsigned nth = 1;
        for (;; ++nth) {
            OwnedRecords fresh;
            const Stream stream(bytes);
            sim::failNth(sim::Call::allocate, nth);
            const int ret = strgGetBinFile(stream, fresh.dat);
            const bool struck = sim::failureStruck();
            sim::failNth(sim::Call::allocate, 0);
            EXPECT_EQ(ret, struck ? -1 : 0) << nth;
            if (!struck) {
                break;
            }
        }
        EXPECT_GE(nth, 7U);
    }
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ datInfo realloc Failure!!", "getDatFromBinFile"));
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ datstrgTnum alloc Failure!!", "strgGetBinFile"));
}

TEST_F(SavedStateFile, WithoutMemoryForTheFileNothingIsWritten)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
    fillSample(store.dat);
    const Stream stream;
    sim::failNth(sim::Call::allocate, 1);
    EXPECT_EQ(strgPutBinFile(stream, store.dat), -1);
    sim::failNth(sim::Call::allocate, 0);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ outputAdr alloc Failure!!", "strgPutBinFile"));
    EXPECT_EQ(stream.content(), "");
}

class GetDatFromBinFile : public SavedStateFile {
protected:
    DatInfo &dat = store.dat[TAV_CID_STRG_CDROM];
    const std::string twoRecords = std::string("\1\0\0\0\5\0\0\0\2\0\1\0\6\0\0\0", 16);
};

TEST_F(GetDatFromBinFile, ChecksItsArgumentsInOrder)
{
    const Stream stream(twoRecords);
    EXPECT_EQ(getDatFromBinFile(nullptr, -1, nullptr), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(fp) Failure!!", "getDatFromBinFile"));
    EXPECT_EQ(getDatFromBinFile(stream, -1, nullptr), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(cnt) Failure!!", "getDatFromBinFile"));
    EXPECT_EQ(getDatFromBinFile(stream, 1, nullptr), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(datInfo) Failure!!", "getDatFromBinFile"));
}

TEST_F(GetDatFromBinFile, AnotherCountResizesTheArea)
{
    const Stream stream(twoRecords);
    EXPECT_EQ(getDatFromBinFile(stream, 2, &dat), 0);
    ASSERT_EQ(dat.datNum, 2);
    EXPECT_EQ(recordsIn<StrgDevRec>(dat)[1].InterfaceTypeIndex, 6);
    EXPECT_TRUE(trace.has(kDetail, "_IN_ realloc size=[16] ptr=[(nil)]", "memrealloc"));
}

TEST_F(GetDatFromBinFile, TheSameCountReadsIntoTheAreaThatIsThere)
{
    fill<StrgDevRec>(dat, {{9, 9, 9, 0}, {9, 9, 9, 0}});
    const void *const area = dat.datAdr;
    const Stream stream(twoRecords);
    EXPECT_EQ(getDatFromBinFile(stream, 2, &dat), 0);
    EXPECT_EQ(dat.datAdr, area);
    EXPECT_EQ(recordsIn<StrgDevRec>(dat)[0].InterfaceTypeIndex, 5);
    EXPECT_THAT(trace.textsOf("memrealloc"), testing::IsEmpty());
}

TEST_F(GetDatFromBinFile, ZeroFreesTheAreaAndReadsNothing)
{
    fill<StrgDevRec>(dat, {{9, 9, 9, 0}});
    const Stream stream(twoRecords);
    EXPECT_EQ(getDatFromBinFile(stream, 0, &dat), 0);
    EXPECT_EQ(dat.datNum, 0);
    EXPECT_EQ(dat.datAdr, nullptr);
    EXPECT_EQ(std::ftell(stream), 0);
    trace.clear();
    EXPECT_EQ(getDatFromBinFile(stream, 0, &dat), 0);
    EXPECT_THAT(trace.texts(), Not(Contains(StartsWith("memfree"))));
}

TEST_F(GetDatFromBinFile, MoreThanTheStreamHoldsIsAShortRead)
{
    for (const int num : {3, 65535, INT_MAX}) {
        const Stream stream(twoRecords);
        trace.clear();
        EXPECT_EQ(getDatFromBinFile(stream, num, &dat), -1) << num;
        EXPECT_TRUE(trace.has(kFailure, "_OUT_ fread Failure!! err=[0]", "getDatFromBinFile"));
        EXPECT_THAT(trace.textsOf("memrealloc"), testing::IsEmpty());
        EXPECT_EQ(dat.datAdr, nullptr);
    }
}

TEST_F(GetDatFromBinFile, AReadThatFailsIsTracedWithItsError)
{
    for (const bool there : {false, true}) {
        if (there) {
            fill<StrgDevRec>(dat, {{9, 9, 9, 0}, {9, 9, 9, 0}});
        }
        const Stream stream(twoRecords);
        sim::failNth(sim::Call::read, 1);
        trace.clear();
        EXPECT_EQ(getDatFromBinFile(stream, 2, &dat), -1);
        sim::failNth(sim::Call::read, 0);
        EXPECT_TRUE(trace.has(kFailure, "_OUT_ fread Failure!! err=[5]", "getDatFromBinFile")) << there;
    }
    EXPECT_EQ(recordsIn<StrgDevRec>(dat)[0].Index, 9);
}

TEST(FileLayout, CountersStandInTheOrderOfTheClasses)
{
    StrgTnumRec totals = {};
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        setTotal(totals, id, 100 + id);
    }
    const StrgTnumRec expected = {102, 103, 104, 105, 106, 107, 108, 109, 110, 0};
    EXPECT_EQ(std::memcmp(&totals, &expected, sizeof totals), 0);
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        EXPECT_EQ(totalOf(totals, id), 100 + id);
    }
}

TEST(FileLayout, ATotalKeepsTheLowSixteenBitsOfItsCount)
{
    StrgTnumRec totals = {};
    setTotal(totals, TAV_CID_STRG_MISC, 65536 + 7);
    EXPECT_EQ(totals.MiscTotalNumber, 7);
}

TEST(FileLayout, VersionsAreDistinguished)
{
    EXPECT_EQ(fileVersion(kNewLine), FileVersion::current);
    EXPECT_EQ(fileVersion(kOldLine), FileVersion::old);
    EXPECT_EQ(fileVersion("# Version=1.0.0.2\n"), FileVersion::unknown);
    EXPECT_EQ(fileVersion(std::string_view("\0\0", 2)), FileVersion::unknown);
}

TEST(FileLayout, ComposingFillsJustWhatItIsGiven)
{
    OwnedRecords sample;
    fillSample(sample.dat);
    std::vector<uint8_t> out(stateFileSize(sample.dat) + 1);
    EXPECT_FALSE(composeStateFile(sample.dat, out));
    EXPECT_FALSE(composeStateFile(sample.dat, std::span(out).first(out.size() - 2)));
    EXPECT_TRUE(composeStateFile(sample.dat, std::span(out).first(out.size() - 1)));
}

TEST(FileLayout, AnArrayThatIsGoneHasNoBytes)
{
    OwnedRecords records; // one record each for configuration and totals, no arrays
    records.dat[TAV_CID_STRG_HDD].datNum = -3;
    EXPECT_EQ(stateFileSize(records.dat), kVersionLineSize);
    std::vector<uint8_t> out(kVersionLineSize);
    EXPECT_TRUE(composeStateFile(records.dat, out));
}

} // namespace
