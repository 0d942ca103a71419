// SPDX-License-Identifier: Apache-2.0
// Machines whose devices carry the number of the machine's state (generation), to detect an answer or a saved state
// that mixes two states or lacks a part of one.
#pragma once

#include "broker/broker.h"

#include <cstddef>
#include <optional>
#include <string>

namespace scenario {

// Number of disks of a generation: 1 to 12, different from the generation before.
size_t disksOf(unsigned generation);
// The machine of a generation, as JSON: ATA disks, all managed, behind one or two host adapters. Model, serial number,
// firmware and capacity encode the generation.
std::string machineOf(unsigned generation, bool agentLibraries = false);

// Returns the generation that an enumeration of TAV_StorageSCSIDevice or TAV_StorageHardDisk completely reports, or
// nothing and the reason.
std::optional<unsigned> generationOf(const broker::Reply &reply, std::string &why);
// Expects that both classes of disks are those of that generation.
void expectGeneration(broker::Broker &broker, unsigned expected);
// generationOf for the bytes of a saved-state file.
std::optional<unsigned> generationOf(const std::string &savedState, std::string &why);

} // namespace scenario
