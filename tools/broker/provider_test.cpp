// SPDX-License-Identifier: Apache-2.0
// Loading, factories, requests in their own threads, cleanup: with the small provider of testing/.

#include "broker/testing/fake_provider.h"
#include "support/broker_fixture.h"

#include <dlfcn.h>
#include <thread>

namespace broker {

namespace {

class LoadedProvider : public ::testing::Test {
protected:
    LoadedProvider()
    {
        broker.addClass("Fake_Good", {{"Index", CMPI_string, true}, {"Number", CMPI_uint16}});
        const std::string error = broker.load(FAKE_PROVIDER, "FakeProvider");
        EXPECT_EQ(error, "");
        use();
    }
    ~LoadedProvider() override { broker.stop(); }
    // The provider's state is lost when it is unloaded.
    void use()
    {
        const auto function = reinterpret_cast<FakeProviderUse>(dlsym(RTLD_DEFAULT, "useFakeProvider"));
        ASSERT_NE(function, nullptr);
        function(&fake);
    }

    FakeProvider fake;
    Broker broker;
};

} // namespace

TEST(Loading, FailureIsExplained)
{
    Broker broker;
    EXPECT_NE(broker.load("/no/such/provider.so"), "");
    EXPECT_FALSE(broker.loaded());
    EXPECT_NE(broker.load(FAKE_PROVIDER, "OtherProvider").find("no factories of OtherProvider"), std::string::npos);
    EXPECT_FALSE(broker.loaded());
    const Reply reply = broker.getInstance("Fake_Good");
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(reply.message, "no provider is loaded");
}

TEST_F(LoadedProvider, SymbolsAreGlobal)
{
    EXPECT_TRUE(broker.loaded());
    EXPECT_NE(dlsym(RTLD_DEFAULT, "FakeProvider_Create_InstanceMI"), nullptr);
    EXPECT_NE(broker.load(FAKE_PROVIDER, "FakeProvider"), "");
}

TEST_F(LoadedProvider, FactoriesRunInTheFirstRequestOfAClass)
{
    EXPECT_EQ(fake.instanceFactories, 0);
    broker.getInstance("Fake_Good");
    EXPECT_EQ(fake.instanceFactories, 1);
    EXPECT_EQ(fake.methodFactories, 1);
    EXPECT_EQ(fake.factoryThread.load(), fake.requestThread.load());
    EXPECT_NE(fake.requestThread.load(), std::this_thread::get_id());
    broker.getInstance("FAKE_GOOD");
    EXPECT_EQ(fake.instanceFactories, 1);
    broker.getInstance("Fake_Nothing");
    EXPECT_EQ(fake.instanceFactories, 2);
    EXPECT_EQ(fake.methodFactories, 2);
}

TEST_F(LoadedProvider, FailedFactoryIsRefused)
{
    fake.factoryAnswer = CMPI_RC_ERR_FAILED;
    EXPECT_EQ(broker.getInstance("Fake_Good").rc, CMPI_RC_ERR_FAILED);
    fake.factoryAnswer = CMPI_RC_OK;
    EXPECT_TRUE(broker.getInstance("Fake_Good").ok());
}

TEST_F(LoadedProvider, AnswersRequests)
{
    const Reply got = broker.getInstance("Fake_Good", {{"Index", Value::text("1")}});
    ASSERT_TRUE(got.ok());
    EXPECT_TRUE(got.done);
    ASSERT_EQ(got.instances.size(), 1u);
    EXPECT_EQ(got.instances[0].className, "Fake_Good");
    EXPECT_EQ(got.instances[0].find("Number")->toString(), "7");
    EXPECT_EQ(broker.enumInstances("Fake_Good").instances.size(), 1u);
    const Reply names = broker.enumInstanceNames("Fake_Good");
    ASSERT_EQ(names.instances.size(), 1u);
    EXPECT_EQ(names.instances[0].className, "Fake_Good");
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(LoadedProvider, PropertyListIsPassedOn)
{
    const std::vector<std::string> none;
    EXPECT_EQ(broker.getInstance("Fake_Good", {}, none).instances.at(0).find("Number"), nullptr);
    EXPECT_NE(broker.getInstance("Fake_Good").instances.at(0).find("Number"), nullptr);
}

TEST_F(LoadedProvider, SuccessWithoutInstanceIsNotFound)
{
    EXPECT_EQ(broker.getInstance("Fake_Nothing").rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(broker.enumInstances("Fake_Nothing").rc, CMPI_RC_OK);
}

TEST_F(LoadedProvider, StatusAndMessageAreReturned)
{
    const Reply reply = broker.getInstance("Fake_Failure");
    EXPECT_EQ(reply.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(reply.message, "no such thing");
    EXPECT_EQ(broker.createInstance("Fake_Good").message, "create");
    EXPECT_EQ(broker.modifyInstance("Fake_Good").message, "modify");
    EXPECT_EQ(broker.deleteInstance("Fake_Good").message, "delete");
    EXPECT_EQ(broker.execQuery("Fake_Good", "select").message, "select");
    EXPECT_EQ(broker.execQuery("Fake_Good", "select").rc, CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(LoadedProvider, MethodReturnsArgumentsAndValue)
{
    const Reply reply = broker.invokeMethod("Fake_Good", "Echo", {{"Text", Value::text("hello")}});
    ASSERT_TRUE(reply.ok());
    ASSERT_EQ(reply.data.size(), 1u);
    EXPECT_EQ(reply.data[0].toString(), "Echo");
    ASSERT_EQ(reply.out.size(), 1u);
    EXPECT_EQ(reply.out[0].value.toString(), "hello");
    EXPECT_TRUE(broker.invokeMethod("Fake_Good", "Echo").out.empty());
    EXPECT_TRUE(broker.accounting().clean());
}

// A path, and a message without a status.
TEST_F(LoadedProvider, LeaksAreCounted)
{
    EXPECT_EQ(broker.getInstance("Fake_Leak").message, "seen");
    EXPECT_EQ(broker.accounting().leakedByRequests, 2);
}

TEST_F(LoadedProvider, RequestsOverlap)
{
    std::thread one([&] { broker.getInstance("Fake_Meeting"); });
    std::thread two([&] { broker.getInstance("Fake_Meeting"); });
    one.join();
    two.join();
    EXPECT_TRUE(fake.overlapped);
}

TEST_F(LoadedProvider, ManyClientsAreServedAtOnce)
{
    std::vector<std::thread> clients;
    std::atomic<int> good{0};
    for (int i = 0; i < 8; ++i) {
        clients.emplace_back([&] {
            for (int n = 0; n < 20; ++n) {
                good += broker.getInstance("Fake_Good").ok() ? 1 : 0;
                good += broker.invokeMethod("Fake_Good", "Echo", {{"Text", Value::text("x")}}).ok() ? 1 : 0;
            }
        });
    }
    for (std::thread &client : clients) {
        client.join();
    }
    EXPECT_EQ(good, 8 * 20 * 2);
    EXPECT_EQ(fake.instanceFactories, 1);
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(LoadedProvider, IdleCleansUpBothSidesAndCloses)
{
    broker.getInstance("Fake_Good");
    EXPECT_TRUE(broker.idle());
    EXPECT_EQ(fake.instanceCleanups, 1);
    EXPECT_EQ(fake.methodCleanups, 1);
    EXPECT_EQ(fake.terminatingCleanups, 0);
    EXPECT_FALSE(broker.loaded());
    EXPECT_FALSE(broker.idle());
    // The next request loads the provider again.
    EXPECT_TRUE(broker.getInstance("Fake_Good").ok());
    EXPECT_TRUE(broker.loaded());
    use();
}

TEST_F(LoadedProvider, RefusedIdleCleanupIsRepeated)
{
    broker.getInstance("Fake_Good");
    fake.instanceCleanupAnswer = CMPI_RC_DO_NOT_UNLOAD;
    EXPECT_FALSE(broker.idle());
    EXPECT_FALSE(broker.idle());
    EXPECT_EQ(fake.instanceCleanups, 2);
    EXPECT_EQ(fake.methodCleanups, 0);
    EXPECT_TRUE(broker.loaded());
    fake.instanceCleanupAnswer = CMPI_RC_OK;
    fake.methodCleanupAnswer = CMPI_RC_DO_NOT_UNLOAD;
    EXPECT_FALSE(broker.idle());
    EXPECT_EQ(fake.methodCleanups, 1);
    EXPECT_TRUE(broker.loaded());
}

TEST_F(LoadedProvider, FailedIdleCleanupIsNotRepeated)
{
    broker.getInstance("Fake_Good");
    fake.instanceCleanupAnswer = CMPI_RC_ERR_FAILED;
    EXPECT_FALSE(broker.idle());
    fake.instanceCleanupAnswer = CMPI_RC_OK;
    EXPECT_FALSE(broker.idle());
    EXPECT_EQ(fake.instanceCleanups, 1);
    EXPECT_TRUE(broker.loaded());
}

TEST_F(LoadedProvider, IdleWithoutRequestsClosesWithoutCleanup)
{
    EXPECT_TRUE(broker.idle());
    EXPECT_EQ(fake.instanceFactories, 0);
    EXPECT_EQ(fake.instanceCleanups, 0);
}

TEST_F(LoadedProvider, ServingProviderIsNotIdle)
{
    std::thread client([&] { broker.getInstance("Fake_Meeting"); });
    while (fake.inside == 0) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(broker.idle());
    EXPECT_EQ(fake.instanceCleanups, 0);
    ++fake.inside; // lets the request continue
    client.join();
    EXPECT_TRUE(broker.idle());
}

TEST_F(LoadedProvider, StopRunsBothCleanupsInTwoThreads)
{
    broker.getInstance("Fake_Good");
    fake.cleanupWaitsForAnother = true;
    broker.stop();
    EXPECT_EQ(fake.instanceCleanups, 2);
    EXPECT_EQ(fake.methodCleanups, 2);
    EXPECT_EQ(fake.terminatingCleanups, 4);
    EXPECT_TRUE(fake.cleanupsMet);
    EXPECT_FALSE(broker.loaded());
    EXPECT_EQ(broker.getInstance("Fake_Good").rc, CMPI_RC_ERR_FAILED);
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(LoadedProvider, CleanupsCanBeCalledOneByOne)
{
    fake.instanceCleanupAnswer = CMPI_RC_DO_NOT_UNLOAD;
    const Reply reply = broker.cleanupInstance(false);
    EXPECT_EQ(reply.rc, CMPI_RC_DO_NOT_UNLOAD);
    EXPECT_EQ(reply.message, "cleaned");
    EXPECT_EQ(fake.instanceFactories, 1);
    EXPECT_EQ(broker.cleanupMethod(true).rc, CMPI_RC_OK);
    EXPECT_EQ(fake.terminatingCleanups, 1);
    EXPECT_TRUE(broker.loaded());
    EXPECT_TRUE(broker.accounting().clean());
}

TEST_F(LoadedProvider, CleanupThatCallsTheBrokerIsCounted)
{
    fake.cleanupCallsBroker = true;
    broker.cleanupInstance(false);
    EXPECT_EQ(broker.accounting().callsFromCleanup, 1);
    fake.cleanupCallsBroker = false;
}

TEST_F(LoadedProvider, UnloadRunsNoCleanup)
{
    broker.getInstance("Fake_Good");
    broker.unload();
    EXPECT_FALSE(broker.loaded());
    EXPECT_EQ(fake.instanceCleanups, 0);
    EXPECT_EQ(broker.load(FAKE_PROVIDER, "FakeProvider"), "");
    use();
}

} // namespace broker
