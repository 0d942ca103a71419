// SPDX-License-Identifier: Apache-2.0
// Machines whose every device tells which state of the machine it belongs to, so that an answer or a saved state that
// mixes two of them, or lost a part of one, is seen.
#pragma once

#include "broker/broker.h"

#include <cstddef>
#include <optional>
#include <string>

namespace scenario {

// Disks of a generation: from 1 to 12, another number than the generation before had.
size_t disksOf(unsigned generation);
// The machine of a generation, as JSON: ATA disks, all managed, behind one or two host adapters. Model, serial number,
// firmware and capacity tell the generation.
std::string machineOf(unsigned generation, bool agentLibraries = false);

// The generation of which an enumeration of TAV_StorageSCSIDevice or TAV_StorageHardDisk tells every disk; nothing,
// with the reason, when it is of none.
std::optional<unsigned> generationOf(const broker::Reply &reply, std::string &why);
// Expects that both classes of disks are answered as that generation has them.
void expectGeneration(broker::Broker &broker, unsigned expected);
// generationOf for the bytes of a saved-state file.
std::optional<unsigned> generationOf(const std::string &savedState, std::string &why);

} // namespace scenario
