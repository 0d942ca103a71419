// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/sha256.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

// FIPS 180-4 has no examples; these are NIST's, and as base 64 that of the empty text.
TEST(Sha256, OfTheStandardsExamples)
{
    const auto hex = [](std::string_view text) {
        std::string all;
        for (const uint8_t byte : sha256(text)) {
            constexpr std::string_view kDigits = "0123456789abcdef";
            all += kDigits[byte >> 4];
            all += kDigits[byte & 15];
        }
        return all;
    };
    EXPECT_EQ(hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1")
        << "56 bytes: the length is in a second block";
    EXPECT_EQ(policyHash(""), "sha256-47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
}

} // namespace
} // namespace tool
