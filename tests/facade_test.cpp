// The facade: one lazily created instance handing out six fixed providers
// that share the one store.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "CDataAccessProvider.h"
#include "CDatabaseFactory.h"
#include "CJobSenderDataProvider.h"
#include "TestSupport.h"

// The first call creates the one instance, the second builds (and logs) nothing; every getter returns its fixed,
// distinct provider; the store-based ones hold the one store; the providers work against the real server.
TEST(FacadeTest, OneInstanceSixProvidersOneStore) {
    testing_support::RawDb().Reset({"DEVICE", "SERVER"});  // no device may hold the new server
    ASSERT_EQ(CDataAccessProvider::onlyObjectP, nullptr);
    CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
    ASSERT_TRUE(facade != nullptr && CDataAccessProvider::onlyObjectP == facade);
    testing_support::LogCapture log;
    EXPECT_TRUE(CDataAccessProvider::GetInstance() == facade && log.Lines().empty());

    auto all = [facade] {
        return std::vector<const void*>{facade->GetTicketDataProvider(),    facade->GetDeviceDataProvider(),
                                        facade->GetStatusSubDataProvider(), facade->GetContentDataProvider(),
                                        facade->GetServerDataProvider(),    facade->GetJobSenderDataProvider()};
    };
    const std::vector<const void*> providers = all();
    EXPECT_EQ(all(), providers);
    const std::set<const void*> distinct(providers.begin(), providers.end());
    EXPECT_TRUE(distinct.size() == 6u && distinct.count(nullptr) == 0);
    EXPECT_NE(dynamic_cast<CJobSenderDataProvider*>(facade->GetJobSenderDataProvider()), nullptr);

    dl_MainInterface* store = CDatabaseFactory::GetDatabaseInterface();
    EXPECT_EQ(store, CMysqlDatabaseInterface::mDatabaseInterfaceP);
    for (int i = 0; i < 5; ++i)  // a store-based provider's first field lies just behind its vtable pointer
        EXPECT_EQ(*reinterpret_cast<dl_MainInterface* const*>(static_cast<const char*>(providers[i]) + sizeof(void*)), store) << i;

    ServerTableRecord server{-1, L"facade-host", L"", -1, L"", L"", L"", L"", -1}, back;
    ASSERT_TRUE(facade->GetServerDataProvider()->AddServer(&server));
    EXPECT_TRUE(facade->GetServerDataProvider()->GetServerRecord(server.SERVERID, &back) && back.COMPNAME == L"facade-host");
    EXPECT_TRUE(facade->GetServerDataProvider()->DeleteServer(server.SERVERID));
    EXPECT_EQ(testing_support::RawDb().Count("SERVER", "SERVERID=" + std::to_string(server.SERVERID)), 0);
}
