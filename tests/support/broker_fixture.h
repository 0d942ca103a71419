// SPDX-License-Identifier: Apache-2.0
// Common parts of the broker's tests.
#pragma once

#include "broker/broker.h"

#include <gtest/gtest.h>

namespace broker {

inline std::string textOf(const CMPIString *string)
{
    return string == nullptr || string->hdl == nullptr ? "" : static_cast<const char *>(string->hdl);
}

inline const CMPIValue *asValue(const void *value)
{
    return static_cast<const CMPIValue *>(value);
}

// A broker, and helpers for calls in this thread.
class BrokerTest : public ::testing::Test {
protected:
    CMPIObjectPath *newPath(const char *className = "TAV_Thing", const char *nameSpace = "root/TAVKIT/AS")
    {
        return broker.handle()->eft->newObjectPath(broker.handle(), nameSpace, className, &status);
    }
    CMPIInstance *newInstance(CMPIObjectPath *path)
    {
        return broker.handle()->eft->newInstance(broker.handle(), path, &status);
    }
    void addThing()
    {
        broker.addClass("TAV_Thing", {{"Index", CMPI_string, true}, {"Number", CMPI_uint16}, {"Text", CMPI_string}});
    }
    template <class Object> void release(Object *object) { EXPECT_EQ(object->ft->release(object).rc, CMPI_RC_OK); }

    Broker broker;
    CMPIStatus status{};
};

} // namespace broker
