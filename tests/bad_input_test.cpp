// Awkward values through every provider of the facade, against the private
// server. One table of values, walked through a write/read pair of each
// provider; what is expected depends on the profile: the exact profile puts
// values between quotes as they stand, the safe one binds them to prepared statements.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CDataAccessProvider.h"
#include "CJobSenderDataProvider.h"
#include "TestSupport.h"

namespace {

const std::wstring kHostile = L"x' OR '1'='1";

// What a write leads to: the text read back (none: the value itself) and the
// server's error code, if it refuses the statement.
struct Expect { std::optional<std::wstring> back; int error; };
const Expect kSame{std::nullopt, 0}, kKept{L"old", 0};
Expect Refused(int error) { return {L"old", error}; }

// Each value with what it leads to in the exact and in the safe profile.
const struct Awkward { std::wstring value; const char* description; Expect exact, safe; } kValues[] = {
    {L"it's \"so\"", "quotes: the single one ends the literal early (1064)", Refused(1064), kSame},
    // The server reads \j as j, \n as a line feed, \b as a backspace.
    {L"C:\\jobs\\new\\b.pdf", "backslashes: consumed as escapes", {L"C:jobs\new\b.pdf", 0}, kSame},
    {L"ends\\", "trailing backslash: escapes the closing quote", Refused(1064), kSame},
    {L"100% _done_ 50\\% \\_", "LIKE meta characters: harmless; a backslash before them kept", kSame, kSame},
    {L"two\nlines\r\n\tend \x1a", "line feed, carriage return, tab, control-Z", kSame, kSame},
    {L"printer \U0001F5A8", "4-byte UTF-8", kSame, kSame},
    {L"e\u0301 a\u0308 \u0915\u094D\u0937", "combining characters", kSame, kSame},
    {L"", "empty: not set, so not written", kKept, kKept},
    {std::wstring(1022, L'x') + L"\U0001F5A8", "1023 characters (column limit)", kSame, kSame},
    // Refused by the VARCHAR(1023) columns; the ticket file takes it whole.
    {std::wstring(1024, L'y'), "1024 characters: too long (1406)", Refused(1406), Refused(1406)},
    {kHostile, "hostile condition as a value: 'x' is no number (1292)", Refused(1292), kSame},
    // A NUL ends a text where it crosses the interface as a C string, in both profiles.
    {std::wstring(L"nul\0tail", 8), "NUL: the text ends there", {L"nul", 0}, {L"nul", 0}},
    {std::wstring(1 << 20, L'\u00e9'), "1 MiB: only long-text columns take it", Refused(1406), Refused(1406)},
};

// A write/read pair of one provider on one text column. In the database the
// target row (key 1) holds "old" and its neighbour (key 2) "neighbour".
struct Column {
    const char* table;  // empty: the job sender's ./QueryURL
    const char* key;
    const char* column;
    bool longText;         // a LONGTEXT column: any length fits
    bool resultWhenUnset;  // what the write answers when nothing is set
    std::function<bool(const std::wstring&)> write;
    std::function<std::wstring()> read;  // a failed read leaves the field empty
};

std::vector<Column> Columns() {
    CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
    ITicketDataProvider* ticket = facade->GetTicketDataProvider();
    IContentDataProvider* content = facade->GetContentDataProvider();
    IDeviceDataProvider* device = facade->GetDeviceDataProvider();
    IServerDataProvider* server = facade->GetServerDataProvider();
    IStatusSubDataProvider* statsub = facade->GetStatusSubDataProvider();
    return {
        {"JDFTICKET", "QENTRYID", "STATUSMSG", false, false,
         [=](auto& v) { TicketTableRecord r; r.statusMsg = v; return ticket->UpdateTicketRecord(L"1", r); },
         [=] { TicketTableRecord r; return ticket->GetTicketRecord(L"1", &r), r.statusMsg; }},
        {"CONTENT", "CONTENTID", "DISPLAYNAME", false, false,
         [=](auto& v) { ContentTableRecord r; r.displayName = v; return content->UpdateRecord(1, r); },
         [=] { ContentTableRecord r; return content->GetRecord(1, &r), r.displayName; }},
        // The device update answers true when none of its fields is set.
        {"DEVICE", "DEVICEID", "STATUSMSG", false, true,
         [=](auto& v) { DeviceTableRecord r; r.statusMsg = v; return device->UpdateDeviceRecord(L"1", r); },
         [=] { DeviceTableRecord r; return device->GetDeviceRecord(L"1", &r), r.statusMsg; }},
        {"DEVICE", "DEVICEID", "DEVCAPS", true, true,
         [=](auto& v) { DeviceTableRecord r; r.devCaps = v; return device->UpdateDeviceRecord(L"1", r); },
         [=] { std::wstring caps; return device->GetDevCaps(L"1", caps), caps; }},
        {"SERVER", "SERVERID", "COMPNAME", false, false,
         [=](auto& v) { ServerTableRecord r; r.COMPNAME = v; return server->UpdateServerRecord(1, r); },
         [=] { ServerTableRecord r; return server->GetServerRecord(1, &r), r.COMPNAME; }},
        {"STATSSUBS", "ID", "REFID", false, false,
         [=](auto& v) { StatusSubTableRecord r; r.REFID = v; return statsub->UpdateRecord(1, r); },
         [=] {
             std::vector<StatusSubTableRecord> all;
             statsub->GetRecords(L"", L"", L"", L"", true, all);
             return all.size() == 2 ? all[all[1].ID == 1].REFID : L"";
         }},
        // Written beside a neighbour pair, read back by a fresh provider loading the file.
        {"", "", "./QueryURL", true, true,
         [](const std::wstring& v) {
             CJobSenderData neighbour(L"2", L"neighbour"), target(L"1", v);
             return CJobSenderDataProvider().AddRecord(neighbour), CJobSenderDataProvider().AddRecord(target), true;
         },
         [=] {
             CJobSenderData neighbour, target;
             CJobSenderDataProvider reader;
             EXPECT_TRUE(reader.GetRecordByQueryId(L"2", neighbour) && neighbour.url == L"neighbour");
             return reader.GetRecordByQueryId(L"1", target), target.url;
         }},
    };
}

class BadInputTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.Reset({"JDFTICKET", "CONTENT", "DEVICE", "SERVER", "STATSSUBS"});
        std::remove("./QueryURL");
    }
    testing_support::RawDb db;
};

// Every value through every provider: it round-trips exactly, or is changed
// or refused as the table says, and the neighbouring row never changes.
TEST_F(BadInputTest, AwkwardValuesThroughEveryProvider) {
    for (const Column& column : Columns()) {
        for (const Awkward& value : kValues) {
            SCOPED_TRACE(std::string(column.table) + " " + column.column + ": " + value.description);
            SetUp();
            const std::string table = column.table, key = column.key, col = column.column;
            if (!table.empty())
                db.Exec("INSERT INTO " + table + "(" + key + ", " + col + ") VALUES('1', 'old'), ('2', 'neighbour')");
            // The ticket file escapes every text itself and takes any length.
            Expect expect = testing_support::ByProfile(value.exact, value.safe);
            if (table.empty() || (column.longText && expect.error == 1406)) expect = kSame;
            if (table.empty() && value.value.find(L'\0') != std::wstring::npos) expect = value.safe;

            testing_support::LogCapture log;
            // The safe profile answers false for a statement the server refused.
            const bool answer = value.value.empty() ? column.resultWhenUnset : !(expect.error && testing_support::Safe());
            EXPECT_EQ(answer, column.write(value.value));
            EXPECT_TRUE(column.read() == expect.back.value_or(value.value));
            EXPECT_TRUE(expect.error ? log.Contains(L"MySQL error code: " + std::to_wstring(expect.error))
                                     : !log.ContainsText(L"MySQL error code: "));
            EXPECT_TRUE(!value.value.empty() || !log.ContainsText(L"UPDATE "));
            if (!table.empty()) {
                EXPECT_EQ(2, db.Count(table));
                EXPECT_EQ("neighbour", db.Scalar("SELECT " + col + " FROM " + table + " WHERE " + key + " = '2'"));
            }
        }
    }
}

// The hostile text as a device's key. The exact profile makes it valid SQL
// whose condition holds for every row: the insert is refused (1292) and the
// column writes on the key overwrite both other rows. The safe profile
// stores and reads it as plain text.
TEST_F(BadInputTest, HostileKey) {
    const bool safe = testing_support::Safe();
    db.Exec("INSERT INTO DEVICE(DEVICEID, STATUSMSG) VALUES('d1', 'one'), ('d2', 'two')");
    testing_support::LogCapture log;
    DeviceTableRecord rec, back;
    rec.deviceId = kHostile, rec.statusMsg = L"m";
    EXPECT_TRUE(CDataAccessProvider::GetInstance()->GetDeviceDataProvider()->AddDevice(&rec));
    const bool found = CDataAccessProvider::GetInstance()->GetDeviceDataProvider()->GetDeviceRecord(kHostile, &back);
    EXPECT_TRUE(log.Contains(safe ? L"INSERT INTO `DEVICE` (`DEVICEID`, `STATUSMSG`) VALUES (?, ?) "
                                    L"ON DUPLICATE KEY UPDATE `STATUSMSG` = VALUES(`STATUSMSG`)\n"
                                    L"values: 'x' OR '1'='1', 'm'"
                                  : L"UPDATE DEVICE SET STATUSMSG = 'm' WHERE DEVICEID = 'x' OR '1'='1'"));
    EXPECT_EQ(safe, found && back.deviceId == kHostile && back.statusMsg == L"m");  // exact: two rows match
    EXPECT_EQ(safe ? 3 : 2, db.Count("DEVICE"));
    EXPECT_EQ(safe ? 0 : 2, db.Count("DEVICE", "DEVICEID <> 'x'' OR ''1''=''1' AND STATUSMSG = 'm'"));
}
// A 16 MB JDF (the private server allows 64 MB statements) round-trips whole.
TEST_F(BadInputTest, SixteenMegabyteJdf) {
    ITicketDataProvider* ticket = CDataAccessProvider::GetInstance()->GetTicketDataProvider();
    std::wstring jdf = L"<JDF ID=\"big\">", back;
    while (jdf.size() < 16u * 1024 * 1024) jdf += L"<Media Name=\"A4 \u00FC\U0001F5A8\" Dimension=\"595 842\"/>";
    db.Exec("INSERT INTO JDFTICKET(QENTRYID) VALUES('big')");
    ASSERT_TRUE(ticket->UpdateJDF(L"big", jdf));
    ASSERT_TRUE(ticket->GetJDF(L"big", back));
    EXPECT_TRUE(back == jdf) << "read back " << back.size() << " of " << jdf.size() << " characters";
}

}  // namespace
