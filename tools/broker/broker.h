// SPDX-License-Identifier: Apache-2.0
// The embedded broker: a CMPI host in one process. To a provider it behaves like the real broker.
//
// It loads a provider's shared object through its factories, or serves as the broker of functions under test. It tracks
// every object that it returns, so that leaks and double releases are counted.
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

// A value as a client sends or receives it, with its CMPI type; monostate is NULL.
struct Value {
    CMPIType type = CMPI_null;
    std::variant<std::monostate, bool, uint64_t, int64_t, std::string> data;

    static Value text(std::string text); // CMPI_string
    static Value number(uint64_t number, CMPIType type = CMPI_uint64);
    static Value signedNumber(int64_t number, CMPIType type = CMPI_sint64);
    bool isNull() const { return data.index() == 0; }
    std::string toString() const; // readable text; "" for NULL
};

struct NamedValue {
    std::string name;
    Value value;
};

// An instance as a client receives it. One of a known class has all its properties; those not set are NULL.
struct Instance {
    std::string nameSpace;
    std::string className;
    std::vector<NamedValue> keys;                     // of its object path
    std::vector<NamedValue> properties;               // in the order in which they were set, then the unset ones
    const Value *find(const std::string &name) const; // by name, ignoring case; null if there is none
};

// A property that a class declares. The broker presets it in new instances and checks its type.
struct Property {
    std::string name;
    CMPIType type = CMPI_string;
    bool key = false;
};

// The reply to a request.
struct Reply {
    int rc = 0; // CMPIrc
    std::string message;
    std::vector<Instance> instances; // including those returned before a failure
    std::vector<Value> data;         // method return values
    std::vector<NamedValue> out;     // output arguments of a method
    bool done = false;               // CMReturnDone was called
    bool ok() const { return rc == 0; }
};

// Counts of unreleased objects and of mistakes with objects.
struct Accounting {
    // Unreleased objects that belong to no request: clones, and objects made by the provider's own threads.
    int64_t live = 0;
    // Objects that a request made and did not release. The message of a status and strings inside values belong to the
    // broker and do not count.
    int64_t leakedByRequests = 0;
    int64_t doubleReleases = 0;
    int64_t releasedForeign = 0; // releases of parameters and other objects of the broker
    int64_t useAfterRelease = 0;
    int64_t callsFromCleanup = 0;   // calls with the empty context of a cleanup; they are refused
    int64_t schemaViolations = 0;   // properties that their known class does not declare, or declares with another type
    int64_t returnsAfterDone = 0;   // objects or values returned after returnDone
    std::vector<std::string> notes; // one line per mistake, for the message of a failed test
    bool clean() const
    {
        return live == 0 && leakedByRequests == 0 && doubleReleases == 0 && releasedForeign == 0 &&
               useAfterRelease == 0 && callsFromCleanup == 0 && schemaViolations == 0 && returnsAfterDone == 0;
    }
};

struct Options {
    std::optional<bool> serviceMode = false; // InstalledServiceMode of TAV_GeneralInformation; nullopt: no such class
    std::string nameSpace = "root/TAVKIT/AS";
    bool oldPropertyFilter = false; // the filter of older brokers, which drops keys that are not listed
    int missingPropertyCode = 12;   // code for a missing property: 12, or 6 in older brokers
    bool strictToArray = false;     // as in the real broker, a provider may not release the array of an enumeration
    int ftVersion = 200;            // of the objects' tables; 1 in the real broker
    unsigned brokerVersion = 200;   // 0 in the real broker
};

class Broker;

// One request, for calling a provider's functions directly. It owns the parameters. Objects that its thread makes while
// it exists belong to it (to the latest one, if there are several). It must not outlive its broker.
class Request {
public:
    Request(Broker &broker, const std::string &className, const std::vector<NamedValue> &keys = {},
            const std::string &nameSpace = "");
    ~Request(); // counts the objects that were not released
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;

    const CMPIContext *context() const;
    CMPIResult *result() const;
    CMPIObjectPath *path() const;
    CMPIArgs *in() const;
    CMPIArgs *out() const;
    void setIn(const std::vector<NamedValue> &args);
    // The property list: null-terminated, or null if none was set. An empty list is not the same as none.
    const char **properties() const;
    void setProperties(const std::vector<std::string> &names);
    // The values returned so far, with the function's status. To be called while the request exists.
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

    // The broker handle, as providers get it.
    const CMPIBroker *handle() const;
    // The invocation context of a cleanup, which has no entries.
    const CMPIContext *emptyContext() const;

    // Declares a class. Instances of an undeclared class have only the properties that were set, and no object path.
    void addClass(const std::string &className, const std::vector<Property> &properties);
    // Declares the classes of a schema (MOF: class declarations with keys and base classes). Returns "", or a
    // description of the error.
    std::string addSchema(const std::string &mof);
    // Adds an instance of another provider's class, for getInstance and enumerateInstances by the provider. One of
    // TAV_GeneralInformation replaces the built-in one.
    void addInstance(const Instance &instance);
    void setServiceMode(std::optional<bool> serviceMode);

    // Loads a provider's shared object as the real broker does: with immediate binding and global symbols; each factory
    // is called once per class, in the thread of the class's first request. Returns "", or the reason of a failure.
    // Each request runs in its own thread; several threads may make requests at the same time.
    std::string load(const std::string &sharedObject, const std::string &providerName = "TAVStorageProvider");
    void unload(); // after the running requests, without a cleanup
    bool loaded() const;

    // Requests of a client. getInstance turns success without an instance into "not found" (6). A query that is not
    // supported is not turned into an enumeration.
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

    // Call one cleanup function each, with the empty context. Without a former request the factories run first.
    Reply cleanupInstance(bool terminating);
    Reply cleanupMethod(bool terminating);
    // Unloads an idle provider as the real broker does: instance cleanup and, if it returned 0, method cleanup. Returns
    // true if both did; the shared object is then closed, and the next request loads it again. After a status other
    // than 0 and 50 the cleanups are not called again until it is loaded again. A provider without former requests is
    // closed without cleanup; one that serves a request is not idle.
    bool idle();
    // Stops as the real broker does: both cleanups with terminating set, in two threads at the same time; then the
    // shared object is closed.
    void stop();

    Accounting accounting() const;
    void forgetAccounting();

    // Makes the nth call of a slot from now on (1-based) fail with rc. slot is the name of the function in its table
    // ("newObjectPath", "getKey", "returnInstance", ...); "*" counts the calls of all slots but release, which cannot
    // fail. A slot that returns an object then returns null, also with rc 0; with kNullHandle it returns an object
    // without a handle. Only one failure is armed at a time; 0 disarms.
    static constexpr int kNullHandle = -1;
    void failCall(const std::string &slot, unsigned nth, int rc = CMPI_RC_ERR_FAILED);
    // Whether the call that failCall chose has been made.
    bool failureStruck() const;
    // Number of calls of a slot ("*": of all but release) since the last forgetCalls.
    unsigned calls(const std::string &slot) const;
    void forgetCalls();

private:
    friend class Request;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace broker
