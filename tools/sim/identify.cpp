// SPDX-License-Identifier: Apache-2.0
#include "sim/identify.h"

#include <algorithm>

namespace sim {

namespace {

struct TextField {
    size_t word, words;
};
constexpr TextField kSerial{10, 10};
constexpr TextField kFirmware{23, 4};
constexpr TextField kModel{27, 20};

void putWord(IdentifyBlock &block, size_t word, unsigned value)
{
    block[2 * word] = static_cast<uint8_t>(value);
    block[2 * word + 1] = static_cast<uint8_t>(value >> 8);
}

void putText(IdentifyBlock &block, TextField field, const std::string &text)
{
    for (size_t i = 0; i < 2 * field.words; ++i) {
        block[2 * field.word + (i ^ 1)] = static_cast<uint8_t>(i < text.size() ? text[i] : ' ');
    }
}

void makeReadable(IdentifyBlock &block, TextField field, bool dropBlanks)
{
    const auto begin = block.begin() + static_cast<std::ptrdiff_t>(2 * field.word);
    const auto end = begin + static_cast<std::ptrdiff_t>(2 * field.words);
    for (auto at = begin; at != end; at += 2) {
        std::iter_swap(at, at + 1);
    }
    for (auto at = end; dropBlanks && at != begin && *(at - 1) == ' '; --at) {
        *(at - 1) = 0;
    }
}

void putSize(IdentifyBlock &block, uint64_t sectors)
{
    const auto lba28 = static_cast<unsigned>(std::min<uint64_t>(sectors, 0x0FFFFFFF));
    putWord(block, 60, lba28 & 0xFFFF);
    putWord(block, 61, lba28 >> 16);
    for (size_t i = 0; i < 4; ++i) {
        putWord(block, 100 + i, static_cast<unsigned>(sectors >> (16 * i) & 0xFFFF));
    }
}

} // namespace

IdentifyBlock identifyBlock(const DeviceDescription &device, bool smartEnabled)
{
    IdentifyBlock block{};
    const bool packet = device.type != kDisk;
    const unsigned smart = device.smart.supported ? 1 : 0;
    putWord(block, 0, packet ? 0x85C0 : 0x0040);
    if (!packet) {
        putWord(block, 1, static_cast<unsigned>(std::min<uint64_t>(device.sectors / (16UL * 63), 16383)));
        putWord(block, 3, 16);
        putWord(block, 6, 63);
        putSize(block, device.sectors);
    }
    putText(block, kSerial, device.serial);
    putText(block, kFirmware, device.revision);
    putText(block, kModel, device.model);
    putWord(block, 49, 0x0B00); // LBA, DMA
    putWord(block, 53, 7);
    putWord(block, 80, 0x00F0);
    putWord(block, 82, packet ? 0 : 0x4020 | smart); // NOP, write cache, SMART
    putWord(block, 83, packet ? 0 : 0x7400);         // 01b: words 82 and 83 are valid; 48-bit addresses
    const unsigned logs = smart != 0 ? 3 : 0;        // SMART error logging, SMART self-test
    putWord(block, 84, packet ? 0 : 0x4000 | logs);
    putWord(block, 85, packet ? 0 : 0x4020U | (smart != 0 && smartEnabled ? 1U : 0U));
    putWord(block, 86, packet ? 0 : 0x3400);
    putWord(block, 87, packet ? 0 : 0x4000 | logs);
    for (const auto &[word, value] : device.identifyWords) {
        putWord(block, word, value);
    }
    return block;
}

IdentifyBlock identityForIoctl(const DeviceDescription &device, bool smartEnabled)
{
    IdentifyBlock block = identifyBlock(device, smartEnabled);
    for (const TextField &field : {kSerial, kFirmware, kModel}) {
        makeReadable(block, field, device.isIde());
    }
    return block;
}

} // namespace sim
