// SPDX-License-Identifier: Apache-2.0
// Ownership of objects, and the counts of mistakes.

#include "support/broker_fixture.h"

#include <algorithm>
#include <thread>

#if defined(__SANITIZE_ADDRESS__)
#define BROKER_TEST_SEES_ADDRESSES
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BROKER_TEST_SEES_ADDRESSES
#endif
#endif

namespace broker {

namespace {

class Accounts : public BrokerTest {
protected:
    Accounting account() const { return broker.accounting(); }
};

// Runs in another thread, which belongs to no request, and waits for it.
template <class Work> void inThread(const Work &work)
{
    std::thread(work).join();
}

} // namespace

TEST_F(Accounts, RequestThatReleasesEverythingIsClean)
{
    {
        const Request request(broker, "TAV_Thing");
        CMPIObjectPath *const path = newPath();
        CMPIInstance *const instance = newInstance(path);
        CMPIString *const name = path->ft->getClassName(path, nullptr);
        release(name);
        release(instance);
        release(path);
    }
    EXPECT_TRUE(account().clean());
    EXPECT_TRUE(account().notes.empty());
}

TEST_F(Accounts, UnreleasedObjectIsALeak)
{
    {
        const Request request(broker, "TAV_Thing");
        CMPIObjectPath *const path = newPath();
        newInstance(path);
        path->ft->getNameSpace(path, nullptr);
        EXPECT_EQ(account().leakedByRequests, 0);
    }
    EXPECT_EQ(account().leakedByRequests, 3);
    EXPECT_EQ(account().live, 0);
    EXPECT_FALSE(account().clean());
    const std::vector<std::string> notes = account().notes;
    EXPECT_TRUE(std::any_of(notes.begin(), notes.end(), [](const std::string &note) {
        return note == "not released by its request: CMPIObjectPath of newObjectPath [root/TAVKIT/AS:TAV_Thing]";
    }));
}

TEST_F(Accounts, StringInsideAValueIsTheBrokers)
{
    {
        const Request request(broker, "TAV_Thing", {{"Index", Value::text("1")}});
        CMPIString *name = nullptr;
        request.path()->ft->getKey(request.path(), "Index", nullptr);
        request.path()->ft->getKeyAt(request.path(), 0, &name, nullptr);
        request.context()->ft->getEntry(request.context(), CMPIPrincipal, nullptr);
    }
    EXPECT_TRUE(account().clean());
}

TEST_F(Accounts, MessageOfAStatusIsTheBrokers)
{
    {
        const Request request(broker, "TAV_Thing");
        const CMPIStatus given{CMPI_RC_ERR_FAILED, broker.handle()->eft->newString(broker.handle(), "why", nullptr)};
        const Reply reply = request.reply(given);
        EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(reply.message, "why");
    }
    EXPECT_TRUE(account().clean());
}

TEST_F(Accounts, ReleasedMessageIsUseAfterRelease)
{
    {
        const Request request(broker, "TAV_Thing");
        CMPIString *const message = broker.handle()->eft->newString(broker.handle(), "why", nullptr);
        release(message);
        EXPECT_EQ(request.reply({CMPI_RC_ERR_FAILED, message}).message, "");
    }
    EXPECT_EQ(account().useAfterRelease, 1);
}

TEST_F(Accounts, SecondReleaseIsCountedAndFails)
{
    const Request request(broker, "TAV_Thing");
    CMPIObjectPath *const path = newPath();
    release(path);
    EXPECT_EQ(path->ft->release(path).rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(account().doubleReleases, 1);
    EXPECT_FALSE(account().clean());
}

TEST_F(Accounts, ReleaseAfterTheRequestIsASecondRelease)
{
    CMPIObjectPath *path = nullptr;
    {
        const Request request(broker, "TAV_Thing");
        path = newPath();
    }
    path->ft->release(path);
    EXPECT_EQ(account().doubleReleases, 1);
}

TEST_F(Accounts, UseAfterReleaseIsCountedAndRefused)
{
    const Request request(broker, "TAV_Thing");
    CMPIObjectPath *const path = newPath();
    CMPIInstance *const instance = newInstance(path);
    release(path);
    path->ft->getKey(path, "Index", &status);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(newInstance(path), nullptr);
    release(instance);
    EXPECT_NE(request.result()->ft->returnInstance(request.result(), instance).rc, CMPI_RC_OK);
    EXPECT_EQ(account().useAfterRelease, 3);
}

// The text of a string is read without a call, so the read cannot be counted; it must still be noticed.
TEST_F(Accounts, TextOfAReleasedStringIsOverwritten)
{
    const Request request(broker, "TAV_Thing");
    CMPIString *const name = request.path()->ft->getClassName(request.path(), nullptr);
    release(name);
    const auto read = [&] { return textOf(name); };
#ifdef BROKER_TEST_SEES_ADDRESSES
    EXPECT_DEATH(read(), "use-after-poison");
#else
    EXPECT_EQ(read(), "?????????");
#endif
}

TEST_F(Accounts, ReleaseOfAParameterIsCountedAndFails)
{
    const Request request(broker, "TAV_Thing", {{"Index", Value::text("1")}});
    EXPECT_EQ(request.path()->ft->release(request.path()).rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(request.in()->ft->release(request.in()).rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(account().releasedForeign, 2);
    request.path()->ft->getKey(request.path(), "Index", &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
}

TEST_F(Accounts, ContextAfterItsRequestIsUseAfterRelease)
{
    const CMPIContext *context = nullptr;
    {
        const Request request(broker, "TAV_Thing");
        context = request.context();
    }
    EXPECT_EQ(broker.handle()->bft->prepareAttachThread(broker.handle(), context), nullptr);
    EXPECT_EQ(account().useAfterRelease, 1);
}

TEST_F(Accounts, CloneOutlivesTheRequest)
{
    CMPIObjectPath *clone = nullptr;
    {
        const Request request(broker, "TAV_Thing", {{"Index", Value::text("1")}});
        clone = request.path()->ft->clone(request.path(), &status);
    }
    EXPECT_EQ(account().leakedByRequests, 0);
    EXPECT_EQ(account().live, 1);
    EXPECT_EQ(clone->ft->getKeyCount(clone, nullptr), 1u);
    release(clone);
    EXPECT_TRUE(account().clean());
}

TEST_F(Accounts, ObjectOfAProvidersThreadLivesUntilReleased)
{
    CMPIObjectPath *path = nullptr;
    const Request request(broker, "TAV_Thing");
    inThread([&] { path = broker.handle()->eft->newObjectPath(broker.handle(), "root", "TAV_Thing", nullptr); });
    EXPECT_EQ(account().live, 1);
    inThread([&] { path->ft->release(path); });
    EXPECT_TRUE(account().clean());
}

TEST_F(Accounts, ObjectBelongsToTheThreadsLatestRequest)
{
    const Request outer(broker, "TAV_Thing");
    CMPIObjectPath *ofOuter = newPath();
    {
        const Request inner(broker, "TAV_Thing");
        newPath();
    }
    EXPECT_EQ(account().leakedByRequests, 1);
    ofOuter->ft->getKeyCount(ofOuter, &status);
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    release(ofOuter);
}

TEST_F(Accounts, CallWithTheContextOfACleanupIsRefused)
{
    const CMPIBroker *const handle = broker.handle();
    const Request request(broker, "TAV_Thing");
    CMPIObjectPath *const path = newPath("TAV_GeneralInformation");
    EXPECT_EQ(handle->bft->getInstance(handle, broker.emptyContext(), path, nullptr, &status), nullptr);
    EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(handle->bft->prepareAttachThread(handle, broker.emptyContext()), nullptr);
    EXPECT_EQ(account().callsFromCleanup, 2);
    release(path);
}

TEST_F(Accounts, ReturnAfterDoneIsCounted)
{
    const Request request(broker, "TAV_Thing");
    const CMPIUint32 code = 0;
    CMPIResult *const result = request.result();
    EXPECT_EQ(result->ft->returnData(result, asValue(&code), CMPI_uint32).rc, CMPI_RC_OK);
    EXPECT_FALSE(request.reply({}).done);
    result->ft->returnDone(result);
    EXPECT_TRUE(request.reply({}).done);
    EXPECT_EQ(account().returnsAfterDone, 0);
    result->ft->returnData(result, asValue(&code), CMPI_uint32);
    EXPECT_EQ(account().returnsAfterDone, 1);
    EXPECT_EQ(request.reply({}).data.size(), 2u);
}

TEST_F(Accounts, ForgettingResetsTheCounts)
{
    const Request request(broker, "TAV_Thing");
    CMPIObjectPath *const clone = request.path()->ft->clone(request.path(), nullptr);
    CMPIObjectPath *const path = newPath();
    release(path);
    path->ft->release(path);
    EXPECT_FALSE(account().clean());
    broker.forgetAccounting();
    EXPECT_TRUE(account().clean());
    EXPECT_TRUE(account().notes.empty());
    release(clone);
    EXPECT_TRUE(account().clean());
}

// Many more objects than the quarantine keeps.
TEST_F(Accounts, LongRunsStayClean)
{
    for (int i = 0; i < 30000; ++i) {
        const Request request(broker, "TAV_Thing");
        CMPIObjectPath *const path = newPath();
        release(path);
    }
    EXPECT_TRUE(account().clean());
}

} // namespace broker
