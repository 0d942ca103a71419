// SPDX-License-Identifier: Apache-2.0
// The core of the broker: ownership of objects, counts, failing calls. One lock guards it and all objects.
#pragma once

#include "broker/data.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace broker {

class Core;
struct Object;

// Objects that are freed together: those of a request, or those that only the provider owns.
struct Shelf {
    std::unordered_map<Object *, std::unique_ptr<Object>> objects;
};

// How an object was made. This decides who has to release it.
enum class Owner {
    provider,    // made for the provider, which has to release it
    message,     // a text made for the provider, usually the message of a status, which the broker releases
    value,       // part of a value that was read; released by the broker at the end of the request
    handedIn,    // a parameter of the request; the provider must not release it
    parent,      // part of another object; released with it
    enumeration, // the array of an enumeration; the provider may release it once
};

// Common part of all objects, which a provider does not see.
struct Object {
    Core *core = nullptr;
    Shelf *shelf = nullptr;  // null for parts of other objects and in quarantine
    Object *whole = nullptr; // the object of which this is a part
    Owner owner = Owner::provider;
    const char *kind = "";   // "CMPIString"
    const char *source = ""; // the slot that made it
    bool released = false;
    bool forgotten = false; // no longer counted

    Object() = default;
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    virtual ~Object() = default;
    virtual std::string describe() const = 0;
    // Drops the content, so that use after release is noticed; moves parts into quarantine.
    virtual void dropContent() = 0;
    // Gives up a part that was released separately.
    virtual std::unique_ptr<Object> giveUp() { return nullptr; }
};

struct StringObject;
struct ArrayObject;
struct EnumerationObject;
struct InstanceObject;
struct PathObject;
struct ArgsObject;
struct TimeObject;
struct ContextObject;
struct ResultObject;

// The function tables. Each broker has its own, because versions are an option.
struct Tables {
    CMPIStringFT string;
    CMPIArrayFT array;
    CMPIEnumerationFT enumeration;
    CMPIInstanceFT instance;
    CMPIObjectPathFT path;
    CMPIArgsFT args;
    CMPIDateTimeFT time;
    CMPIContextFT context;
    CMPIResultFT result;
    CMPIBrokerFT broker;
    CMPIBrokerEncFT encapsulated;
    CMPIBrokerExtFT extended;
};
Tables makeTables(const Options &options);

class Core {
public:
    explicit Core(Options given);
    ~Core();
    Core(const Core &) = delete;
    Core &operator=(const Core &) = delete;
    static Core &of(const CMPIBroker *broker) { return *static_cast<Core *>(broker->hdl); }

    mutable std::mutex mutex; // guards all members below and the content of objects
    const Options options;
    Tables tables;
    CMPIBroker handle;

    // These functions take the lock.

    // From now on objects made by the calling thread belong to a request, until it ends.
    void enter(Shelf &shelf);
    // Ends a request: frees the remaining objects of its shelf, and counts those that the provider had to release. With
    // countMessages set messages count too; the one of the status belongs to the broker by then.
    void end(Shelf &shelf, bool countMessages);
    void addClass(std::shared_ptr<const ClassData> added);
    Accounting accounting() const;
    void forgetAccounting();
    void failCall(const std::string &slot, unsigned nth, int rc);
    bool failureStruck() const;
    unsigned calls(const std::string &slot) const;
    void forgetCalls();

    // These functions need the lock.

    // The shelf for new objects of the calling thread: that of its latest request, else the provider's.
    Shelf &currentShelf();
    // Puts a new object on a shelf.
    template <class Kind> Kind &keep(std::unique_ptr<Kind> object, Shelf &shelf, Owner owner, const char *source)
    {
        Kind &kept = *object;
        kept.core = this;
        kept.owner = owner;
        kept.source = source;
        kept.shelf = &shelf;
        shelf.objects.emplace(&kept, std::move(object));
        return kept;
    }
    // Releases an object for a provider.
    CMPIStatus release(Object &object);
    // Ends an object on a shelf for the broker itself.
    void retire(Object &object);
    void quarantine(std::unique_ptr<Object> object);

    std::shared_ptr<const ClassData> findClass(std::string_view name) const;
    void note(int64_t Accounting::*counter, const std::string &text);
    // Counts a call of a slot. Returns the code with which it has to fail, or nothing.
    std::optional<int> count(const char *slot);

    Shelf loose;    // clones, and objects of threads without a request
    Shelf prepared; // contexts for threads, until detachThread or the end of the broker
    std::optional<bool> serviceMode;
    std::vector<InstanceData> instances; // of other providers' classes

private:
    std::map<std::thread::id, std::vector<Shelf *>> serving_;
    std::deque<std::unique_ptr<Object>> quarantine_;
    std::vector<std::shared_ptr<const ClassData>> classes_;
    Accounting account_;
    std::map<std::string, unsigned, std::less<>> calls_;
    unsigned allCalls_ = 0;
    std::string failingSlot_;
    unsigned failIn_ = 0; // calls until one fails; 0: disarmed
    int failWith_ = CMPI_RC_OK;
    bool failed_ = false;
};

// One call of a slot: holds the lock, counts the call, decides whether it fails, and sets the caller's status.
class Call {
public:
    Call(Core &core, const char *slot, CMPIStatus *status = nullptr);
    // The same for a slot of an object; fails if the object was released.
    Call(const Object &object, const char *slot, CMPIStatus *status = nullptr);
    // The same for a slot with an invocation context; fails if it is the one of a cleanup.
    Call(const CMPIBroker *broker, const CMPIContext *context, const char *slot, CMPIStatus *status = nullptr);

    // Whether the call fails. The status is then set.
    bool refused() const { return refused_; }
    // Whether the call has to return an object without a handle.
    bool withoutHandle() const { return withoutHandle_; }
    CMPIStatus status() const { return {static_cast<CMPIrc>(rc_), nullptr}; }
    CMPIStatus fail(int rc); // sets and returns the status
    // Whether an argument may be used. Counts one that was released.
    bool usable(const Object *argument);
    // A value argument as it is stored. Returns nothing and sets the status if it has an unknown type.
    std::optional<Datum> read(const CMPIValue *value, CMPIType type);

    Core &core() { return core_; }
    const char *slot() const { return slot_; }

    // New objects for the caller.
    CMPIString *string(const std::optional<std::string> &text,
                       Owner owner = Owner::provider); // no text: no handle
    CMPIObjectPath *path(PathData data);
    CMPIInstance *instance(InstanceData data);
    CMPIArray *array(ArrayData data);
    CMPIArgs *args(NamedData data);
    CMPIDateTime *time(TimeData data);
    CMPIEnumeration *enumeration(ArrayData data);
    // A stored value as a reader gets it; encapsulated parts become objects of the request.
    CMPIData data(const Datum &datum);
    CMPIData missing(int rc); // result for a name that is not found
    // An entry by its position, for getKeyAt, getArgAt and getEntryAt.
    CMPIData entryAt(const std::vector<NamedDatum> &entries, CMPICount index, CMPIString **name);
    // New objects belong to no request: for clones.
    void attachToNoRequest() { shelf_ = &core_.loose; }

private:
    template <class Kind> Kind *give(std::unique_ptr<Kind> object, Owner owner);

    Core &core_;
    std::unique_lock<std::mutex> lock_;
    const char *slot_;
    CMPIStatus *out_;
    int rc_ = CMPI_RC_OK;
    bool refused_ = false;
    bool withoutHandle_ = false;
    Shelf *shelf_ = nullptr; // null: the current one
};

} // namespace broker
