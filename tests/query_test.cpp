// Typed values, conditions, the multi-value query object, and multi-record
// queries run against the private server.
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>

#include "CMysqlDatabaseInterface.h"
#include "CondList.h"
#include "TestSupport.h"
#include "TimeStamp.h"
#include "Tuplist.h"
#include "dl_MultiValue.h"

using testing_support::ByProfile;
using testing_support::LogCapture;
using testing_support::RawDb;

namespace {

std::wstring Text(const TupElement& element) { return static_cast<const wchar_t*>(element.value); }

TEST(ValueTypes, CopiesAreDeepAndFollowTheStorageTable) {
    TimeStamp stamp(7), last(7);
    last.zone = 8;  // only the last component differs
    EXPECT_TRUE(stamp == TimeStamp(7) && stamp != TimeStamp(0) && stamp != last && !(stamp == last));
    EXPECT_EQ(7, stamp.fraction);

    TupElement empty, time, text, assigned, fiveArray;
    EXPECT_TRUE(empty.type == PARAM_NO_VALUE && empty.value == nullptr && empty.name == nullptr);
    time.InsertTupValue(PARAM_TIMESTAMP, "SUBTIME", &stamp);
    TupElement timeCopy(time);
    EXPECT_NE(time.value, timeCopy.value);
    EXPECT_TRUE(*static_cast<TimeStamp*>(timeCopy.value) == stamp);
    text.InsertTupValue(PARAM_WSTRING, "QENTRYID", L"abc");
    assigned = text;  // onto an empty element
    EXPECT_STREQ("QENTRYID", assigned.name);
    EXPECT_NE(text.value, assigned.value);
    EXPECT_EQ(L"abc", Text(assigned));
    int five = 5;  // tag 5 is released as an array, so it is allocated as one
    fiveArray.InsertTupValue(PARAM_INT_5, "X", &five);
    EXPECT_EQ(5, *static_cast<int*>(TupElement(fiveArray).value));

    char column[] = "CONTENT.QENTRYID";
    CondList list;
    list.push_back(COND_COLUMN, column);
    list.push_back(COND_VALUE, &text);
    column[0] = 'X';  // the caller's buffer changes, the token does not
    EXPECT_STREQ("CONTENT.QENTRYID", static_cast<char*>(list.m_conditions.front()->value));
    auto* held = static_cast<TupElement*>(list.m_conditions.back()->value);
    EXPECT_NE(&text, held);
    EXPECT_EQ(L"abc", Text(*held));
    // Copies of a condition list carry nothing, deliberately.
    CondList copied(list), target;
    target = list;
    EXPECT_TRUE(copied.m_conditions.empty() && target.m_conditions.empty());
}

TEST(MultiValue, KeysTablesAndTheSingleTableTrap) {
    dl_MultiValue query;
    query.InsertKeys(2, "A.X", "A.Y");
    query.InsertKeys(1, "JDFTICKET.STATUS");  // replaces the earlier keys
    ASSERT_EQ(1u, query.m_keys.size());
    EXPECT_STREQ("JDFTICKET.STATUS", query.m_keys.front());
    query.InsertTickettype(1, TICKET_CONTENT);
    EXPECT_EQ(TICKET_CONTENT, query.m_tableTypes.front());
    std::list<TupElement*> out;
    EXPECT_EQ(0, query.GetRecordCount());
    EXPECT_TRUE(query.GetRecord(0, out));  // 0 < 0 is false: passes the test, reads nothing
    EXPECT_FALSE(query.GetRecord(1, out));
    EXPECT_FALSE(query.GetRecord(-1, out));

    EXPECT_EXIT(
        {
            dl_MultiValue two;
            two.InsertTickettype(2, TICKET_CONTENT, TICKET_DEVICE);
        },
        ::testing::KilledBySignal(SIGILL), "");
}

class QueryTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.Reset({"CONTENT"});
        db.Exec("INSERT INTO CONTENT (CONTENTID, RUN_ID, QENTRYID, DISPLAYNAME, NPAGES, CACHEDATE) VALUES "
                "(1, 'r1', 'Q1', 'first \xC3\xA9', 10, '2026-01-02 03:04:05'),"
                "(2, 'r2', 'Q1', NULL, NULL, NULL),"
                "(3, 'r3', 'Q2', 'third', 30, NULL)");
        store = CMysqlDatabaseInterface::GetInstance();
    }
    // A query of `key` on CONTENT, for one queue entry when `qentryId` is given.
    static void OnContent(dl_MultiValue& query, const char* key, const wchar_t* qentryId = nullptr) {
        query.InsertKeys(1, key);
        query.InsertTickettype(1, TICKET_CONTENT);
        if (qentryId) Where(query, "CONTENT.QENTRYID", qentryId);
    }
    static void Where(dl_MultiValue& query, const char* column, const wchar_t* value) {
        query.m_conditions.push_back(COND_BRACKET, "(");
        query.m_conditions.push_back(COND_COLUMN, column);
        query.m_conditions.push_back(COND_OPERATOR, "=");
        TupElement element;
        element.InsertTupValue(PARAM_WSTRING, column, value);
        query.m_conditions.push_back(COND_VALUE, &element);
        query.m_conditions.push_back(COND_BRACKET, ")");
    }

    RawDb db;
    CMysqlDatabaseInterface* store = nullptr;
};

TEST_F(QueryTest, StatementTextIsBuiltExactly) {
    LogCapture log;
    dl_MultiValue query;
    query.InsertKeys(2, "CONTENT.CONTENTID", "CONTENT.RUN_ID");
    query.InsertTickettype(1, TICKET_CONTENT);
    Where(query, "CONTENT.QENTRYID", L"Q1");
    store->ExecuteQuery(&query);
    EXPECT_TRUE(log.Contains(ByProfile(
        L"SELECT CONTENT.CONTENTID ,CONTENT.RUN_ID FROM CONTENT WHERE ( CONTENT.QENTRYID = 'Q1' ) ",
        L"SELECT `CONTENT`.`CONTENTID` ,`CONTENT`.`RUN_ID` FROM `CONTENT` WHERE ( `CONTENT`.`QENTRYID` = ? ) \nvalues: 'Q1'")));
    EXPECT_TRUE(log.Contains(L"Inside CMysqlDatabaseInterface::ExecuteQuery()"));
    EXPECT_TRUE(log.Contains(L"Returning from CMysqlDatabaseInterface::ExecuteQuery()"));
    EXPECT_EQ(2, query.GetRecordCount());

    dl_MultiValue whole;
    OnContent(whole, "CONTENT.CONTENTID");
    store->ExecuteQuery(&whole);
    // No WHERE, no trailing blank.
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECT CONTENT.CONTENTID FROM CONTENT", L"SELECT `CONTENT`.`CONTENTID` FROM `CONTENT`")));
    EXPECT_EQ(3, whole.GetRecordCount());
    store->ExecuteQuery(&whole);  // records are appended, not replaced
    ASSERT_EQ(6, whole.GetRecordCount());
    // Records are found wherever the cursor stood before (ids 1, 2, 3 twice).
    for (int index : {5, 0, 3, 4, 4, 1, 2}) {
        TupElement id;
        ASSERT_TRUE(whole.GetElement(index, "CONTENT.CONTENTID", &id));
        EXPECT_EQ(index % 3 + 1, *static_cast<int*>(id.value)) << index;
    }

    dl_MultiValue noKeys;  // the blank of "SELECT " is removed with the missing comma
    noKeys.InsertTickettype(1, TICKET_CONTENT);
    log.Clear();
    store->ExecuteQuery(&noKeys);
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECTFROM CONTENT", L"SELECTFROM `CONTENT`")));
    EXPECT_TRUE(log.Contains(L"CMysqlDatabaseInterface::ExecuteQuery : Failed to execute Query."));
    EXPECT_FALSE(log.Contains(L"Returning from CMysqlDatabaseInterface::ExecuteQuery()"));
    EXPECT_EQ(0, noKeys.GetRecordCount());
}

TEST_F(QueryTest, RowsBecomeTypedElements) {
    dl_MultiValue query;
    OnContent(query, "CONTENT.*", L"Q1");
    store->ExecuteQuery(&query);
    ASSERT_EQ(2, query.GetRecordCount());

    Tuplist first;
    ASSERT_TRUE(query.GetRecord(0, first.m_elements));
    EXPECT_EQ(13u, first.m_elements.size());
    // Map order: byte-wise ascending column names.
    EXPECT_STREQ("CACFILEPATH", first.m_elements.front()->name);
    TupElement* id = first["CONTENT.CONTENTID"];
    EXPECT_EQ(PARAM_INT, id->type);
    EXPECT_EQ(1, *static_cast<int*>(id->value));
    TupElement* name = first["CONTENT.DISPLAYNAME"];
    EXPECT_EQ(PARAM_WSTRING, name->type);
    EXPECT_STREQ("DISPLAYNAME", name->name);
    EXPECT_EQ(L"first \u00E9", Text(*name));
    // DATETIME: present, without a value in the exact profile, a time stamp in the safe one.
    TupElement* date = first["CONTENT.CACHEDATE"];
    if (testing_support::Safe()) {
        ASSERT_EQ(PARAM_TIMESTAMP, date->type);
        const TimeStamp& stamp = *static_cast<const TimeStamp*>(date->value);
        EXPECT_EQ(2026 * 10000 + 102, stamp.year * 10000 + stamp.month * 100 + stamp.day);
        EXPECT_EQ(30405, stamp.hour * 10000 + stamp.minute * 100 + stamp.second);
        EXPECT_EQ(0, stamp.fraction + stamp.zone);
    } else {
        EXPECT_EQ(PARAM_NO_VALUE, date->type);
        EXPECT_EQ(nullptr, date->value);
    }

    LogCapture log;
    EXPECT_EQ(PARAM_NO_VALUE, first["CONTENT.NOSUCH"]->type);
    EXPECT_EQ(PARAM_NO_VALUE, first["content.contentid"]->type);  // case-sensitive
    EXPECT_EQ(2u, log.Count(L"Tuplist::operator[] return NULL here"));

    // SQL NULL reads as 0 and as the empty text (the connector's conversion);
    // the safe profile gives elements without a value.
    Tuplist second;
    ASSERT_TRUE(query.GetRecord(1, second.m_elements));
    if (testing_support::Safe()) {
        EXPECT_EQ(nullptr, second["CONTENT.NPAGES"]->value);
        EXPECT_EQ(PARAM_NO_VALUE, second["CONTENT.DISPLAYNAME"]->type);
    } else {
        EXPECT_EQ(0, *static_cast<int*>(second["CONTENT.NPAGES"]->value));
        EXPECT_EQ(L"", Text(*second["CONTENT.DISPLAYNAME"]));
    }

    TupElement out;
    out.InsertTupValue(PARAM_WSTRING, "RUN_ID", L"old");
    EXPECT_TRUE(query.GetElement(1, "CONTENT.RUN_ID", &out));
    EXPECT_TRUE(query.GetElement(1, "CONTENT.NOSUCH", &out));  // no match: unchanged
    EXPECT_EQ(L"r2", Text(out));
    EXPECT_FALSE(query.GetElement(3, "CONTENT.RUN_ID", &out));

}

// A host walks the public record list as well as GetRecord and GetElement:
// all three agree, whichever is used first.
TEST_F(QueryTest, ThePublicRecordListHoldsEveryRow) {
    dl_MultiValue* query = new dl_MultiValue;
    OnContent(*query, "CONTENT.*");
    store->ExecuteQuery(query);
    ASSERT_EQ(3, query->GetRecordCount());
    ASSERT_EQ(3u, query->m_records.size());
    int index = 0;
    for (dl_Record& record : query->m_records) {
        ASSERT_EQ(13u, record.size());
        std::list<TupElement*> viaGetRecord;
        ASSERT_TRUE(query->GetRecord(index, viaGetRecord));
        EXPECT_EQ(&record, &*query->m_recordCursor);
        auto element = viaGetRecord.begin();
        for (auto& entry : record) {  // bare column names, each the key of its own element
            EXPECT_EQ(nullptr, std::strchr(entry.first, '.'));
            EXPECT_STREQ(entry.first, entry.second->name);
            EXPECT_NE(entry.first, entry.second->name);
            EXPECT_EQ(*element++, entry.second);
        }
        TupElement run;
        ASSERT_TRUE(query->GetElement(index, "CONTENT.RUN_ID", &run));
        EXPECT_STREQ("RUN_ID", query->m_elementCursor->first);
        EXPECT_EQ(Text(*record.at("RUN_ID")), Text(run));
        EXPECT_EQ(L"r" + std::to_wstring(++index), Text(run));
    }
    store->ExecuteQuery(query);  // appended: the list doubles
    EXPECT_EQ(6u, query->m_records.size());
    EXPECT_EQ(6, query->GetRecordCount());
    EXPECT_EQ(1, *static_cast<int*>(std::next(query->m_records.begin(), 3)->at("CONTENTID")->value));

    // The copy's list holds the source's element pointers. Destroying the copy
    // frees them; the source then only drops its list.
    dl_MultiValue* copy = new dl_MultiValue(*query);
    EXPECT_TRUE(copy->m_tableTypes.empty());
    ASSERT_EQ(6u, copy->m_records.size());
    auto source = query->m_records.begin();
    for (dl_Record& record : copy->m_records) {
        ASSERT_EQ(source->size(), record.size());
        for (auto& entry : record) EXPECT_EQ(source->at(entry.first), entry.second);
        ++source;
    }
    delete copy;
    query->m_records.clear();
    EXPECT_EQ(0, query->GetRecordCount());
    delete query;
}

// A copy carries neither the tables nor the conditions of its source, so its
// statement has no table text and the server refuses it.
TEST_F(QueryTest, ACopiedQueryLosesItsTableAndConditions) {
    dl_MultiValue source;
    OnContent(source, "CONTENT.CONTENTID", L"Q1");
    dl_MultiValue copy(source);
    LogCapture log;
    store->ExecuteQuery(&copy);
    EXPECT_TRUE(log.Contains(ByProfile(L"SELECT CONTENT.CONTENTID FRO", L"SELECT `CONTENT`.`CONTENTID` FRO")));
    EXPECT_TRUE(log.Contains(L"CMysqlDatabaseInterface::ExecuteQuery : Failed to execute Query."));
    EXPECT_EQ(0, copy.GetRecordCount());
}

}  // namespace
