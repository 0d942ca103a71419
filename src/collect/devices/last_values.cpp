// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/last_values.h"

#include "runtime/field_text.h"

#include <algorithm>
#include <span>

using namespace tavstrg;

constinit LastValuesTable tavstrg::g_lastValues;

namespace {

bool hasIdentity(const DiskKey &a, const DiskKey &b)
{
    return fieldText(a.identity) == fieldText(b.identity);
}

} // namespace

void tavstrg::takeFromEntry(LastValues &values, const HardDiskEntry &entry)
{
    values.cylinders = entry.CylindersPerUnit;
    values.heads = entry.TracksPerCylinder;
    values.sectors = entry.SectorsPerTrack;
    values.capacity = entry.Capacity;
    values.predict = entry.SmartPredict;
}

void tavstrg::putIntoEntry(const LastValues &values, HardDiskEntry &entry)
{
    entry.CylindersPerUnit = values.cylinders;
    entry.TracksPerCylinder = values.heads;
    entry.SectorsPerTrack = values.sectors;
    entry.Capacity = values.capacity;
    entry.SmartPredict = values.predict;
}

LastValuesTable::Slot *LastValuesTable::find(const DiskKey &key)
{
    const std::span used(slot_, slots_);
    const auto found = std::ranges::find_if(used, [&](const Slot &slot) {
        return slot.used != 0 && slot.key.address == key.address && hasIdentity(slot.key, key);
    });
    return found == used.end() ? nullptr : &*found;
}

LastValuesTable::Slot *LastValuesTable::freeSlot()
{
    if (slots_ < kDisks) {
        return &slot_[slots_++];
    }
    Slot *const oldest = std::ranges::min_element(slot_, {}, &Slot::used);
    constexpr uint64_t kUsesOfSomePasses = uint64_t{16} * kDisks; // a disk is used a few times in each pass
    return oldest->used == 0 || now_ - oldest->used > kUsesOfSomePasses ? oldest : nullptr;
}

bool LastValuesTable::recall(const DiskKey &key, DiskMemory &memory)
{
    const std::lock_guard held(lock_);
    Slot *const slot = find(key);
    if (slot == nullptr) {
        return false;
    }
    slot->used = ++now_;
    memory = slot->memory;
    return true;
}

bool LastValuesTable::recallMoved(const DiskKey &key, LastValues &values)
{
    const std::lock_guard held(lock_);
    const std::span used(slot_, slots_);
    const auto found = std::ranges::find_if(
        used, [&](const Slot &slot) { return slot.used != 0 && slot.memory.valuesRead && hasIdentity(slot.key, key); });
    if (key.identity[0] == '\0' || found == used.end()) {
        return false;
    }
    values = found->memory.values;
    return true;
}

void LastValuesTable::remember(const DiskKey &key, const DiskMemory &memory)
{
    const std::lock_guard held(lock_);
    Slot *slot = find(key);
    if (slot == nullptr) {
        slot = freeSlot();
    }
    if (slot != nullptr) {
        *slot = {key, memory, ++now_};
    }
}

void LastValuesTable::forget(const DiskKey &key)
{
    const std::lock_guard held(lock_);
    if (Slot *const slot = find(key)) {
        slot->used = 0;
    }
}

void LastValuesTable::clear()
{
    const std::lock_guard held(lock_);
    slots_ = 0;
}
