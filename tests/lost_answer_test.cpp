// Connections broken at chosen points by a relay of our own between the
// library and the real server (tests/support/CutProxy).
//
// Lost answers (safe profile): a write whose answer is cut after the server
// ran it answers true and left exactly one row; a write cut before it reached
// the server answers false, left nothing, and the host's retry makes the one
// row. The store reads the outcome back; it never sends a write twice.
//
// Several hosts: a refused login stops at the first host with one line that
// names it, and each call tries that one host once; a host that stops
// answering is left, on a connect and in the middle of a statement, for the
// next one within the timeouts.
#include <ConfigurationControl.h>
#include <cppconn/resultset.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "CDataAccessProvider.h"
#include "CutProxy.h"
#include "DatabaseConnection.h"
#include "StringUtils.h"
#include "TestSupport.h"
#include "private/ConnectionAccess.h"

namespace {

using testing_support::CutProxy;
using Cut = CutProxy::Cut;

const int kTimeout = 2;  // ConnectTimeout and ReadTimeout of this program, seconds

// The relay the store runs through: made, and the store pointed at it,
// before the store is first used; alive until the process ends.
CutProxy& StoreRelay() {
    static CutProxy* relay = [] {
        auto* made = new CutProxy(testing_support::DbHost());
        ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(made->Host()));
        ConfigurationControl::SetReadTimeout(kTimeout);
        ConfigurationControl::SetConnectTimeout(kTimeout);
        return made;
    }();
    return *relay;
}

class LostAnswers : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing_support::Safe()) GTEST_SKIP() << "the exact profile answers true for every write";
        StoreRelay();
        db.Reset({"JDFTICKET", "STATSSUBS"});
    }
    ITicketDataProvider* Tickets() { return CDataAccessProvider::GetInstance()->GetTicketDataProvider(); }
    IStatusSubDataProvider* Subs() { return CDataAccessProvider::GetInstance()->GetStatusSubDataProvider(); }
    // Runs `call` with the next statement containing `marker` cut at `where`.
    template <class Call>
    bool CutDuring(const std::string& marker, Cut where, Call call) {
        StoreRelay().CutNext(marker, where);
        const bool answer = call();
        EXPECT_TRUE(StoreRelay().HasCut()) << "no statement contained " << marker;
        return answer;
    }
    testing_support::Watchdog watchdog{60};
    std::string Ticket(int status) {
        CTicketRecord rec;
        rec.jdf = L"<JDF ID=\"lost\"/>", rec.status = status;
        EXPECT_TRUE(Tickets()->AddTicket(&rec));
        return StringUtils::stringFromwstring(rec.qentryId);
    }
    testing_support::RawDb db;
};

TEST_F(LostAnswers, AddTicket) {
    CTicketRecord rec;
    rec.jdf = L"<JDF ID=\"a\u00fc\"/>", rec.status = 4;
    EXPECT_TRUE(CutDuring("INSERT INTO `JDFTICKET`", Cut::AfterAnswer, [&] { return Tickets()->AddTicket(&rec); }));
    EXPECT_EQ(1, db.Count("JDFTICKET"));
    EXPECT_EQ(1, db.Count("JDFTICKET", "QENTRYID = '" + StringUtils::stringFromwstring(rec.qentryId) + "' AND STATUS = 4"));

    CTicketRecord cut;
    cut.jdf = L"<JDF ID=\"b\"/>", cut.status = 5;
    EXPECT_FALSE(CutDuring("INSERT INTO `JDFTICKET`", Cut::BeforeStatement, [&] { return Tickets()->AddTicket(&cut); }));
    EXPECT_EQ(0, db.Count("JDFTICKET", "STATUS = 5"));
    CTicketRecord retry;
    retry.jdf = cut.jdf, retry.status = cut.status;
    EXPECT_TRUE(Tickets()->AddTicket(&retry));
    EXPECT_EQ(1, db.Count("JDFTICKET", "STATUS = 5"));
}

TEST_F(LostAnswers, StatusUpdate) {
    const std::string key = Ticket(1);
    const std::wstring wkey = StringUtils::wstringFromstring(key);
    EXPECT_TRUE(CutDuring("UPDATE `JDFTICKET`", Cut::AfterAnswer, [&] { return Tickets()->UpdateTicketStatus(wkey, 2); }));
    EXPECT_EQ("2", db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID = '" + key + "'"));
    EXPECT_FALSE(CutDuring("UPDATE `JDFTICKET`", Cut::BeforeStatement, [&] { return Tickets()->UpdateTicketStatus(wkey, 3); }));
    EXPECT_EQ("2", db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID = '" + key + "'"));
    EXPECT_TRUE(Tickets()->UpdateTicketStatus(wkey, 3));  // the retry
    EXPECT_EQ("3", db.Scalar("SELECT STATUS FROM JDFTICKET WHERE QENTRYID = '" + key + "'"));
}

TEST_F(LostAnswers, SubscriptionAdd) {
    StatusSubTableRecord sub;
    sub.URL = L"http://lost/1", sub.QENTRYID = L"7", sub.SENDERID = L"s'1";
    EXPECT_TRUE(CutDuring("INSERT INTO `STATSSUBS`", Cut::AfterAnswer, [&] { return Subs()->AddRecord(&sub); }));
    EXPECT_EQ(1, db.Count("STATSSUBS"));
    EXPECT_EQ(1, db.Count("STATSSUBS", "ID = " + std::to_string(sub.ID) + " AND URL = 'http://lost/1'"));

    StatusSubTableRecord cut;
    cut.URL = L"http://lost/2", cut.QENTRYID = L"7";
    EXPECT_FALSE(CutDuring("INSERT INTO `STATSSUBS`", Cut::BeforeStatement, [&] { return Subs()->AddRecord(&cut); }));
    EXPECT_EQ(0, db.Count("STATSSUBS", "URL = 'http://lost/2'"));
}

TEST_F(LostAnswers, Delete) {
    const std::string gone = Ticket(1), kept = Ticket(1);
    EXPECT_TRUE(CutDuring("DELETE FROM `JDFTICKET`", Cut::AfterAnswer,
                          [&] { return Tickets()->RemoveTicket(StringUtils::wstringFromstring(gone)); }));
    EXPECT_EQ(0, db.Count("JDFTICKET", "QENTRYID = '" + gone + "'"));
    EXPECT_FALSE(CutDuring("DELETE FROM `JDFTICKET`", Cut::BeforeStatement,
                           [&] { return Tickets()->RemoveTicket(StringUtils::wstringFromstring(kept)); }));
    EXPECT_EQ(1, db.Count("JDFTICKET", "QENTRYID = '" + kept + "'"));
}

// ---- several hosts, each a relay to the one private server ----

// Connections made here, like the library's own, are never freed.
CDatabaseConnection* Connect(const std::string& hosts, const std::string& password) {
    static auto* kept = new std::vector<CDatabaseConnection*>;  // a root for the leak check
    kept->push_back(new CDatabaseConnection(hosts, "lumbo27", password));
    return kept->back();
}

std::string Select(CDatabaseConnection& connection, int& error) {
    Statement select;
    select.text = "SELECT CONNECTION_ID()";
    const Outcome outcome = ConnectionAccess::Run(connection, select);
    error = outcome.error;
    return outcome.rows && outcome.rows->next() ? outcome.rows->getString(1) : "";
}

TEST(SeveralHosts, RefusedLoginStopsAtTheFirstHost) {
    testing_support::Watchdog watchdog(60);
    CutProxy a(testing_support::DbHost()), b(testing_support::DbHost()), c(testing_support::DbHost());
    testing_support::LogCapture log;
    CDatabaseConnection& connection = *Connect(a.Host() + "," + b.Host() + "," + c.Host(), "not-the-password");
    const std::wstring refused = L"CDatabaseConnection : " + StringUtils::wstringFromstring(a.Host()) +
                                 L" refused the connection (error 1045); no other host is tried";
    EXPECT_EQ(1u, log.Count(refused));
    int error = 0;
    for (int call = 1; call <= 3; ++call) {
        EXPECT_EQ("", Select(connection, error));
        EXPECT_EQ(-1, error);
    }
    EXPECT_EQ(4u, log.Count(refused));  // the start-up connect and one per call
    EXPECT_EQ(4, a.Accepted());
    EXPECT_EQ(0, b.Accepted() + c.Accepted());
}

TEST(SeveralHosts, AHostThatStopsAnsweringIsLeftForTheNext) {
    testing_support::Watchdog watchdog(60);
    ConfigurationControl::SetReadTimeout(kTimeout);
    ConfigurationControl::SetConnectTimeout(kTimeout);
    CutProxy a(testing_support::DbHost()), b(testing_support::DbHost()), c(testing_support::DbHost());
    using Clock = std::chrono::steady_clock;
    const auto bound = std::chrono::seconds(kTimeout + 2);

    // A connect to a host that holds its sockets open moves on after the connect timeout.
    a.Hold(true);
    Clock::time_point start = Clock::now();
    CDatabaseConnection& connection = *Connect(a.Host() + "," + b.Host() + "," + c.Host(), "lumbo27");
    EXPECT_LT(Clock::now() - start, bound);
    EXPECT_EQ(1, b.Accepted());
    int error = 0;
    EXPECT_NE("", Select(connection, error));

    // A statement in flight on a host that stops answering: false within the
    // read timeout and the connect that follows it (one writer: from the
    // first host, which still holds its sockets, so its connect timeout
    // again; the lost one rests), and the next call runs on the next host.
    b.Hold(true);
    start = Clock::now();
    EXPECT_EQ("", Select(connection, error));
    EXPECT_EQ(2013, error);
    EXPECT_LT(Clock::now() - start, bound + std::chrono::seconds(kTimeout));
    EXPECT_NE("", Select(connection, error));
    EXPECT_EQ(0, error);
    EXPECT_EQ(1, c.Accepted());
    EXPECT_EQ(0, a.Accepted()) << "the held host was tried again";
    EXPECT_EQ(1, b.Accepted());
    a.Hold(false), b.Hold(false);
}

}  // namespace
