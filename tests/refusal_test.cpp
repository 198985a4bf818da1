// A configuration value the store cannot understand (here a misspelt
// Profile) makes it refuse to run: nothing is sent to the server, every operation
// answers false (or writes no identifier, or no record), nothing reaches the
// database, and an error-level line names the value at start-up and again
// for each refused operation.
#include <ConfigurationControl.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "CDataAccessProvider.h"
#include "CMysqlDatabaseInterface.h"
#include "ITicketDataProvider.h"
#include "TicketTableRecord.h"
#include "TestSupport.h"
#include "dl_MultiValue.h"

namespace {

const wchar_t* const kRefusal =
    L"CMysqlDatabaseInterface : the store refuses to run: Profile = \"saef\" cannot be understood: exact or safe";

// Every line the logger writes at the error level (1), whatever the threshold.
class ErrorLines {
public:
    ErrorLines() {
        Logger::Initialise()->SetLevel(5);
        Logger::Initialise()->SetSink([this](LOG_CONST level, const std::wstring& line) {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (level == LOG_LEVEL_1) m_lines.push_back(line);
        });
    }
    ~ErrorLines() { Logger::Initialise()->SetSink(nullptr); }
    size_t Count(const std::wstring& line) {
        std::lock_guard<std::mutex> lock(m_mutex);
        size_t n = 0;
        for (const auto& l : m_lines) n += l == line;
        return n;
    }

private:
    std::mutex m_mutex;
    std::vector<std::wstring> m_lines;
};

TEST(Refusal, AMisspeltProfileWritesNothingAndAnswersFalse) {
    testing_support::RawDb db;
    db.Reset({"JDFTICKET"});
    db.Exec("INSERT INTO JDFTICKET(QENTRYID, STATUSMSG) VALUES('Q1', 'kept')");
    ConfigurationControl::SetProfile("saef");

    ErrorLines errors;
    CMysqlDatabaseInterface* store = CMysqlDatabaseInterface::GetInstance();
    EXPECT_EQ(1u, errors.Count(kRefusal));  // at start-up

    const int status = 3;
    int read = 42;
    wchar_t id[33] = L"";
    EXPECT_FALSE(store->AddNewTicket(TICKET_JDFTICKET, L"Q2", PARAM_WSTRING));
    EXPECT_FALSE(store->AddParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATUS", &status, PARAM_INT));
    EXPECT_FALSE(store->DeleteParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATUSMSG", PARAM_WSTRING));
    EXPECT_FALSE(store->DeleteTicket(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING));
    EXPECT_FALSE(store->GetParameter(TICKET_JDFTICKET, L"Q1", PARAM_WSTRING, "JDFTICKET.STATUS", &read, PARAM_INT));
    store->GenerateNewID(TICKET_JDFTICKET, id, PARAM_WSTRING);
    EXPECT_EQ(std::wstring(), id);
    dl_MultiValue query;
    query.InsertKeys(1, "JDFTICKET.QENTRYID");
    query.InsertTickettype(1, TICKET_JDFTICKET);
    store->ExecuteQuery(&query);
    EXPECT_EQ(0, query.GetRecordCount());
    EXPECT_EQ(8u, errors.Count(kRefusal));  // and once for each refused operation
    EXPECT_EQ(42, read);

    // The providers answer false too.
    ITicketDataProvider* tickets = CDataAccessProvider::GetInstance()->GetTicketDataProvider();
    TicketTableRecord record;
    record.statusMsg = L"new";
    EXPECT_FALSE(tickets->AddTicket(&record));
    EXPECT_FALSE(tickets->UpdateTicketStatusMsg(L"' OR 1=1 #", L"pwned"));
    EXPECT_FALSE(tickets->GetTicketStatus(L"Q1", read));

    EXPECT_EQ("Q1|kept|<null>", db.Scalar("SELECT CONCAT_WS('|', QENTRYID, STATUSMSG, IFNULL(STATUS, '<null>')) "
                                          "FROM JDFTICKET"));
    EXPECT_EQ(1, db.Count("JDFTICKET"));
    EXPECT_EQ("0", db.Scalar("SELECT JDFTICKET FROM MAXID"));
}

}  // namespace
