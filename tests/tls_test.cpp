// TLS against real servers: a private server of this program's own started
// with scripts/db-start.sh --tls (require_secure_transport on), and the
// suite's plain server. Each case runs the library in a process of its own
// (the store reads the settings once). Every mode works with the right CA,
// and each refusal is proven: a CA other than the server's, a certificate
// for another name, a plain server, a plain client. A packet capture in a
// network namespace of the test's own shows that nothing crosses in clear.
#include <ConfigurationControl.h>
#include <cppconn/resultset.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CDataAccessProvider.h"
#include "CMysqlDatabaseInterface.h"
#include "DatabaseConnection.h"
#include "StringUtils.h"
#include "TestSupport.h"
#include "private/ConnectOptions.h"

using testing_support::ChildRun;
using testing_support::InChild;

namespace {

int Shell(const std::string& command) { return std::system(("bash -c '" + command + "' >/dev/null 2>&1").c_str()); }

std::string Script(const char* name) { return std::string(NORVA_SOURCE_DIR) + "/scripts/" + name; }

// KEY=VALUE lines of a server's env file.
std::map<std::string, std::string> ReadEnv(const std::string& dir) {
    std::map<std::string, std::string> env;
    std::ifstream in(dir + "/env");
    for (std::string line; std::getline(in, line);)
        if (line.find('=') != std::string::npos) env[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    return env;
}

// The TLS server of this program, and a CA that did not sign its certificate.
struct TlsServer {
    std::string dir, host, ca, cert, key, otherCA;
};
TlsServer g_tls;

class TlsServerEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        char dir[] = "/tmp/norvatls.XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(dir));
        g_tls.dir = dir;
        ASSERT_EQ(0, Shell("bash " + Script("db-start.sh") + " --tls " + g_tls.dir)) << "db-start.sh --tls failed";
        std::map<std::string, std::string> env = ReadEnv(g_tls.dir);
        g_tls.host = env["NORVA_TEST_DB"], g_tls.ca = env["NORVA_TEST_DB_CA"];
        g_tls.cert = env["NORVA_TEST_DB_CERT"], g_tls.key = env["NORVA_TEST_DB_KEY"];
        g_tls.otherCA = g_tls.dir + "/other/ca.pem";
        ASSERT_EQ(0, Shell(". " + Script("db-common.sh") + " && db_make_ca " + g_tls.dir + "/other"));
    }
    void TearDown() override {
        if (g_tls.dir.empty()) return;
        Shell("bash " + Script("db-stop.sh") + " " + g_tls.dir);
        Shell("rm -rf " + g_tls.dir);
    }
};

// The connection's TLS cipher as the server reports it for the library's own connection.
std::string SessionCipher() {
    std::string query = "SHOW SESSION STATUS LIKE 'Ssl_cipher'";
    std::unique_ptr<sql::ResultSet> rows(CDatabaseConnection::m_hInstance->ExecuteSqlQuery(query));
    return rows && rows->next() ? std::string(rows->getString(2)) : "<none>";
}

struct Tls {
    const char* mode;
    std::string ca, cert, key;
};

void Configure(const std::string& host, const Tls& tls) {
    ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(host));
    ConfigurationControl::SetDBTLS(tls.mode);
    ConfigurationControl::SetDBTLSCA(tls.ca);
    ConfigurationControl::SetDBTLSCert(tls.cert);
    ConfigurationControl::SetDBTLSKey(tls.key);
}

// A read of row C1 (status 4) through the store on `host` with these TLS
// settings, as DBUser with DBPasswordFile when a user is given: true when it ran.
ChildRun ReadOver(const std::string& host, const Tls& tls, const std::string& user = "", const std::string& file = "") {
    return InChild([&] {
        Configure(host, tls);
        if (!user.empty()) ConfigurationControl::SetDBUser(user), ConfigurationControl::SetDBPasswordFile(file);
        int status = -1;
        return testing_support::ReadStatusOfC1(status) && status == 4;
    });
}

// One write and one read through each provider, each value read back.
bool EveryProviderWorks() {
    CDataAccessProvider* facade = CDataAccessProvider::GetInstance();
    ServerTableRecord server;
    server.COMPNAME = L"tls-server";
    ServerTableRecord serverBack;
    bool ok = facade->GetServerDataProvider()->AddServer(&server) &&
              facade->GetServerDataProvider()->GetServerRecord(server.SERVERID, &serverBack) &&
              serverBack.COMPNAME == L"tls-server";
    DeviceTableRecord device, deviceBack;
    device.deviceId = L"tls-dev", device.serverId = server.SERVERID, device.displayName = L"Presse \u00fc";
    ok = ok && facade->GetDeviceDataProvider()->AddDevice(&device) &&
         facade->GetDeviceDataProvider()->GetDeviceRecord(L"tls-dev", &deviceBack) &&
         deviceBack.displayName == L"Presse \u00fc";
    TicketTableRecord ticket;
    ticket.jdf = L"<JDF ID=\"tls-1\"/>", ticket.holdDevId = L"tls-dev";
    std::wstring jdf;
    ok = ok && facade->GetTicketDataProvider()->AddTicket(&ticket) &&
         facade->GetTicketDataProvider()->GetJDF(ticket.qentryId, jdf) && jdf == ticket.jdf;
    ContentTableRecord content;
    content.qentryId = ticket.qentryId, content.displayName = L"a.pdf";
    std::vector<ContentTableRecord> contents;
    ok = ok && facade->GetContentDataProvider()->AddRecord(&content) &&
         facade->GetContentDataProvider()->GetRecords(ticket.qentryId, contents) && contents.size() == 1 &&
         contents[0].displayName == L"a.pdf";
    StatusSubTableRecord sub;
    sub.DEVICEID = L"tls-dev", sub.URL = L"http://tls/sub";
    int before = -1, after = -1;
    ok = ok && facade->GetStatusSubDataProvider()->GetRecordsCount(before) &&
         facade->GetStatusSubDataProvider()->AddRecord(&sub) &&
         facade->GetStatusSubDataProvider()->GetRecordsCount(after) && after == before + 1;
    return ok && SessionCipher().size() > 3;
}

class Tls_ : public ::testing::Test {
protected:
    void SetUp() override {
        if (g_tls.host.empty()) GTEST_SKIP() << "no TLS server";
        // The admin reaches the TLS server over its socket, which is exempt from require_secure_transport.
        for (const std::string& dir : {g_tls.dir, testing_support::DbDir()}) {
            const std::string client = "mariadb --no-defaults -S " + dir + "/mysqld.sock jdfdb -e ";
            Shell(client + "\"DELETE FROM JDFTICKET; DELETE FROM CONTENT; DELETE FROM DEVICE; DELETE FROM SERVER; "
                           "DELETE FROM STATSSUBS; INSERT INTO JDFTICKET (QENTRYID, STATUS) VALUES (\\\"C1\\\", 4)\"");
        }
    }
};

// The server's certificate names 127.0.0.1; "localhost" reaches the same server by another name.
std::string ByName() { return "tcp://localhost:" + g_tls.host.substr(g_tls.host.rfind(':') + 1); }

TEST_F(Tls_, WithTheRightCaEveryModeEncryptsAndEveryProviderWorks) {
    for (const char* mode : {"required", "verify-ca", "verify-identity"}) {
        const ChildRun run = InChild([&] {
            Configure(g_tls.host, {mode, std::string(mode) == "required" ? "" : g_tls.ca, "", ""});
            return EveryProviderWorks();
        });
        EXPECT_TRUE(run.result) << mode << ": " << run;
        Tls_::SetUp();
    }
    const ChildRun ca = ReadOver(ByName(), {"verify-ca", g_tls.ca, "", ""});
    EXPECT_TRUE(ca.result) << "verify-ca checks the signature, not the name: " << ca;
}

// Each refusal with the lines it logs: a CA other than the server's, a
// certificate for another name (verify-identity only), a plain server asked
// for TLS, a plain client of a server that requires it, and settings that
// cannot work, refused before the server is asked. No statement runs.
TEST_F(Tls_, EveryRefusalIsLoggedAndRunsNoStatement) {
    const std::string plain = testing_support::DbHost(), tls = g_tls.host;
    const struct { std::string host; Tls tls; std::vector<std::string> logged; const char* notLogged; } cases[] = {
        {tls, {"verify-ca", g_tls.otherCA, "", ""},
         {"ERROR: DBTLS = verify-ca: TLS/SSL error: self-signed certificate in certificate chain", "MySQL error code: 2026"}, ""},
        {tls, {"verify-identity", g_tls.otherCA, "", ""},
         {"ERROR: DBTLS = verify-identity: TLS/SSL error: self-signed certificate in certificate chain",
          "MySQL error code: 2026"}, ""},
        {ByName(), {"verify-identity", g_tls.ca, "", ""},
         {"ERROR: DBTLS = verify-identity: TLS/SSL error: Validation of SSL server certificate failed"}, ""},
        {plain, {"required", "", "", ""}, {"ERROR: DBTLS = required: the server did not encrypt the connection"}, ""},
        {plain, {"verify-ca", g_tls.ca, "", ""}, {"ERROR: DBTLS = verify-ca: the server did not encrypt the connection"}, ""},
        {plain, {"verify-identity", g_tls.ca, "", ""},
         {"ERROR: DBTLS = verify-identity: TLS/SSL error: SSL is required, but the server does not support it"}, ""},
        {tls, {"off", "", "", ""},
         {"ERROR: Access denied for user 'lumbo27'@'127.0.0.1' (using password: YES)", "MySQL error code: 1045"}, ""},
        {tls, {"verify-everything", "", "", ""},
         {"DBTLS = \"verify-everything\" cannot be understood: off, required, verify-ca or verify-identity"},
         "MySQL error code: 1045"},
        {tls, {"verify-ca", "", "", ""}, {"DBTLS = \"verify-ca\" needs DBTLSCA"}, "MySQL error code: 1045"},
        {tls, {"off", g_tls.ca, "", ""}, {"DBTLSCA is set but DBTLS does not check the server's certificate"},
         "MySQL error code: 1045"},
        {tls, {"verify-identity", g_tls.ca, g_tls.cert, ""}, {"DBTLSCert and DBTLSKey go together"}, "MySQL error code: 1045"},
        {tls, {"verify-identity", "/nonexistent/ca.pem", "", ""},
         {"DBTLSCA = \"/nonexistent/ca.pem\" cannot be read: No such file or directory"}, "MySQL error code: 1045"},
    };
    for (const auto& c : cases) {
        const ChildRun run = ReadOver(c.host, c.tls);
        EXPECT_FALSE(run.result) << c.logged[0] << "\n" << run;
        for (const std::string& line : c.logged) EXPECT_TRUE(run.Logged(line)) << line << "\n" << run;
        EXPECT_TRUE(!*c.notLogged || !run.Logged(c.notLogged)) << "the server was asked: " << run;
        EXPECT_FALSE(run.Logged("SELECT STATUS FROM JDFTICKET WHERE QENTRYID = 'C1'") &&
                     run.Logged("ExecuteSqlQuery::Getting result set"))
            << "a statement ran: " << run;
    }
}

TEST_F(Tls_, ClientCertificateIsPresented) {
    Shell("mariadb --no-defaults -S " + g_tls.dir +
          "/mysqld.sock -e \"CREATE USER IF NOT EXISTS lumbo27x509@\\\"%\\\" IDENTIFIED BY \\\"x\\\" REQUIRE X509;"
          " GRANT SELECT ON jdfdb.* TO lumbo27x509@\\\"%\\\"\"");
    std::ofstream("x509-password") << "x\n";
    chmod("x509-password", 0600);
    const ChildRun with = ReadOver(g_tls.host, {"verify-identity", g_tls.ca, g_tls.cert, g_tls.key}, "lumbo27x509", "x509-password");
    EXPECT_TRUE(with.result) << with;
    const ChildRun without = ReadOver(g_tls.host, {"verify-identity", g_tls.ca, "", ""}, "lumbo27x509", "x509-password");
    EXPECT_FALSE(without.result) << without;
    EXPECT_TRUE(without.Logged("MySQL error code: 1045")) << without;
}

// Warned at start-up: the safe profile sending in clear text beyond this machine.
TEST_F(Tls_, SafeProfileWarnsOfClearTextBeyondThisMachine) {
    const ChildRun run = InChild([] {
        ConfigurationControl::SetProfile("safe");
        ConfigurationControl::SetDBIPAddr(L"tcp://127.0.0.1:3306, tcp://db2.example:3306, unix:///run/m.sock");
        const std::vector<std::string> lines = ConnectionWarnings(ReadStoreSettings());
        ConfigurationControl::SetProfile("exact");  // logs nothing new
        return lines.size() == 1 && lines[0].find("tcp://db2.example:3306 is not on this machine") != std::string::npos &&
               ConnectionWarnings(ReadStoreSettings()).empty();
    });
    EXPECT_TRUE(run.result) << run;
}

// With required, the connector may not reconnect by itself (it would skip the
// encryption check): after a server restart the library opens a new
// connection, checked again.
TEST_F(Tls_, RequiredReconnectsThroughTheCheckAfterARestart) {
    const ChildRun run = InChild([] {
        Configure(g_tls.host, {"required", "", "", ""});
        int status = -1;
        if (!testing_support::ReadStatusOfC1(status)) return false;
        if (Shell("bash " + Script("db-kill.sh") + " " + g_tls.dir + " && bash " + Script("db-start.sh") + " " +
                  g_tls.dir) != 0)
            return false;
        for (int call = 0; call < 3; ++call)
            if (testing_support::ReadStatusOfC1(status)) return status == 4 && SessionCipher().size() > 3;
        return false;
    });
    EXPECT_TRUE(run.result) << run;
}

// ---- what crosses the wire ----

// tcpdump on `lo` of the current network namespace into `file`, until
// StopCapture: started when it says it listens. Without --immediate-mode,
// packets still in the kernel's buffer when it stops are never written.
void StartCapture(const std::string& file, const std::string& port) {
    Shell("tcpdump --immediate-mode -i lo -U -s 0 -w " + file + " tcp port " + port + " 2>" + file + ".err & echo $! >" +
          file + ".pid; for i in {1..200}; do grep -q \"listening on\" " + file + ".err && break; sleep 0.05; done");
}

// Stops the capture (its last packets written), killing it after 5 s.
void StopCapture(const std::string& file) {
    Shell("p=$(cat " + file + ".pid) && [[ $(cat /proc/$p/comm) == tcpdump ]] && kill -INT $p && "
          "for i in {1..100}; do kill -0 $p || exit 0; sleep 0.05; done; kill -9 $p");
}

bool FileHolds(const std::string& file, const std::string& text) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {}).find(text) != std::string::npos;
}

void Note(const std::string& text) { Logger::Initialise()->log(LOG_LEVEL_5, L"capture: %s", text.c_str()); }

const char kCapturePassword[] = "Cap-Pw-83hdq1";

// Inside a network namespace of its own: a TLS server on its `lo` that also
// takes plain clients, an account with a password file, and one AddTicket
// with a recognisable JDF per way of connecting, each captured by tcpdump.
// Notes "MODE traffic=0|1 jdf=0|1 password=0|1" for each (traffic: more
// than 2,000 bytes captured).
bool CaptureInNamespace(const std::string& dir) {
    if (unshare(CLONE_NEWNET) != 0 || Shell("ip link set lo up") != 0) return Note("no network namespace"), false;
    if (Shell("bash " + Script("db-start.sh") + " --tls " + dir + " -- --require-secure-transport=OFF >" + dir +
              "/start.log 2>&1") != 0) {
        std::ifstream log(dir + "/start.log");
        return Note("the server did not start: " + std::string(std::istreambuf_iterator<char>(log), {})), false;
    }
    std::map<std::string, std::string> env = ReadEnv(dir);
    const std::string host = env["NORVA_TEST_DB"], port = host.substr(host.rfind(':') + 1);
    Shell("mariadb --no-defaults -S " + dir + "/mysqld.sock -e \"CREATE USER capture@\\\"%\\\" IDENTIFIED BY \\\"" +
          kCapturePassword + "\\\"; GRANT SELECT, INSERT, UPDATE, DELETE ON jdfdb.* TO capture@\\\"%\\\"\"");
    const std::string passwordFile = dir + "/capture-password";
    std::ofstream(passwordFile) << kCapturePassword << "\n";
    chmod(passwordFile.c_str(), 0600);
    for (const Tls& tls : {Tls{"verify-identity", env["NORVA_TEST_DB_CA"], "", ""}, Tls{"off", "", "", ""}}) {
        const std::string file = dir + "/" + tls.mode + ".pcap", marker = std::string("capture-marker-") + tls.mode;
        StartCapture(file, port);
        const ChildRun run = InChild([&] {
            Configure(host, tls);
            ConfigurationControl::SetDBUser("capture");
            ConfigurationControl::SetDBPasswordFile(passwordFile);
            TicketTableRecord ticket;
            ticket.jdf = L"<JDF ID=\"" + StringUtils::wstringFromstring(marker) + L"\" DescriptiveName=\"Müller\"/>";
            std::wstring back;
            ITicketDataProvider* tickets = CDataAccessProvider::GetInstance()->GetTicketDataProvider();
            return tickets->AddTicket(&ticket) && tickets->GetJDF(ticket.qentryId, back) && back == ticket.jdf;
        });
        StopCapture(file);
        if (!run.result) return Note(std::string(tls.mode) + ": AddTicket failed"), false;
        std::ifstream captured(file, std::ios::binary | std::ios::ate);
        Note(std::string(tls.mode) + " traffic=" + (captured.tellg() > 2000 ? "1" : "0") +
             " jdf=" + (FileHolds(file, marker) ? "1" : "0") + " password=" + (FileHolds(file, kCapturePassword) ? "1" : "0"));
    }
    return true;
}

TEST(Capture, NeitherJdfNorPasswordCrossInClearOverTls) {
    if (geteuid() != 0 || Shell("command -v tcpdump && command -v ip") != 0)
        GTEST_SKIP() << "needs root and tcpdump (scripts/install-deps.sh)";
    char dir[] = "/tmp/norvacap.XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    const ChildRun run = InChild([&] { return CaptureInNamespace(dir); }, 90);
    // Whatever happened in the child: its server and tcpdump are stopped.
    Shell("bash " + Script("db-stop.sh") + " " + dir);
    for (const char* mode : {"verify-identity", "off"}) StopCapture(std::string(dir) + "/" + mode + ".pcap");
    Shell(std::string("rm -rf ") + dir);
    ASSERT_TRUE(run.result) << run;
    EXPECT_TRUE(run.Logged("capture: verify-identity traffic=1 jdf=0 password=0")) << run;
    // The same capture of a plain connection holds the JDF: the capture sees the traffic.
    EXPECT_TRUE(run.Logged("capture: off traffic=1 jdf=1 password=0")) << run;
}

const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new TlsServerEnvironment);

}  // namespace
