// Hostile texts as keys and as values through every provider, against a
// private server of its own started with the sql_mode or character set that
// NORVA_INJECTION_SERVER names (tests/CMakeLists.txt runs each, in each
// profile). Sentinel rows that no call addresses must stay as they were.
// The safe profile changes nothing but the addressed row and reads every
// value back exactly, whatever the server's settings; for the exact profile
// the outcome is printed as figures (docs/kept-behaviours.md, S2).
#include <ConfigurationControl.h>
#include <StringUtils.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "CDataAccessProvider.h"
#include "ContentTableRecord.h"
#include "DeviceTableRecord.h"
#include "IContentDataProvider.h"
#include "IDeviceDataProvider.h"
#include "IServerDataProvider.h"
#include "IStatusSubDataProvider.h"
#include "ITicketDataProvider.h"
#include "ServerTableRecord.h"
#include "StatusSubTableRecord.h"
#include "TestSupport.h"
#include "TicketTableRecord.h"

namespace {

using testing_support::RawDb;

const std::wstring kHostile[] = {
    L"' OR 1=1 #",           // ends the literal, then a comment eats the rest
    L"x' OR '1'='1",         // ends the literal, then a condition true for every row
    L"\\' OR 1=1 -- ",       // a quote "escaped" by hand: ends the literal when backslashes are plain
    L"\" OR \"\"=\"",        // double quotes: strings or names, by ANSI_QUOTES
    L"a\\",                  // a trailing backslash
    L"'||'1",                // concatenation or OR, by PIPES_AS_CONCAT
    L"%_\\%\\_",             // LIKE wildcards, escaped and not
    L"Gr\u00FC\u00DFe \U0001F5A8",  // non-Latin-1 text, a 4-byte character
};

// The server options of each run.
std::string ServerOptions(const std::string& server) {
    if (server == "default") return "";
    if (server == "latin1") return "--character-set-server=latin1 --collation-server=latin1_swedish_ci";
    return "--sql-mode=" + server;
}

// A private server for this program alone, started before the store
// connects and stopped at the end (even when a case failed).
class PrivateServer : public ::testing::Environment {
public:
    void SetUp() override {
        const char* server = std::getenv("NORVA_INJECTION_SERVER");
        m_server = server ? server : "default";
        m_dir = "/tmp/ni-" + std::to_string(getpid());
        const std::string start = "bash " NORVA_SOURCE_DIR "/scripts/db-start.sh " + m_dir + " -- " +
                                  ServerOptions(m_server) + " >" + m_dir + ".log 2>&1";
        ASSERT_EQ(0, std::system(start.c_str())) << start;
        std::ifstream env(m_dir + "/env");
        ASSERT_TRUE(env.is_open());
        for (std::string line; std::getline(env, line);)
            if (line.find('=') != std::string::npos)
                setenv(line.substr(0, line.find('=')).c_str(), line.substr(line.find('=') + 1).c_str(), 1);
        ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(testing_support::DbHost()));
    }
    void TearDown() override {
        const std::string stop = "bash " NORVA_SOURCE_DIR "/scripts/db-kill.sh " + m_dir + " >/dev/null 2>&1; rm -rf " +
                                 m_dir + " " + m_dir + ".log";
        std::system(stop.c_str());
    }
    const std::string& Server() const { return m_server; }

private:
    std::string m_server;
    std::string m_dir;
};

PrivateServer* g_server = nullptr;

// Every row of the tables the cases touch, one text per row by key.
std::map<std::string, std::string> Rows(RawDb& db) {
    const char* const queries[] = {
        "SELECT GROUP_CONCAT(CONCAT_WS('|', 'T', QENTRYID, STATUSMSG, STATUS, JOBID, SENDERID, JDF) "
        "ORDER BY QENTRYID SEPARATOR '~') FROM JDFTICKET",
        "SELECT GROUP_CONCAT(CONCAT_WS('|', 'D', DEVICEID, STATUSMSG, DISPLAYNAME) ORDER BY DEVICEID SEPARATOR '~') "
        "FROM DEVICE",
        "SELECT GROUP_CONCAT(CONCAT_WS('|', 'S', ID, SENDERID, DEVICEID, URL) ORDER BY ID SEPARATOR '~') FROM STATSSUBS",
        "SELECT GROUP_CONCAT(CONCAT_WS('|', 'V', SERVERID, COMPNAME) ORDER BY SERVERID SEPARATOR '~') FROM SERVER",
        "SELECT GROUP_CONCAT(CONCAT_WS('|', 'C', CONTENTID, QENTRYID, RUN_ID) ORDER BY CONTENTID SEPARATOR '~') "
        "FROM CONTENT"};
    std::map<std::string, std::string> rows;
    for (const char* query : queries) {
        std::stringstream all(db.Scalar(query));
        std::string row;
        while (std::getline(all, row, '~'))
            if (row != "<null>") rows[row.substr(0, row.find('|', 2))] = row;
    }
    return rows;
}

// How many rows of `before` are gone or different in `after`.
int Changed(const std::map<std::string, std::string>& before, const std::map<std::string, std::string>& after) {
    int changed = 0;
    for (const auto& row : before) {
        const auto now = after.find(row.first);
        changed += now == after.end() || now->second != row.second;
    }
    return changed;
}

class InjectionTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.Reset({"JDFTICKET", "DEVICE", "STATSSUBS", "SERVER", "CONTENT"});
        // The sentinels: no call below addresses them.
        db.Exec("INSERT INTO JDFTICKET(QENTRYID, STATUSMSG, STATUS, JOBID, SENDERID, JDF) VALUES "
                "('S1', 'keep', 1, 'J1', 'P1', '<JDF/>'), ('S2', 'keep', 2, 'J2', 'P2', '<JDF/>')");
        db.Exec("INSERT INTO DEVICE(DEVICEID, STATUSMSG, DISPLAYNAME) VALUES ('D1', 'keep', 'one'), ('D2', 'keep', 'two')");
        db.Exec("INSERT INTO STATSSUBS(ID, SENDERID, DEVICEID, URL) VALUES (1, 'P1', 'D1', 'http://a'), "
                "(2, 'P2', 'D2', 'http://b')");
        db.Exec("INSERT INTO SERVER(SERVERID, COMPNAME) VALUES (1, 'one'), (2, 'two')");
        db.Exec("INSERT INTO CONTENT(CONTENTID, QENTRYID, RUN_ID) VALUES (1, 'S1', 'R1'), (2, 'S2', 'R2')");
        db.Exec("UPDATE MAXID SET JDFTICKET = 10, DEVICE = 10, STATSSUBS = 10, SERVER = 10, CONTENT = 10");
        sentinels = Rows(db);
    }
    int SentinelsChanged() { return Changed(sentinels, Rows(db)); }
    // What a profile's figure line says, for the exact profile's record.
    void Figure(const std::string& what, const std::wstring& text, int value) {
        std::printf("figure: server %s, profile %s, %s, text %s: %d\n", g_server->Server().c_str(),
                    testing_support::Safe() ? "safe" : "exact", what.c_str(),
                    StringUtils::UTF8FromUni(text).c_str(), value);
    }

    RawDb db;
    CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
    std::map<std::string, std::string> sentinels;
};

// A hostile key addressing rows: nothing is found, nothing changes.
TEST_F(InjectionTest, HostileKeysAddressNoOtherRow) {
    ITicketDataProvider* tickets = facade->GetTicketDataProvider();
    IDeviceDataProvider* devices = facade->GetDeviceDataProvider();
    IStatusSubDataProvider* subs = facade->GetStatusSubDataProvider();
    for (const std::wstring& key : kHostile) {
        SetUp();
        std::wstring part = L"none", found = L"none";
        tickets->UpdateTicketStatusMsg(key, L"pwned");
        tickets->UpdateTicketStatus(key, 99);
        tickets->UpdateJDF(key, L"<pwned/>");
        const bool matched = tickets->GetQentryID(key, key, part, found);
        tickets->RemoveTicket(key);
        DeviceTableRecord device;
        device.statusMsg = L"pwned";
        devices->UpdateDeviceRecord(key, device);
        devices->DeleteDevice(key);
        StatusSubTableRecord pattern;
        pattern.SENDERID = key;
        subs->RemoveRecords(pattern);
        const int changed = SentinelsChanged();
        Figure("sentinel rows changed by the key", key, changed);
        if (testing_support::Safe()) {
            EXPECT_EQ(0, changed) << StringUtils::UTF8FromUni(key);
            EXPECT_FALSE(matched);
            EXPECT_EQ(L"none", found);
        }
    }
    if (!testing_support::Safe()) {
        // The documented exact behaviour: this key rewrites every row.
        SetUp();
        tickets->UpdateTicketStatusMsg(L"' OR 1=1 #", L"pwned");
        EXPECT_EQ(2, db.Count("JDFTICKET", "STATUSMSG = 'pwned'"));
    }
}

// A hostile text as every text field of every record: written, read back
// exactly, and no other row touched.
TEST_F(InjectionTest, HostileValuesRoundTripThroughEveryRecord) {
    for (const std::wstring& value : kHostile) {
        SetUp();
        int exactFields = 0, fields = 0;
        const auto same = [&](const std::wstring& want, const std::wstring& got, const char* field) {
            ++fields;
            exactFields += want == got;
            if (testing_support::Safe()) EXPECT_EQ(want, got) << field << ": " << StringUtils::UTF8FromUni(value);
        };

        TicketTableRecord ticket, ticketBack;
        ticket.previewCachedFilePath = ticket.previewRemoteUrl = ticket.jdf = ticket.holdDevId = ticket.jmfRetUrl =
            ticket.uploadUrl = ticket.senderId = ticket.qsubsParams = ticket.statusMsg = ticket.jobId =
                ticket.jobPartId = value;
        ITicketDataProvider* tickets = facade->GetTicketDataProvider();
        const bool added = tickets->AddTicket(&ticket);
        if (testing_support::Safe()) ASSERT_TRUE(added);
        tickets->GetTicketRecord(ticket.qentryId, &ticketBack);
        for (const auto& field : {&TicketTableRecord::previewCachedFilePath, &TicketTableRecord::previewRemoteUrl,
                                  &TicketTableRecord::jdf, &TicketTableRecord::holdDevId, &TicketTableRecord::jmfRetUrl,
                                  &TicketTableRecord::uploadUrl, &TicketTableRecord::senderId,
                                  &TicketTableRecord::qsubsParams, &TicketTableRecord::statusMsg,
                                  &TicketTableRecord::jobId, &TicketTableRecord::jobPartId})
            same(value, ticketBack.*field, "ticket");
        // One column through the single-column path, on a sentinel row's neighbour.
        std::wstring message;
        tickets->UpdateTicketStatusMsg(ticket.qentryId, value + L"!");
        tickets->GetTicketStatusMsg(ticket.qentryId, message);
        same(value + L"!", message, "ticket STATUSMSG");

        // The device's key is the hostile text itself.
        DeviceTableRecord device, deviceBack;
        device.deviceId = device.devCaps = device.subUrl = device.interName = device.displayName = device.statusMsg =
            device.devCondition = value;
        IDeviceDataProvider* devices = facade->GetDeviceDataProvider();
        devices->AddDevice(&device);
        devices->GetDeviceRecord(value, &deviceBack);
        for (const auto& field : {&DeviceTableRecord::deviceId, &DeviceTableRecord::devCaps, &DeviceTableRecord::subUrl,
                                  &DeviceTableRecord::interName, &DeviceTableRecord::displayName,
                                  &DeviceTableRecord::statusMsg, &DeviceTableRecord::devCondition})
            same(value, deviceBack.*field, "device");

        ServerTableRecord server, serverBack;
        server.COMPNAME = server.STATMSG = server.LOGINPWD = server.LOGINSERNAME = server.SERIALNO = server.VERSION = value;
        IServerDataProvider* servers = facade->GetServerDataProvider();
        servers->AddServer(&server);
        servers->GetServerRecord(server.SERVERID, &serverBack);
        for (const auto& field : {&ServerTableRecord::COMPNAME, &ServerTableRecord::STATMSG, &ServerTableRecord::LOGINPWD,
                                  &ServerTableRecord::LOGINSERNAME, &ServerTableRecord::SERIALNO,
                                  &ServerTableRecord::VERSION})
            same(value, serverBack.*field, "server");

        ContentTableRecord content, contentBack;
        content.runId = content.qentryId = content.remoteUrl = content.cacFilePath = content.displayName =
            content.fileType = content.previewRemoteUrl = content.previewCacFilePath = value;
        IContentDataProvider* contents = facade->GetContentDataProvider();
        contents->AddRecord(&content);
        contents->GetRecord(content.contentId, &contentBack);
        std::wstring forward = value;  // cache paths are stored with forward slashes (P14)
        for (wchar_t& c : forward) c = c == L'\\' ? L'/' : c;
        same(forward, contentBack.cacFilePath, "content CACFILEPATH");
        same(forward, contentBack.previewCacFilePath, "content PREVIEWCACFILEPATH");
        for (const auto& field : {&ContentTableRecord::runId, &ContentTableRecord::qentryId,
                                  &ContentTableRecord::remoteUrl, &ContentTableRecord::displayName,
                                  &ContentTableRecord::fileType, &ContentTableRecord::previewRemoteUrl})
            same(value, contentBack.*field, "content");

        StatusSubTableRecord sub, subBack;
        sub.REFID = sub.URL = sub.STATSUBS = sub.LASTSIG = sub.DEVDETLEVEL = sub.JOBDETAIL = sub.DEVICEID =
            sub.QENTRYID = sub.JOBID = sub.JOBPARTID = sub.RESPONSE = sub.SENDERID = value;
        IStatusSubDataProvider* subs = facade->GetStatusSubDataProvider();
        subs->AddRecord(&sub);
        subs->GetRecord(subBack, value, value);
        for (const auto& field : {&StatusSubTableRecord::REFID, &StatusSubTableRecord::URL,
                                  &StatusSubTableRecord::STATSUBS, &StatusSubTableRecord::LASTSIG,
                                  &StatusSubTableRecord::DEVDETLEVEL, &StatusSubTableRecord::JOBDETAIL,
                                  &StatusSubTableRecord::DEVICEID, &StatusSubTableRecord::QENTRYID,
                                  &StatusSubTableRecord::JOBID, &StatusSubTableRecord::JOBPARTID,
                                  &StatusSubTableRecord::RESPONSE, &StatusSubTableRecord::SENDERID})
            same(value, subBack.*field, "subscription");

        const int changed = SentinelsChanged();
        Figure("fields read back exactly of " + std::to_string(fields), value, exactFields);
        Figure("sentinel rows changed by the values", value, changed);
        if (testing_support::Safe()) EXPECT_EQ(0, changed) << StringUtils::UTF8FromUni(value);
    }
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (const char* profile = std::getenv("NORVA_TEST_PROFILE")) ConfigurationControl::SetProfile(profile);
    g_server = new PrivateServer;
    ::testing::AddGlobalTestEnvironment(g_server);
    return RUN_ALL_TESTS();
}
