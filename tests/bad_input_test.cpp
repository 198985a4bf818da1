// Awkward values through every provider of the facade, against the private
// server. One table of values, walked through a write/read pair of each
// provider; what is expected depends on the build: the default build puts
// values between quotes as they stand, a hardened build escapes them.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "CDataAccessProvider.h"
#include "CDatabaseFactory.h"
#include "CJobSenderDataProvider.h"
#include "TestSupport.h"

using testing_support::LogCapture;
using testing_support::RawDb;

namespace {

const int kSyntaxError = 1064;  // a quote or a trailing backslash ends the literal early
const int kTooLong = 1406;      // strict mode refuses a text longer than its column
const int kBadNumber = 1292;    // 'x' OR '1'='1' as a value: strict mode refuses 'x' as a number

// Which build is running, read from the SQL text of one probe write (a
// statement on a key that matches no row): escaped quote or verbatim quote.
bool Hardened() {
    static const bool hardened = [] {
        LogCapture log;
        CDatabaseFactory().GetDatabaseInterface()->AddParameter(TICKET_JDFTICKET, L"probe", PARAM_WSTRING,
                                                                "JDFTICKET.STATUSMSG", L"a'b", PARAM_WSTRING);
        const bool escaped = log.Contains(L"UPDATE JDFTICKET SET STATUSMSG = 'a\\'b' WHERE QENTRYID = 'probe'");
        const bool verbatim = log.Contains(L"UPDATE JDFTICKET SET STATUSMSG = 'a'b' WHERE QENTRYID = 'probe'");
        EXPECT_NE(escaped, verbatim) << "the probe statement was not logged as either build writes it";
        std::cout << "[ build    ] " << (escaped ? "hardened: values are escaped" : "default: values as they stand")
                  << std::endl;
        return escaped;
    }();
    return hardened;
}

// What a write of a value leads to.
struct Expect {
    enum Kind { Exact, StoredAs, Refused, NotWritten } kind;
    std::wstring stored;  // StoredAs: what the server made of it
    int error;            // Refused: the server's error code
};
Expect Exact() { return {Expect::Exact, L"", 0}; }
Expect StoredAs(const std::wstring& text) { return {Expect::StoredAs, text, 0}; }
Expect Refused(int error) { return {Expect::Refused, L"", error}; }
Expect NotWritten() { return {Expect::NotWritten, L"", 0}; }

struct Awkward {
    std::wstring value;
    const char* description;
    Expect plain;     // default build
    Expect hardened;  // NORVA_HARDENED=ON
};

const std::wstring kHostile = L"x' OR '1'='1";

const std::vector<Awkward>& Values() {
    static const std::vector<Awkward> values = {
        {L"plain text", "plain text", Exact(), Exact()},
        {L"it's", "single quote: breaks the statement", Refused(kSyntaxError), Exact()},
        {L"say \"hi\"", "double quotes: harmless between single quotes", Exact(), Exact()},
        // The server reads \j as j, \n as a line feed, \b as a backspace.
        {L"C:\\jobs\\new\\b.pdf", "backslashes: consumed as escapes", StoredAs(L"C:jobs\new\b.pdf"), Exact()},
        {L"ends\\", "trailing backslash: escapes the closing quote", Refused(kSyntaxError), Exact()},
        {L"50\\% \\_", "backslash before % and _: the server keeps it", Exact(), Exact()},
        {L"100% _done_", "LIKE meta characters: harmless", Exact(), Exact()},
        {L"line\nfeed\ttab\r\x1a", "control characters", Exact(), Exact()},
        {L"printer \U0001F5A8", "4-byte UTF-8", Exact(), Exact()},
        {L"e\u0301 a\u0308 \u0915\u094D\u0937", "combining characters", Exact(), Exact()},
        {L"", "empty: not set, so not written", NotWritten(), NotWritten()},
        {std::wstring(1022, L'x') + L"\U0001F5A8", "1023 characters (column limit)", Exact(), Exact()},
        // Refused where the column is VARCHAR(1023); a long text or the ticket file takes it whole.
        {std::wstring(1024, L'y'), "1024 characters (one over)", Refused(kTooLong), Refused(kTooLong)},
        {L"a'); DELETE FROM JDFTICKET; -- ", "second statement: one statement per call",
         Refused(kSyntaxError), Exact()},
        {kHostile, "hostile condition as a value", Refused(kBadNumber), Exact()},
    };
    return values;
}

// A write/read pair of one provider on one text column. The SQL-backed ones
// start from a target row holding "old" and a neighbour holding "neighbour".
struct Column {
    const char* name;
    const char* table;      // empty: not stored in the database
    const char* keyColumn;
    const char* column;
    const char* target;     // SQL literals of the two keys
    const char* neighbour;
    size_t limit;           // characters; 0: no limit
    bool resultWhenUnset;   // what the writer answers when nothing is set
    std::function<bool(const std::wstring&)> write;
    std::function<std::optional<std::wstring>()> read;
};

// The expectation for a value in a column, for this build.
Expect ExpectFor(const Column& column, const Awkward& value) {
    const Expect expect = Hardened() ? value.hardened : value.plain;
    if (*column.table == '\0') return Exact();  // the ticket file escapes every text itself
    if (expect.kind == Expect::Refused && expect.error == kTooLong && column.limit == 0) return Exact();
    return expect;
}

class BadInputTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.Reset({"JDFTICKET", "CONTENT", "DEVICE", "SERVER", "STATSSUBS"});
        std::remove("./QueryURL");
    }
    void TearDown() override { db.Reset({"JDFTICKET", "CONTENT", "DEVICE", "SERVER", "STATSSUBS"}); }

    std::vector<Column> Columns() {
        CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
        ITicketDataProvider* ticket = facade->GetTicketDataProvider();
        IContentDataProvider* content = facade->GetContentDataProvider();
        IDeviceDataProvider* device = facade->GetDeviceDataProvider();
        IServerDataProvider* server = facade->GetServerDataProvider();
        IStatusSubDataProvider* statsub = facade->GetStatusSubDataProvider();
        return {
            {"ticket STATUSMSG", "JDFTICKET", "QENTRYID", "STATUSMSG", "'k'", "'n'", 1023, false,
             [=](const std::wstring& v) {
                 TicketTableRecord rec;
                 rec.statusMsg = v;
                 return ticket->UpdateTicketRecord(L"k", rec);
             },
             [=]() -> std::optional<std::wstring> {
                 TicketTableRecord rec;
                 if (!ticket->GetTicketRecord(L"k", &rec)) return std::nullopt;
                 return rec.statusMsg;
             }},
            {"ticket JDF (long text)", "JDFTICKET", "QENTRYID", "JDF", "'k'", "'n'", 0, false,
             [=](const std::wstring& v) { return ticket->UpdateJDF(L"k", v); },
             [=]() -> std::optional<std::wstring> {
                 std::wstring jdf;
                 if (!ticket->GetJDF(L"k", jdf)) return std::nullopt;
                 return jdf;
             }},
            {"content DISPLAYNAME", "CONTENT", "CONTENTID", "DISPLAYNAME", "1", "2", 1023, false,
             [=](const std::wstring& v) {
                 ContentTableRecord rec;
                 rec.displayName = v;
                 return content->UpdateRecord(1, rec);
             },
             [=]() -> std::optional<std::wstring> {
                 ContentTableRecord rec;
                 if (!content->GetRecord(1, &rec)) return std::nullopt;
                 return rec.displayName;
             }},
            // The device update answers true when none of its fields is set.
            {"device STATUSMSG", "DEVICE", "DEVICEID", "STATUSMSG", "'k'", "'n'", 1023, true,
             [=](const std::wstring& v) {
                 DeviceTableRecord rec;
                 rec.statusMsg = v;
                 return device->UpdateDeviceRecord(L"k", rec);
             },
             [=]() -> std::optional<std::wstring> {
                 DeviceTableRecord rec;
                 if (!device->GetDeviceRecord(L"k", &rec)) return std::nullopt;
                 return rec.statusMsg;
             }},
            {"server COMPNAME", "SERVER", "SERVERID", "COMPNAME", "1", "2", 1023, false,
             [=](const std::wstring& v) {
                 ServerTableRecord rec;
                 rec.COMPNAME = v;
                 return server->UpdateServerRecord(1, rec);
             },
             [=]() -> std::optional<std::wstring> {
                 ServerTableRecord rec;
                 if (!server->GetServerRecord(1, &rec)) return std::nullopt;
                 return rec.COMPNAME;
             }},
            {"status subscription REFID", "STATSSUBS", "ID", "REFID", "1", "2", 1023, false,
             [=](const std::wstring& v) {
                 StatusSubTableRecord rec;
                 rec.REFID = v;
                 return statsub->UpdateRecord(1, rec);
             },
             [=]() -> std::optional<std::wstring> {
                 std::vector<StatusSubTableRecord> all;
                 statsub->GetRecords(L"", L"", L"", L"", true, all);
                 for (const auto& rec : all)
                     if (rec.ID == 1) return rec.REFID;
                 return std::nullopt;
             }},
            // The job sender keeps its pairs in ./QueryURL: written by one
            // provider, read back by a fresh one loading the file.
            {"job sender URL (ticket file)", "", "", "", "", "", 0, true,
             [](const std::wstring& v) {
                 CJobSenderDataProvider writer;
                 CJobSenderData neighbour(L"q0", L"neighbour"), target(L"q1", v);
                 writer.AddRecord(neighbour);
                 writer.AddRecord(target);
                 return true;
             },
             []() -> std::optional<std::wstring> {
                 CJobSenderDataProvider reader;
                 CJobSenderData neighbour, target;
                 EXPECT_TRUE(reader.GetRecordByQueryId(L"q0", neighbour) && neighbour.url == L"neighbour");
                 if (!reader.GetRecordByQueryId(L"q1", target)) return std::nullopt;
                 return target.url;
             }},
        };
    }

    RawDb db;
};

// Every value through every provider: it round-trips exactly, or is changed
// or refused as the table says, and the neighbouring row never changes.
TEST_F(BadInputTest, AwkwardValuesThroughEveryProvider) {
    for (const Column& column : Columns()) {
        for (const Awkward& value : Values()) {
            SCOPED_TRACE(std::string(column.name) + ": " + value.description);
            SetUp();
            const bool sql = *column.table != '\0';
            if (sql)
                db.Exec(std::string("INSERT INTO ") + column.table + "(" + column.keyColumn + ", " + column.column +
                        ") VALUES(" + column.target + ", 'old'), (" + column.neighbour + ", 'neighbour')");
            const Expect expect = ExpectFor(column, value);

            LogCapture log;
            const bool written = column.write(value.value);
            const std::optional<std::wstring> back = column.read();
            ASSERT_TRUE(back.has_value());

            switch (expect.kind) {
                case Expect::Exact:
                    EXPECT_TRUE(written);
                    EXPECT_TRUE(*back == value.value) << "read back " << back->size() << " characters";
                    break;
                case Expect::StoredAs:
                    EXPECT_TRUE(written);
                    EXPECT_TRUE(*back == expect.stored);
                    break;
                case Expect::Refused:  // the write answers true all the same; the column keeps its value
                    EXPECT_TRUE(written);
                    EXPECT_TRUE(log.Contains(L"MySQL error code: " + std::to_wstring(expect.error)));
                    EXPECT_EQ(L"old", *back);
                    break;
                case Expect::NotWritten:
                    EXPECT_EQ(column.resultWhenUnset, written);
                    EXPECT_FALSE(log.ContainsText(L"UPDATE "));
                    EXPECT_EQ(L"old", *back);
                    break;
            }
            if (expect.kind != Expect::Refused) {
                EXPECT_FALSE(log.ContainsText(L"MySQL error code: "));
            }
            if (sql) {
                EXPECT_EQ(2, db.Count(column.table));
                EXPECT_EQ("neighbour", db.Scalar(std::string("SELECT ") + column.column + " FROM " + column.table +
                                                 " WHERE " + column.keyColumn + " = " + column.neighbour));
            }
        }
    }
}

// Awkward text as a key: the same texts placed in WHERE conditions and key
// columns (DEVICEID and QENTRYID are VARCHAR(255)).
TEST_F(BadInputTest, AwkwardKeys) {
    CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
    ITicketDataProvider* ticket = facade->GetTicketDataProvider();
    IDeviceDataProvider* device = facade->GetDeviceDataProvider();
    db.Exec("INSERT INTO JDFTICKET(QENTRYID, STATUSMSG) VALUES('k1', 'one'), ('k2', 'two')");
    db.Exec("INSERT INTO DEVICE(DEVICEID, STATUSMSG) VALUES('d1', 'one'), ('d2', 'two')");

    // The hostile key in a single-column write and read.
    LogCapture log;
    EXPECT_TRUE(ticket->UpdateTicketStatusMsg(kHostile, L"overwritten"));
    std::wstring msg = L"untouched";
    EXPECT_TRUE(ticket->GetTicketStatusMsg(kHostile, msg));
    if (!Hardened()) {
        // Valid SQL whose condition holds for every row: the reason for the
        // hardened build. Both rows are overwritten, and the read answers
        // with a row that is not its own.
        EXPECT_TRUE(log.Contains(L"UPDATE JDFTICKET SET STATUSMSG = 'overwritten' WHERE QENTRYID = 'x' OR '1'='1'"));
        EXPECT_EQ(2, db.Count("JDFTICKET", "STATUSMSG = 'overwritten'"));
        EXPECT_EQ(L"overwritten", msg);
    } else {
        EXPECT_TRUE(log.Contains(
            L"UPDATE JDFTICKET SET STATUSMSG = 'overwritten' WHERE QENTRYID = 'x\\' OR \\'1\\'=\\'1'"));
        EXPECT_EQ(0, db.Count("JDFTICKET", "STATUSMSG = 'overwritten'"));
        EXPECT_EQ(L"", msg);  // no such row: the provider's empty buffer
    }

    // Devices created with awkward identifiers; d1 and d2 must stay as they are.
    enum Outcome { RoundTrip, NoRow, EveryRowTouched };
    struct Key {
        std::wstring id;
        const char* description;
        Outcome plain, hardened;
        std::wstring plainStored = L"";  // default build: the identifier the server made of it, if not the same
    };
    const std::vector<Key> keys = {
        {L"dev \U0001F5A8 e\u0301 100%", "4-byte and combining characters", RoundTrip, RoundTrip},
        {L"it's", "single quote: every statement breaks", NoRow, RoundTrip},
        {L"C:\\dev\\b", "backslashes: consumed alike in every statement", RoundTrip, RoundTrip, L"C:dev\b"},
        // The insert is refused (1292), but the later column writes match every row.
        {kHostile, "hostile condition", EveryRowTouched, RoundTrip},
        {std::wstring(254, L'k') + L"\U0001F5A8", "255 characters (key limit)", RoundTrip, RoundTrip},
        {std::wstring(256, L'k'), "256 characters: insert refused (1406)", NoRow, NoRow},
    };
    for (const Key& key : keys) {
        SCOPED_TRACE(key.description);
        db.Exec("DELETE FROM DEVICE WHERE DEVICEID NOT IN ('d1', 'd2')");
        db.Exec("UPDATE DEVICE SET STATUSMSG = IF(DEVICEID = 'd1', 'one', 'two')");
        DeviceTableRecord rec, back;
        rec.deviceId = key.id;
        rec.statusMsg = L"m";
        EXPECT_TRUE(device->AddDevice(&rec));
        const bool found = device->GetDeviceRecord(key.id, &back);
        switch (Hardened() ? key.hardened : key.plain) {
            case RoundTrip:
                ASSERT_TRUE(found);
                EXPECT_TRUE(back.deviceId == (Hardened() || key.plainStored.empty() ? key.id : key.plainStored));
                EXPECT_EQ(L"m", back.statusMsg);
                EXPECT_EQ(3, db.Count("DEVICE"));
                EXPECT_EQ(0, db.Count("DEVICE", "DEVICEID IN ('d1', 'd2') AND STATUSMSG = 'm'"));
                break;
            case NoRow:
                EXPECT_FALSE(found);
                EXPECT_EQ(2, db.Count("DEVICE"));
                EXPECT_EQ(0, db.Count("DEVICE", "STATUSMSG = 'm'"));
                break;
            case EveryRowTouched:
                EXPECT_FALSE(found);  // two rows match the condition
                EXPECT_EQ(2, db.Count("DEVICE"));
                EXPECT_EQ(2, db.Count("DEVICE", "STATUSMSG = 'm'"));
                break;
        }
    }
}

// A 16 MB JDF (the private server allows 64 MB statements) round-trips whole.
TEST_F(BadInputTest, SixteenMegabyteJdf) {
    ITicketDataProvider* ticket = CDataAccessProvider::GetInstance()->GetTicketDataProvider();
    const std::wstring unit = L"<ResourcePool><Media Name=\"A4 \u00FC\U0001F5A8\" Dimension=\"595 842\"/>";
    std::wstring jdf = L"<JDF ID=\"big\">";
    while (jdf.size() < 16u * 1024 * 1024) jdf += unit;
    db.Exec("INSERT INTO JDFTICKET(QENTRYID) VALUES('big'), ('n')");
    ASSERT_TRUE(ticket->UpdateJDF(L"big", jdf));
    EXPECT_EQ(std::to_string(jdf.size()), db.Scalar("SELECT CHAR_LENGTH(JDF) FROM JDFTICKET WHERE QENTRYID='big'"));
    EXPECT_EQ("<null>", db.Scalar("SELECT JDF FROM JDFTICKET WHERE QENTRYID='n'"));
    std::wstring back;
    ASSERT_TRUE(ticket->GetJDF(L"big", back));
    EXPECT_TRUE(back == jdf) << "read back " << back.size() << " of " << jdf.size() << " characters";
}

}  // namespace
