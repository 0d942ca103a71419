// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/ask.h"

#include "tavstrg/catalogue.h"
#include "tavstrg/failure.h"
#include "tavstrg/saved_state.h"

#include "classes/disk_properties.h"

namespace tool {
namespace {

// The provider does not tell a class that is switched off from one that does not exist.
std::string hint(const std::string &className, const std::string &message)
{
    const bool off = className == tavstrg::kDiskClass && message == "Generic Failure!!";
    return off ? ": this class needs the line every-disk in options.inf" : "";
}

void failUnlessOk(const std::string &className, const broker::Reply &reply)
{
    if (!reply.ok()) {
        throw Failure(failureText(className, reply.rc, reply.message) + hint(className, reply.message), reply.rc);
    }
}

} // namespace

std::string failureText(const std::string &target, int status, const std::string &message)
{
    return target + ": " + (message.empty() ? "failed" : message) + " (status " + std::to_string(status) + ")";
}

int statusOf(const broker::Reply &reply)
{
    if (!reply.ok() || reply.data.empty()) {
        return reply.rc;
    }
    const auto *value = std::get_if<uint64_t>(&reply.data.front().data);
    return value == nullptr ? 0 : static_cast<int>(*value);
}

std::vector<broker::Instance> askAll(broker::Broker &broker, const std::string &className)
{
    broker::Reply reply = broker.enumInstances(className);
    failUnlessOk(className, reply);
    return std::move(reply.instances);
}

broker::Instance askOne(broker::Broker &broker, const std::string &className, const std::string *key)
{
    std::vector<broker::NamedValue> keys;
    if (key != nullptr) {
        const ClassEntry *const known = findClass(className);
        const std::string name = known != nullptr && known->keyed() ? known->keyName() : "Index";
        keys.push_back({name, broker::Value::text(*key)});
    }
    broker::Reply reply = broker.getInstance(className, keys);
    failUnlessOk(className, reply);
    if (reply.instances.empty()) {
        throw Failure(className + ": no instance was returned");
    }
    return std::move(reply.instances.front());
}

Answers askInventory(Session &session)
{
    askAll(session.broker(), "TAV_StorageTotalNumber");
    Answers answers;
    answers["TAV_StorageThread"] = askAll(session.broker(), "TAV_StorageThread"); // read live, never saved
    const std::string file = session.surroundings().stateFile();
    SavedState state = parseSavedState(readStateFile(file));
    if (!state.damage.empty()) {
        throw Failure(file + ": " + state.damage);
    }
    for (StateBlock &block : state.blocks) {
        answers[block.className] = std::move(block.records);
    }
    return answers;
}

Answers askPublished(broker::Broker &broker)
{
    Answers answers;
    for (const std::string &className : inventoryClasses()) {
        broker::Reply reply = broker.enumInstances(className);
        if (reply.rc == CMPI_RC_ERR_NOT_FOUND) {
            continue;
        }
        failUnlessOk(className, reply);
        answers[className] = std::move(reply.instances);
    }
    return answers;
}

} // namespace tool
