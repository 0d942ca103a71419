// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/sense.h"

#include "support/ioctl_double.h"
#include "support/trace_recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>

using namespace tavstrg;

namespace {

using testing::ElementsAre;

// A heap block of exactly the bytes, so that an address sanitizer sees any byte that is read beyond them.
struct ExactBytes {
    explicit ExactBytes(const std::vector<uint8_t> &bytes) : size(bytes.size()), data(new uint8_t[bytes.size()])
    {
        std::copy(bytes.begin(), bytes.end(), data.get());
    }
    size_t size;
    std::unique_ptr<uint8_t[]> data;
};

struct SenseTextCase {
    const char *hex;
    int result;
    int key, asc, ascq, additional;
    const char *text;
};

// clang-format off
const SenseTextCase kSenseCases[] = {
    // fixed format with key, ASC and ASCQ; VALID is ignored
    {"70 00 05 00 00 00 00 0a 00 00 00 00 20 07 00 00 00 00", 0, 5, 0x20, 7, 0, "fixed format sense data 70"},
    {"f0 00 04 00 00 00 00 0a 00 00 00 00 44 00 00 00 00 00", 0, 4, 0x44, 0, 0, "fixed format sense data 70"},
    {"71 00 f6 00 00 00 00 0a 00 00 00 00 2a 01 00 00 00 00", 0, 6, 0x2A, 1, 0, "fixed format sense data 71"},
    // 13 bytes: ASC but no ASCQ
    {"70 00 05 00 00 00 00 0a 00 00 00 00 20", 0, 5, 0x20, 0, 0, "fixed format sense data 70"},
    {"70 00 05 00 00 00 00 0a 00 00 00 00", 0, 5, 0, 0, 0, "fixed format sense data 70"},
    {"70 00 05", 0, 5, 0, 0, 0, "fixed format sense data 70"},
    {"70 00", 0, 0, 0, 0, 0, "fixed format sense data 70"},
    {"70", 0, 0, 0, 0, 0, "fixed format sense data 70"},
    // the additional length shortens: 5 and 6 bytes after the eighth, then none
    {"70 00 05 00 00 00 00 05 00 00 00 00 20 07 00 00 00 00", 0, 5, 0x20, 0, 0, "fixed format sense data 70"},
    {"70 00 05 00 00 00 00 06 00 00 00 00 20 07 00 00 00 00", 0, 5, 0x20, 7, 0, "fixed format sense data 70"},
    {"70 00 05 00 00 00 00 00 00 00 00 00 20 07 00 00 00 00", 0, 5, 0, 0, 0, "fixed format sense data 70"},
    // ... but never lengthens
    {"70 00 05 00 00 00 00 ff 00 00 00 00 20 07", 0, 5, 0x20, 7, 0, "fixed format sense data 70"},
    {"70 00 05 00 00 00 00 ff", 0, 5, 0, 0, 0, "fixed format sense data 70"},
    // descriptor format
    {"72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 00 50", 0, 1, 0, 0x1D, 14,
     "descriptor format sense data 72"},
    {"73 f5 20 01 00 00 00 00", 0, 5, 0x20, 1, 0, "descriptor format sense data 73"},
    {"f2 05 20 01 00 00 00 ff", 0, 5, 0x20, 1, 0xFF, "descriptor format sense data 72"},
    {"72 05 20 01 00 00 00", 0, 5, 0x20, 1, 0, "descriptor format sense data 72"},
    {"72 05 20", 0, 5, 0x20, 0, 0, "descriptor format sense data 72"},
    {"72 05", 0, 5, 0, 0, 0, "descriptor format sense data 72"},
    {"72", 0, 0, 0, 0, 0, "descriptor format sense data 72"},
    // unknown response codes
    {"74 05 20 01 00 00 00 00", -1, 0, 0, 0, 0, "Unknown response code 74"},
    {"7f 05 20 01 00 00 00 00", -1, 0, 0, 0, 0, "Unknown response code 7f"},
    {"ff", -1, 0, 0, 0, 0, "Unknown response code 7f"},
};
// clang-format on

TEST(SenseDataFormat, DecodesBothFormats)
{
    for (const SenseTextCase &c : kSenseCases) {
        SCOPED_TRACE(c.hex);
        const ExactBytes sense(bytesOf(c.hex));
        const TraceRecorder traces;
        SenseInfo info;
        memset(&info, 0xEE, sizeof info);
        EXPECT_EQ(scsi_chk_sense_data_format(sense.data.get(), sense.size, &info), c.result);
        EXPECT_EQ(info.response_code, sense.data[0] & 0x7F);
        EXPECT_EQ(info.sense_key, c.key);
        EXPECT_EQ(info.asc, c.asc);
        EXPECT_EQ(info.ascq, c.ascq);
        EXPECT_EQ(info.additional_length, c.additional);
        EXPECT_THAT(info.zero, ElementsAre(0, 0, 0));
        EXPECT_TRUE(traces.has(c.result == 0 ? 0 : 3, c.text, "scsi_chk_sense_data_format"));
        EXPECT_THAT(traces.texts().front(), testing::StartsWith("_IN_"));
        EXPECT_EQ(traces.texts().back(), "_OUT_ ret=[" + std::to_string(c.result) + "]");
    }
}

TEST(SenseDataFormat, FixedFormatOfLength13HasAscButNoAscq)
{
    const ExactBytes sense(bytesOf("70 00 05 00 00 00 00 0a 00 00 00 00 20"));
    SenseInfo info{};
    EXPECT_EQ(scsi_chk_sense_data_format(sense.data.get(), 13, &info), 0);
    EXPECT_EQ(info.asc, 0x20);
    EXPECT_EQ(info.ascq, 0);
}

TEST(SenseDataFormat, BytesThatAreNoSenseDataLeaveTheResultAlone)
{
    for (const char *hex : {"", "00", "60 00 05", "00 70 70 70", "6f 01 02 03 04 05 06 07 08", "80 00 00"}) {
        SCOPED_TRACE(hex);
        const ExactBytes sense(bytesOf(hex));
        const TraceRecorder traces;
        SenseInfo info{1, 2, 3, 4, {5, 6, 7}, 8};
        EXPECT_EQ(scsi_chk_sense_data_format(sense.data.get(), sense.size, &info), -1);
        EXPECT_EQ(info.response_code, 1);
        EXPECT_EQ(info.additional_length, 8);
        EXPECT_TRUE(traces.has(3, "_OUT_ No sense data", "scsi_chk_sense_data_format"));
    }
}

TEST(SenseDataFormat, NullPointersAreInvalid)
{
    const TraceRecorder traces;
    SenseInfo info{};
    const uint8_t sense[8] = {0x70};
    EXPECT_EQ(scsi_chk_sense_data_format(nullptr, 8, &info), -1);
    EXPECT_EQ(scsi_chk_sense_data_format(sense, 8, nullptr), -1);
    EXPECT_EQ(traces.texts()[1], "_OUT_ invalid paramters");
    EXPECT_EQ(traces.texts()[3], "_OUT_ invalid paramters");
    EXPECT_TRUE(traces.has(3, "_OUT_ invalid paramters", "scsi_chk_sense_data_format"));
}

struct WalkCase {
    const char *hex;
    int type;
    int found; // offset; -1: none
};

// clang-format off
const WalkCase kWalkCases[] = {
    {"72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 00 50", 0x09, 8},
    {"73 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 00 50", 0x09, 8},
    {"72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 00 50", 0x0A, -1},
    // after other descriptors; the first of two
    {"72 01 00 1d 00 00 00 0a 00 02 aa bb 02 00 09 02 cc dd", 0x09, 14},
    {"72 01 00 1d 00 00 00 08 09 02 aa bb 09 02 cc dd", 0x09, 8},
    // a 9 inside another descriptor is not a type
    {"72 01 00 1d 00 00 00 06 00 04 09 02 09 02", 0x09, -1},
    // beyond the additional length
    {"72 01 00 1d 00 00 00 04 00 02 aa bb 09 02 cc dd", 0x09, -1},
    // additional length beyond the bytes
    {"72 01 00 1d 00 00 00 ff 00 02 aa bb 09 02 cc dd", 0x09, 12},
    {"72 01 00 1d 00 00 00 ff 00 02 aa bb", 0x09, -1},
    // a descriptor that ends beyond the bytes is found if it has the type
    {"72 01 00 1d 00 00 00 0e 00 ff 09 0c", 0x09, -1},
    {"72 01 00 1d 00 00 00 0e 09 ff 00 00", 0x09, 8},
    // lengths that would wrap an 8-bit counter: to the same offset, and to the next one
    {"72 01 00 1d 00 00 00 08 00 fe 09 02 09 02 09 02", 0x09, -1},
    {"72 01 00 1d 00 00 00 08 00 ff 09 02 09 02 09 02", 0x09, -1},
    // one byte is not a descriptor
    {"72 01 00 1d 00 00 00 01 09 0c 00 00", 0x09, -1},
    {"72 01 00 1d 00 00 00 0e 09", 0x09, -1},
    {"72 01 00 1d 00 00 00 05 00 02 aa bb 09 0c", 0x09, -1},
    // nothing after the header
    {"72 01 00 1d 00 00 00 0e", 0x09, -1},
    // a type that does not fit in a byte
    {"72 01 00 1d 00 00 00 04 09 02 00 00", 0x109, -1},
};
// clang-format on

TEST(FindSenseData, WalksTheDescriptors)
{
    for (const WalkCase &c : kWalkCases) {
        SCOPED_TRACE(c.hex);
        const ExactBytes sense(bytesOf(c.hex));
        const TraceRecorder traces;
        const uint8_t *const expected = c.found < 0 ? nullptr : sense.data.get() + c.found;
        const uint8_t *const found = scsi_find_sense_data(sense.data.get(), sense.size, c.type);
        EXPECT_EQ(found, expected);
        if (found != nullptr) {
            char text[100];
            snprintf(text, sizeof text, "_OUT_ find descriptor data. type=[%x] length=[%d]",
                     static_cast<unsigned>(c.type), found[1] + 2);
            EXPECT_TRUE(traces.has(0, text, "scsi_find_sense_data"));
        } else {
            EXPECT_EQ(traces.texts().back(), "_OUT_");
        }
    }
}

TEST(FindSenseData, ALongWalkEndsAtTheAdditionalLength)
{
    // 300 bytes of descriptors of two bytes each; only 255 of them belong to the sense data
    std::vector<uint8_t> bytes = bytesOf("72 01 00 1d 00 00 00 ff");
    while (bytes.size() < 308) {
        bytes.insert(bytes.end(), {0x00, 0x00});
    }
    bytes[8 + 252] = 0x09;
    bytes[8 + 256] = 0x0A;
    const ExactBytes sense(bytes);
    EXPECT_EQ(scsi_find_sense_data(sense.data.get(), sense.size, 0x09), sense.data.get() + 8 + 252);
    EXPECT_EQ(scsi_find_sense_data(sense.data.get(), sense.size, 0x0A), nullptr);
}

TEST(FindSenseData, WithoutDescriptorFormatThereIsNothingToFind)
{
    struct {
        const char *hex;
        const char *text;
    } const cases[] = {
        {"70 00 05 00 00 00 00 0a 09 02 00 00", "error,response code 70,addtional sense length 10"},
        {"f1 00 05 00 00 00 00 0a 09 02 00 00", "error,response code 71,addtional sense length 10"},
        {"74 00 05 00 00 00 00 0a 09 02 00 00", "error,response code 74,addtional sense length 10"},
        {"00 00 00 00 00 00 00 0a 09 02 00 00", "error,response code 0,addtional sense length 10"},
        {"72 01 00 1d 00 00 00 00 09 0c 00 00", "error,response code 72,addtional sense length 0"},
    };
    for (const auto &c : cases) {
        const ExactBytes sense(bytesOf(c.hex));
        const TraceRecorder traces;
        EXPECT_EQ(scsi_find_sense_data(sense.data.get(), sense.size, 0x09), nullptr);
        EXPECT_TRUE(traces.has(3, c.text, "scsi_find_sense_data")) << c.text;
        EXPECT_EQ(traces.texts().back(), "_OUT_");
    }
}

TEST(FindSenseData, NullAndShortSenseAreInvalid)
{
    const TraceRecorder traces;
    const ExactBytes sense(bytesOf("72 01 00 1d 00 00 00"));
    EXPECT_EQ(scsi_find_sense_data(nullptr, 32, 0x09), nullptr);
    EXPECT_EQ(scsi_find_sense_data(sense.data.get(), sense.size, 0x09), nullptr);
    EXPECT_EQ(scsi_find_sense_data(sense.data.get(), 0, 0x09), nullptr);
    EXPECT_THAT(traces.textsOf("scsi_find_sense_data"), testing::Contains("error,invalid paramters").Times(3));
    EXPECT_TRUE(traces.has(3, "error,invalid paramters"));
}

TEST(SenseData, NoBytesAtAllMakeADecoderLookBeyondThem)
{
    std::mt19937 random(20240229);
    for (int round = 0; round < 20000; ++round) {
        std::vector<uint8_t> bytes(random() % 48);
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(random() % 3 == 0 ? random() % 16 : random());
        }
        if (!bytes.empty()) {
            bytes[0] = static_cast<uint8_t>(0x70 | (random() & 0x83));
        }
        const ExactBytes sense(bytes);
        SenseInfo info{};
        decodeSense({sense.data.get(), sense.size}, info);
        const auto found = findSenseDescriptor({sense.data.get(), sense.size}, 9);
        if (!found.empty()) {
            ASSERT_GE(found.size(), 2U);
            ASSERT_EQ(found[0], 9);
            ASSERT_EQ(found.data() + found.size(), sense.data.get() + sense.size);
        }
    }
}

} // namespace
