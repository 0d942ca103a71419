// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/sha256.h"

#include <bit>
#include <cstddef>

namespace tool {
namespace {

constexpr size_t kBlockBytes = 64; // bytes

// FIPS 180-4, 4.2.2.
constexpr uint32_t kConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<uint32_t, 8>;

uint32_t wordAt(std::string_view block, size_t i)
{
    uint32_t word = 0;
    for (size_t k = 0; k < 4; ++k) {
        word = word << 8 | static_cast<uint8_t>(block[4 * i + k]);
    }
    return word;
}

// FIPS 180-4, 6.2.2.
void take(State &state, std::string_view block)
{
    uint32_t w[64];
    for (size_t i = 0; i < 64; ++i) {
        if (i < 16) {
            w[i] = wordAt(block, i);
            continue;
        }
        const uint32_t s0 = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
        const uint32_t s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (size_t i = 0; i < 64; ++i) {
        const uint32_t t1 =
            h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) + ((e & f) ^ (~e & g)) + kConstants[i] + w[i];
        const uint32_t t2 = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    const State add{a, b, c, d, e, f, g, h};
    for (size_t i = 0; i < state.size(); ++i) {
        state[i] += add[i];
    }
}

// One bit, zeros, and the length in bits: whole blocks (FIPS 180-4, 5.1.1).
std::string padded(std::string_view text)
{
    std::string all(text);
    all += '\x80';
    all.resize((all.size() + 8 + kBlockBytes - 1) / kBlockBytes * kBlockBytes - 8, '\0');
    for (int shift = 56; shift >= 0; shift -= 8) {
        all += static_cast<char>(static_cast<uint64_t>(text.size()) * 8 >> shift & 0xff);
    }
    return all;
}

} // namespace

Sha256 sha256(std::string_view text)
{
    State state{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    const std::string all = padded(text);
    for (size_t at = 0; at < all.size(); at += kBlockBytes) {
        take(state, std::string_view(all).substr(at, kBlockBytes));
    }
    Sha256 hash{};
    for (size_t i = 0; i < hash.size(); ++i) {
        hash[i] = static_cast<uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
    }
    return hash;
}

std::string policyHash(std::string_view text)
{
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const Sha256 hash = sha256(text);
    std::string result = "sha256-";
    for (size_t i = 0; i < hash.size(); i += 3) {
        const uint32_t second = i + 1 < hash.size() ? hash[i + 1] : 0;
        const uint32_t third = i + 2 < hash.size() ? hash[i + 2] : 0;
        const uint32_t group = uint32_t{hash[i]} << 16 | second << 8 | third;
        for (int shift = 18; shift >= 0; shift -= 6) {
            result += kDigits[group >> shift & 63];
        }
    }
    result.back() = '='; // 32 bytes: the last group has two
    return result;
}

} // namespace tool
