// The facade: one lazily created instance handing out six fixed providers
// that share the one store.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <vector>

#include "CDataAccessProvider.h"
#include "CDatabaseFactory.h"
#include "CJobSenderDataProvider.h"
#include "TestSupport.h"

namespace {

// A store-based provider's first field, just behind its interface's vtable pointer.
dl_MainInterface* StoreOf(const void* provider) {
    return *reinterpret_cast<dl_MainInterface* const*>(static_cast<const char*>(provider) + sizeof(void*));
}

}  // namespace

TEST(FacadeTest, OneInstanceSixProvidersOneStore) {
    std::remove("./QueryURL");
    ASSERT_EQ(CDataAccessProvider::onlyObjectP, nullptr);
    CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
    ASSERT_NE(facade, nullptr);
    EXPECT_EQ(CDataAccessProvider::onlyObjectP, facade);
    {
        testing_support::LogCapture log;  // the second call builds nothing, so logs nothing
        EXPECT_EQ(CDataAccessProvider::GetInstance(), facade);
        EXPECT_TRUE(log.Lines().empty());
    }

    auto all = [facade] {
        return std::vector<const void*>{facade->GetTicketDataProvider(),    facade->GetDeviceDataProvider(),
                                        facade->GetStatusSubDataProvider(), facade->GetContentDataProvider(),
                                        facade->GetServerDataProvider(),    facade->GetJobSenderDataProvider()};
    };
    const std::vector<const void*> providers = all();
    EXPECT_EQ(all(), providers);
    const std::set<const void*> distinct(providers.begin(), providers.end());
    EXPECT_EQ(distinct.count(nullptr), 0u);
    EXPECT_EQ(distinct.size(), 6u);
    EXPECT_NE(dynamic_cast<CJobSenderDataProvider*>(facade->GetJobSenderDataProvider()), nullptr);

    dl_MainInterface* store = CDatabaseFactory::GetDatabaseInterface();
    EXPECT_EQ(store, CMysqlDatabaseInterface::mDatabaseInterfaceP);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(StoreOf(providers[i]), store) << "provider " << i;

    // The providers handed out work against the real server.
    ServerTableRecord server;
    server.COMPNAME = L"facade-host";
    ASSERT_TRUE(facade->GetServerDataProvider()->AddServer(&server));
    ServerTableRecord back;
    EXPECT_TRUE(facade->GetServerDataProvider()->GetServerRecord(server.SERVERID, &back));
    EXPECT_EQ(back.COMPNAME, L"facade-host");
    EXPECT_TRUE(facade->GetServerDataProvider()->DeleteServer(server.SERVERID));
    EXPECT_EQ(testing_support::RawDb().Count("SERVER", "SERVERID=" + std::to_string(server.SERVERID)), 0);
}
