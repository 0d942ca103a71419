// SPDX-License-Identifier: Apache-2.0
// The embedded broker: a CMPI host in one process, with the semantics of the real one as far as a provider can see
// them.
//
// It loads a provider's shared object through its factories, or serves as the broker of functions under test, and it
// accounts for every object that it hands out: what a provider leaks or releases twice is counted.
#pragma once

#include <cmpift.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace broker {

// A value as a client sends or sees it; monostate is NULL. Unsigned, signed, boolean and text carry their CMPI type.
struct Value {
    CMPIType type = CMPI_null;
    std::variant<std::monostate, bool, uint64_t, int64_t, std::string> data;

    static Value text(std::string text); // CMPI_string
    static Value number(uint64_t number, CMPIType type = CMPI_uint64);
    static Value signedNumber(int64_t number, CMPIType type = CMPI_sint64);
    bool isNull() const { return data.index() == 0; }
    std::string toString() const; // as printed for people; NULL is ""
};

struct NamedValue {
    std::string name;
    Value value;
};

// As a client sees it. Of a class that is known, every property is there, NULL when it was not set.
struct Instance {
    std::string nameSpace;
    std::string className;
    std::vector<NamedValue> keys;                     // of its object path
    std::vector<NamedValue> properties;               // in the order in which they were set, then those that were not
    const Value *find(const std::string &name) const; // by name without regard to case; null when not there
};

// A class as its schema declares it: what the broker checks and presets in new instances of it.
struct Property {
    std::string name;
    CMPIType type = CMPI_string;
    bool key = false;
};

// What a request came to.
struct Reply {
    int rc = 0; // CMPIrc
    std::string message;
    std::vector<Instance> instances; // returned before a failure too
    std::vector<Value> data;         // method return values
    std::vector<NamedValue> out;     // arguments that a method handed back
    bool done = false;               // CMReturnDone was called
    bool ok() const { return rc == 0; }
};

// Objects handed out and not yet released, and what went wrong with them.
struct Accounting {
    // Outstanding beyond the end of a request, or outside of any: clones, and what a thread of the provider's own made.
    int64_t live = 0;
    // Objects that a request made and left for the broker to free. Strings that a status carries and strings inside of
    // values that were read are the broker's.
    int64_t leakedByRequests = 0;
    int64_t doubleReleases = 0;
    int64_t releasedForeign = 0; // releases of objects that were handed in
    int64_t useAfterRelease = 0;
    int64_t callsFromCleanup = 0; // calls into the broker with a cleanup's empty context; they are refused
    int64_t schemaViolations = 0; // properties of a known class that it does not declare, or declares with another type
    int64_t returnsAfterDone = 0; // objects or values returned after the result was said to be done
    std::vector<std::string> notes; // one line each, for a test's failure message
    bool clean() const
    {
        return live == 0 && leakedByRequests == 0 && doubleReleases == 0 && releasedForeign == 0 &&
               useAfterRelease == 0 && callsFromCleanup == 0 && schemaViolations == 0 && returnsAfterDone == 0;
    }
};

struct Options {
    std::optional<bool> serviceMode = false; // InstalledServiceMode of TAV_GeneralInformation; nullopt: no such class
    std::string nameSpace = "root/TAVKIT/AS";
    bool oldPropertyFilter = false; // the filter of older brokers, which drops a key that is not listed
    int missingPropertyCode = 12;   // code for a missing property: 12, or 6 in older brokers
    bool strictToArray = false;     // as really: an enumeration's array is released with it, and not by the provider
    int ftVersion = 200;            // of the objects' tables; the real broker says 1
    unsigned brokerVersion = 200;   // the real broker says 0
};

class Broker;

// One request as a provider function sees it, for calling such functions directly. Everything handed in belongs to it.
// What the thread that made it creates while it lives, is counted as the request's; of several, as the latest one's.
// It must not outlive its broker.
class Request {
public:
    Request(Broker &broker, const std::string &className, const std::vector<NamedValue> &keys = {},
            const std::string &nameSpace = "");
    ~Request(); // counts what the provider left unreleased
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;

    const CMPIContext *context() const;
    CMPIResult *result() const;
    CMPIObjectPath *path() const;
    CMPIArgs *in() const;
    CMPIArgs *out() const;
    void setIn(const std::vector<NamedValue> &args);
    // Null-terminated list for a provider function, or null when none was set. An empty list is not none.
    const char **properties() const;
    void setProperties(const std::vector<std::string> &names);
    // What was returned so far, with the status that the function gave. To be called while the request lives.
    Reply reply(CMPIStatus status) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

class Broker {
public:
    explicit Broker(Options options = {});
    ~Broker();
    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;

    // The broker handle that providers get.
    const CMPIBroker *handle() const;
    // An invocation context without entries, as a cleanup gets it.
    const CMPIContext *emptyContext() const;

    // Makes a class known. Without that, instances of it hold just what is set, and no object path can be made of them.
    void addClass(const std::string &className, const std::vector<Property> &properties);
    // Makes the classes of a schema text known (MOF: class declarations, their keys and base classes).
    // Empty on success, else what was not understood.
    std::string addSchema(const std::string &mof);
    // An instance of another provider's class, for calls into the broker: getInstance by its keys, enumerateInstances.
    // One of TAV_GeneralInformation stands in for the built-in one.
    void addInstance(const Instance &instance);
    void setServiceMode(std::optional<bool> serviceMode);

    // Loads a provider's shared object as the real broker does: bound at once, names global, each factory called once
    // per class in the thread of that class's first request. Empty on success, else why not. Each request runs in a
    // thread of its own; requests may be made by several threads at once.
    std::string load(const std::string &sharedObject, const std::string &providerName = "TAVStorageProvider");
    void unload(); // without asking the provider, when its requests have ended
    bool loaded() const;

    // As a client meets them: success without an instance is "not found" (6) for getInstance. An unanswered query is
    // not turned into an enumeration here.
    Reply getInstance(const std::string &className, const std::vector<NamedValue> &keys = {},
                      const std::optional<std::vector<std::string>> &properties = {});
    Reply enumInstances(const std::string &className, const std::optional<std::vector<std::string>> &properties = {});
    Reply enumInstanceNames(const std::string &className);
    Reply createInstance(const std::string &className);
    Reply modifyInstance(const std::string &className);
    Reply deleteInstance(const std::string &className, const std::vector<NamedValue> &keys = {});
    Reply execQuery(const std::string &className, const std::string &query);
    Reply invokeMethod(const std::string &className, const std::string &method,
                       const std::vector<NamedValue> &args = {});

    // One cleanup entry point each, with the empty context. The factories run first, if no request came before.
    Reply cleanupInstance(bool terminating);
    Reply cleanupMethod(bool terminating);
    // As the real broker when a provider has been idle: instance cleanup, then, if that was OK, method cleanup. True
    // when both agreed; the shared object is then closed, and the next request loads it afresh. Once a cleanup answered
    // anything but 0 and 50, it is not asked again until it is loaded afresh.
    // A provider that has had no request yet has nothing to clean up, and is not asked. One that serves a request is
    // not idle.
    bool idle();
    // As the real broker when it stops: both cleanups with terminating set, entered by two threads at once; then
    // closed.
    void stop();

    Accounting accounting() const;
    void forgetAccounting();

    // The nth call (1-based, from now) of a slot fails with rc: "newObjectPath", "newInstance", "newString",
    // "getInstance", "getProperty", "getKey", "getArg", "getNameSpace", "getClassName", "setPropertyFilter",
    // "setProperty", "addKey", "returnInstance", "returnData", "returnDone", "prepareAttachThread", "attachThread",
    // "enumerateInstances", "toArray", "getSize", "clone" and so on, as the slots are called; "*" counts every call of
    // every slot but release, which cannot fail. A slot that gives an object gives null, also with rc 0; with
    // kNullHandle it gives an object without a handle. One failure is armed at a time; 0 disarms.
    static constexpr int kNullHandle = -1;
    void failCall(const std::string &slot, unsigned nth, int rc = CMPI_RC_ERR_FAILED);
    // Whether the armed failure has struck.
    bool failureStruck() const;
    // Calls of a slot ("*": of all but release) since the broker was made or the counts were forgotten.
    unsigned calls(const std::string &slot) const;
    void forgetCalls();

private:
    friend class Request;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace broker
