// SPDX-License-Identifier: Apache-2.0
// The broker's middle: who owns which object, what is counted, which call fails. One lock guards it and all objects.
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

// Objects that share an end: those of a request, or those that belong to nobody but the provider.
struct Shelf {
    std::unordered_map<Object *, std::unique_ptr<Object>> objects;
};

// How an object came to be, which decides who is to release it.
enum class Owner {
    provider, // made by a slot for the provider, which is to release it
    message,  // a text made for the provider, most likely for a status, which the broker then reads: not to be released
    value,    // part of a value that was read: the broker's when the request is over
    handedIn, // a parameter of the request: not to be released by the provider
    parent,   // part of another object, and released with it
    enumeration, // the array of an enumeration, which the provider may release once
};

// What all objects have behind the part that a provider sees.
struct Object {
    Core *core = nullptr;
    Shelf *shelf = nullptr;  // null for parts of other objects and in quarantine
    Object *whole = nullptr; // of which it is a part
    Owner owner = Owner::provider;
    const char *kind = "";   // "CMPIString"
    const char *source = ""; // slot that made it
    bool released = false;
    bool forgotten = false; // not counted any more

    Object() = default;
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    virtual ~Object() = default;
    virtual std::string describe() const = 0;
    // Drops what it holds, so that use after release is not mistaken for use; its parts go into quarantine too.
    virtual void bury() = 0;
    // Parts with a part that was released on its own.
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

    mutable std::mutex mutex; // guards all that follows, and what objects hold
    const Options options;
    Tables tables;
    CMPIBroker handle;

    // These take the lock.

    // What the calling thread makes from now on belongs to a request, until the request ends.
    void enter(Shelf &shelf);
    // Ends a request: what is left in its shelf is freed, and counted where the provider was to release it. Messages
    // count when countMessages is set: the one that a status carried has been made the broker's by then.
    void end(Shelf &shelf, bool countMessages);
    void addClass(std::shared_ptr<const ClassData> added);
    Accounting accounting() const;
    void forgetAccounting();
    void failCall(const std::string &slot, unsigned nth, int rc);
    bool failureStruck() const;
    unsigned calls(const std::string &slot) const;
    void forgetCalls();

    // These are for holders of the lock.

    // The shelf that takes what the calling thread makes: of its latest request, else of the provider at large.
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
    // A provider releases an object.
    CMPIStatus release(Object &object);
    // The broker itself ends an object on a shelf.
    void retire(Object &object);
    void quarantine(std::unique_ptr<Object> object);

    std::shared_ptr<const ClassData> findClass(std::string_view name) const;
    void note(int64_t Accounting::*counter, const std::string &text);
    // Counts a call of a slot; the code with which it is to fail, if it is.
    std::optional<int> count(const char *slot);

    Shelf loose;    // clones, and what threads without a request made
    Shelf prepared; // contexts for threads: ended by detachThread, or with the broker
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
    unsigned failIn_ = 0; // calls until it strikes; 0: not armed
    int failWith_ = CMPI_RC_OK;
    bool struck_ = false;
};

// One call of a slot: holds the lock, counts, and decides whether the call is to fail. Sets the caller's status.
class Call {
public:
    Call(Core &core, const char *slot, CMPIStatus *status = nullptr);
    // The same for a slot of an object, which must not have been released.
    Call(const Object &object, const char *slot, CMPIStatus *status = nullptr);
    // The same for a slot that needs an invocation context.
    Call(const CMPIBroker *broker, const CMPIContext *context, const char *slot, CMPIStatus *status = nullptr);

    // The call fails, and the status says so.
    bool refused() const { return refused_; }
    // The object that the call gives is to have no handle.
    bool withoutHandle() const { return withoutHandle_; }
    CMPIStatus status() const { return {static_cast<CMPIrc>(rc_), nullptr}; }
    CMPIStatus fail(int rc); // sets the status, and returns it
    // An object handed over as an argument may be used.
    bool usable(const Object *argument);
    // What a value argument means; nothing, and a failed status, when it cannot be one.
    std::optional<Datum> read(const CMPIValue *value, CMPIType type);

    Core &core() { return core_; }
    const char *slot() const { return slot_; }

    // New objects for the caller.
    CMPIString *string(const std::optional<std::string> &text,
                       Owner owner = Owner::provider); // without a text: no handle
    CMPIObjectPath *path(PathData data);
    CMPIInstance *instance(InstanceData data);
    CMPIArray *array(ArrayData data);
    CMPIArgs *args(NamedData data);
    CMPIDateTime *time(TimeData data);
    CMPIEnumeration *enumeration(ArrayData data);
    // What a reader gets of a stored value; encapsulated parts become objects of the request.
    CMPIData data(const Datum &datum);
    CMPIData missing(int rc); // nothing of that name
    // An entry by its position, for getKeyAt and the like.
    CMPIData entryAt(const std::vector<NamedDatum> &entries, CMPICount index, CMPIString **name);
    // A clone belongs to nobody but who asked for it.
    void loosen() { shelf_ = &core_.loose; }

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
