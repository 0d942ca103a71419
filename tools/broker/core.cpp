// SPDX-License-Identifier: Apache-2.0
#include "broker/core.h"

#include "broker/objects.h"

#include <algorithm>
#include <utility>

namespace broker {

namespace {

// Number of released objects that are kept to recognise their use. Bounded for long runs.
constexpr size_t kQuarantine = 10000;
constexpr size_t kNotes = 200;

std::string nameOf(const Object &object)
{
    return std::string(object.kind) + " of " + object.source + " [" + object.describe() + "]";
}

} // namespace

Core::Core(Options given)
    : options(std::move(given)), tables(makeTables(options)), handle{}, serviceMode(options.serviceMode)
{
    handle.hdl = this;
    handle.bft = &tables.broker;
    handle.eft = &tables.encapsulated;
    handle.xft = &tables.extended;
    handle.mft = nullptr; // as in brokers without memory functions
}

Core::~Core() = default;

Shelf &Core::currentShelf()
{
    const auto found = serving_.find(std::this_thread::get_id());
    return found == serving_.end() ? loose : *found->second.back();
}

void Core::enter(Shelf &shelf)
{
    const std::lock_guard held(mutex);
    serving_[std::this_thread::get_id()].push_back(&shelf);
}

void Core::end(Shelf &shelf, bool countMessages)
{
    const std::lock_guard held(mutex);
    for (auto served = serving_.begin(); served != serving_.end();) {
        std::erase(served->second, &shelf);
        served = served->second.empty() ? serving_.erase(served) : std::next(served);
    }
    auto left = std::exchange(shelf.objects, {});
    for (auto &[object, owned] : left) {
        if (object->owner == Owner::provider || (object->owner == Owner::message && countMessages)) {
            note(&Accounting::leakedByRequests, "not released by its request: " + nameOf(*object));
        }
        quarantine(std::move(owned));
    }
}

CMPIStatus Core::release(Object &object)
{
    if (object.released) {
        note(&Accounting::doubleReleases, "released again: " + nameOf(object));
        return {CMPI_RC_ERR_FAILED, nullptr};
    }
    const bool ownArray = object.owner == Owner::enumeration && !options.strictToArray;
    if (ownArray) {
        quarantine(object.whole->giveUp());
        return {CMPI_RC_OK, nullptr};
    }
    if (object.shelf == nullptr || object.owner == Owner::handedIn) {
        note(&Accounting::releasedForeign, "released, but owned by the broker: " + nameOf(object));
        return {CMPI_RC_ERR_FAILED, nullptr};
    }
    retire(object);
    return {CMPI_RC_OK, nullptr};
}

void Core::retire(Object &object)
{
    const auto found = object.shelf->objects.find(&object);
    auto owned = std::move(found->second);
    object.shelf->objects.erase(found);
    quarantine(std::move(owned));
}

void Core::quarantine(std::unique_ptr<Object> object)
{
    object->released = true;
    object->shelf = nullptr;
    object->whole = nullptr;
    object->dropContent();
    quarantine_.push_back(std::move(object));
    while (quarantine_.size() > kQuarantine) {
        quarantine_.pop_front();
    }
}

std::shared_ptr<const ClassData> Core::findClass(std::string_view name) const
{
    const auto found =
        std::find_if(classes_.begin(), classes_.end(), [&](const auto &known) { return sameName(known->name, name); });
    return found == classes_.end() ? nullptr : *found;
}

void Core::addClass(std::shared_ptr<const ClassData> added)
{
    const std::lock_guard held(mutex);
    std::erase_if(classes_, [&](const auto &known) { return sameName(known->name, added->name); });
    classes_.push_back(std::move(added));
}

void Core::note(int64_t Accounting::*counter, const std::string &text)
{
    account_.*counter += 1;
    if (account_.notes.size() < kNotes) {
        account_.notes.push_back(text);
    }
}

Accounting Core::accounting() const
{
    const std::lock_guard held(mutex);
    Accounting account = account_;
    for (const auto &[object, owned] : loose.objects) {
        if (!object->forgotten) {
            account.live += 1;
            account.notes.push_back("not released: " + nameOf(*object));
        }
    }
    return account;
}

void Core::forgetAccounting()
{
    const std::lock_guard held(mutex);
    account_ = {};
    for (auto &[object, owned] : loose.objects) {
        object->forgotten = true;
    }
}

void Core::failCall(const std::string &slot, unsigned nth, int rc)
{
    const std::lock_guard held(mutex);
    failingSlot_ = slot;
    failIn_ = nth;
    failWith_ = rc;
    failed_ = false;
}

bool Core::failureStruck() const
{
    const std::lock_guard held(mutex);
    return failed_;
}

unsigned Core::calls(const std::string &slot) const
{
    const std::lock_guard held(mutex);
    const auto found = calls_.find(slot);
    return slot == "*" ? allCalls_ : found == calls_.end() ? 0 : found->second;
}

void Core::forgetCalls()
{
    const std::lock_guard held(mutex);
    calls_.clear();
    allCalls_ = 0;
}

std::optional<int> Core::count(const char *slot)
{
    calls_[slot] += 1;
    const bool canFail = std::string_view(slot) != "release";
    allCalls_ += canFail ? 1 : 0;
    if (failIn_ == 0 || !canFail || (failingSlot_ != "*" && failingSlot_ != slot)) {
        return std::nullopt;
    }
    failIn_ -= 1;
    failed_ = failIn_ == 0;
    return failed_ ? std::optional(failWith_) : std::nullopt;
}

Tables makeTables(const Options &options)
{
    const int version = options.ftVersion;
    return {stringTable(version),       arrayTable(version),
            enumerationTable(version),  instanceTable(version),
            pathTable(version),         argsTable(version),
            timeTable(version),         contextTable(version),
            resultTable(version),       brokerTable(options.brokerVersion),
            encapsulatedTable(version), extendedTable(version)};
}

} // namespace broker
