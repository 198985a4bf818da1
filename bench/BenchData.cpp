#include "BenchData.h"

#include <StringUtils.h>
#include <cppconn/connection.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <malloc.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>

#include "RawStore.h"

namespace benchdata {

const wchar_t* const kTicketKey = L"500";
const wchar_t* const kBigJdfKey = L"1001";

namespace {

const int kTicketRows = 1000;
const size_t kRecordJdfBytes = 4096;
const size_t kBigJdfBytes = 1 << 20;
// Rows per INSERT statement; keeps each statement a few MiB at most.
const int kRowsPerInsert = 500;

sql::Connection& Admin() {
    static std::unique_ptr<sql::Connection> connection(ConnectLikeLibrary(Host()));
    return *connection;
}

std::optional<Family> g_loaded;

std::string Quoted(const std::wstring& text) { return "'" + StringUtils::UTF8FromUni(text) + "'"; }

std::wstring Number(int n) { return std::to_wstring(n); }

// Collects value tuples and sends them as multi-row INSERTs.
class BulkInsert {
public:
    BulkInsert(std::string head) : m_head(std::move(head)) {}
    ~BulkInsert() { Flush(); }
    void Add(const std::string& tuple) {
        m_text += m_count == 0 ? m_head + " VALUES " : ",";
        m_text += tuple;
        if (++m_count == kRowsPerInsert) Flush();
    }
    void Flush() {
        if (m_count > 0) Exec(m_text);
        m_text.clear();
        m_count = 0;
    }

private:
    std::string m_head;
    std::string m_text;
    int m_count = 0;
};

std::string TicketTuple(const std::wstring& key, const TicketTableRecord& rec) {
    std::ostringstream tuple;
    tuple << "(" << Quoted(key) << "," << Quoted(rec.previewCachedFilePath) << "," << Quoted(rec.previewRemoteUrl)
          << "," << Quoted(rec.jdf) << "," << Quoted(rec.holdDevId) << "," << Quoted(rec.jmfRetUrl) << ","
          << Quoted(rec.uploadUrl) << "," << Quoted(rec.senderId) << ",NOW(),NOW()," << Quoted(rec.qsubsParams) << ","
          << Quoted(rec.statusMsg) << "," << rec.status << "," << rec.state << "," << Quoted(rec.jobId) << ","
          << Quoted(rec.jobPartId) << ",1,0)";
    return tuple.str();
}

const char kTicketColumns[] =
    "INSERT INTO JDFTICKET (QENTRYID, PREVIEWCACHEDFILEPATH, PREVIEWREMOTEURL, JDF, HOLDDEVID, JMFRETURL, "
    "UPLOADURL, SENDERID, SUBTIME, LASTUPDATETIME, QSUBSPARAMS, STATUSMSG, STATUS, STATE, JOBID, JOBPARTID, "
    "PREVSTATE, JDFSENDSTATUS)";

void FillTickets() {
    BulkInsert insert(kTicketColumns);
    TicketTableRecord rec = FullTicket(0);
    for (int n = 1; n <= kTicketRows; ++n) {
        TicketTableRecord row = FullTicket(n);
        row.jdf = rec.jdf;  // the same 4 KiB text for every row
        insert.Add(TicketTuple(Number(n), row));
    }
    insert.Flush();
    TicketTableRecord big = FullTicket(kTicketRows + 1);
    big.jdf = MakeJdf(kBigJdfBytes);
    insert.Add(TicketTuple(kBigJdfKey, big));
    insert.Flush();
    SetMaxId(kTicketRows + 1);
}

void FillQueueEntries(int rows) {
    BulkInsert insert("INSERT INTO JDFTICKET (QENTRYID, HOLDDEVID, SENDERID, JOBID, STATUS, STATE)");
    for (int n = 1; n <= rows; ++n) {
        std::ostringstream tuple;
        tuple << "('" << n << "','DEV-" << n % 10 << "','SENDER-" << n % 5 << "','JOB-" << n << "',1,2)";
        insert.Add(tuple.str());
    }
    insert.Flush();
    SetMaxId(rows);
}

void FillSubscriptions(int rows) {
    BulkInsert insert(
        "INSERT INTO STATSSUBS (ID, REFID, URL, STATSUBS, LASTSIG, LASTUPDATE, DEVDETLEVEL, JOBDETAIL, QUEUEINFO, "
        "EMPLOYEINFO, DEVICEID, QENTRYID, JOBID, JOBPARTID, REPEATSTEP, REPEATTIME, RESPONSE, SENDERID, "
        "LASTSIGSENDSTATUS)");
    for (int n = 1; n <= rows; ++n) {
        const StatusSubTableRecord s = FullSubscription(n);
        std::ostringstream tuple;
        tuple << "(" << s.ID << "," << Quoted(s.REFID) << "," << Quoted(s.URL) << "," << Quoted(s.STATSUBS) << ","
              << Quoted(s.LASTSIG) << ",NOW()," << Quoted(s.DEVDETLEVEL) << "," << Quoted(s.JOBDETAIL) << ","
              << s.QUEUEINFO << "," << s.EMPLOYEINFO << "," << Quoted(s.DEVICEID) << "," << Quoted(s.QENTRYID) << ","
              << Quoted(s.JOBID) << "," << Quoted(s.JOBPARTID) << "," << s.REPEATSTEP << "," << s.REPEATTIME << ","
              << Quoted(s.RESPONSE) << "," << Quoted(s.SENDERID) << ",0)";
        insert.Add(tuple.str());
    }
    insert.Flush();
    Exec("UPDATE MAXID SET STATSSUBS=" + std::to_string(rows));
}

long StatusField(const char* name) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(name) + ":";
    while (std::getline(status, line))
        if (line.compare(0, prefix.size(), prefix) == 0) return std::strtol(line.c_str() + prefix.size(), nullptr, 10);
    return 0;
}

}  // namespace

std::string Host() {
    const char* host = std::getenv("NORVA_TEST_DB");
    return host && *host ? host : "tcp://127.0.0.1:3306";
}

void Exec(const std::string& statement) {
    std::unique_ptr<sql::Statement> s(Admin().createStatement());
    // A result must be taken at once, or the next statement is refused.
    if (s->execute(statement)) std::unique_ptr<sql::ResultSet>(s->getResultSet());
}

int MaxId() {
    std::unique_ptr<sql::Statement> s(Admin().createStatement());
    std::unique_ptr<sql::ResultSet> rows(s->executeQuery("SELECT JDFTICKET FROM MAXID"));
    return rows->next() ? rows->getInt(1) : 0;
}

void SetMaxId(int value) { Exec("UPDATE MAXID SET JDFTICKET=" + std::to_string(value)); }

void DeleteTicket(const std::wstring& qentryId) { Exec("DELETE FROM JDFTICKET WHERE QENTRYID=" + Quoted(qentryId)); }

void Load(const Family& family) {
    if (g_loaded && *g_loaded == family) return;
    g_loaded.reset();
    Exec("DELETE FROM JDFTICKET");  // the account may not TRUNCATE (DROP right)
    Exec("DELETE FROM STATSSUBS");
    Exec("UPDATE MAXID SET JDFTICKET=0, CONTENT=0, DEVICEJOB=0, STATSSUBS=0, SERVER=0, DEVICE=0, LOG=0");
    switch (family.kind) {
        case Kind::Tickets: FillTickets(); break;
        case Kind::QueueEntries: FillQueueEntries(family.rows); break;
        case Kind::Subscriptions: FillSubscriptions(family.rows); break;
    }
    // Read the tables once and give the server's background flushing of the
    // fill a moment, so that it does not land on the first benchmark.
    Exec("SELECT COUNT(*) FROM JDFTICKET");
    Exec("SELECT COUNT(*) FROM STATSSUBS");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    g_loaded = family;
}

void Invalidate() { g_loaded.reset(); }

std::wstring MakeJdf(size_t bytes) {
    const std::wstring head =
        L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        L"<JDF ID=\"n0001\" Type=\"Product\" JobID=\"JOB-1\" Status=\"Waiting\" Version=\"1.3\">\n"
        L"<ResourcePool>\n";
    const std::wstring tail = L"</ResourcePool>\n</JDF>\n";
    std::wstring text = head;
    for (int n = 1;; ++n) {
        const std::wstring line = L"<Component ID=\"C" + Number(n) +
                                  L"\" Class=\"Quantity\" ComponentType=\"Sheet\" Amount=\"1000\" "
                                  L"Status=\"Available\" Dimensions=\"595.28 841.89 0.1\"/>\n";
        if (text.size() + line.size() + tail.size() > bytes) break;
        text += line;
    }
    if (text.size() + tail.size() < bytes) text.append(bytes - text.size() - tail.size(), L' ');
    text += tail;
    text.resize(bytes);  // only for sizes below the fixed head and tail
    return text;
}

TicketTableRecord FullTicket(int n) {
    const std::wstring k = Number(n);
    TicketTableRecord rec;
    rec.previewCachedFilePath = L"/var/spool/norva/preview/" + k + L".png";
    rec.previewRemoteUrl = L"http://previews.local/q/" + k + L".png";
    rec.jdf = MakeJdf(kRecordJdfBytes);
    rec.holdDevId = L"DEV-" + Number(n % 10);
    rec.jmfRetUrl = L"http://sender.local:8080/jmf/" + k;
    rec.uploadUrl = L"http://sender.local:8080/upload/" + k;
    rec.senderId = L"SENDER-" + Number(n % 5);
    rec.subTime = TimeStamp(1);
    rec.lastUpdateTime = TimeStamp(1);
    rec.qsubsParams = L"<QueueSubmissionParams ReturnJMF=\"http://sender.local:8080/jmf/" + k +
                      L"\" Priority=\"50\" Hold=\"false\"/>";
    rec.statusMsg = L"Waiting in queue";
    rec.status = 1;
    rec.state = 2;
    rec.jobId = L"JOB-" + k;
    rec.jobPartId = L"PART-1";
    return rec;
}

StatusSubTableRecord FullSubscription(int n) {
    const std::wstring k = Number(n);
    StatusSubTableRecord s;
    s.ID = n;
    s.REFID = L"SUB-" + k;
    s.URL = L"http://subscriber.local:9090/signal/" + k;
    s.STATSUBS = L"<Subscription URL=\"http://subscriber.local:9090/signal/" + k +
                 L"\" RepeatTime=\"30\" ChannelMode=\"FireAndForget\"><ObservationTarget ObservationPath=\"*\"/>"
                 L"</Subscription>";
    s.LASTSIG.assign(600, L'x');
    s.LASTSIG = L"<Signal ID=\"S" + k + L"\" Type=\"Status\"><DeviceInfo DeviceStatus=\"Running\">" + s.LASTSIG +
                L"</DeviceInfo></Signal>";
    s.DEVDETLEVEL = L"Brief";
    s.JOBDETAIL = L"Full";
    s.QUEUEINFO = 1;
    s.EMPLOYEINFO = 0;
    s.DEVICEID = L"DEV-" + Number(n % 10);
    s.QENTRYID = k;
    s.JOBID = L"JOB-" + k;
    s.JOBPARTID = L"PART-1";
    s.REPEATSTEP = 1;
    s.REPEATTIME = 30;
    s.RESPONSE = L"<Response ID=\"R" + k + L"\" Type=\"Status\" ReturnCode=\"0\" refID=\"SUB-" + k + L"\"/>";
    s.SENDERID = L"SENDER-" + Number(n % 5);
    return s;
}

void ResetPeakMemory() {
    malloc_trim(0);
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
}

double PeakMiB() { return StatusField("VmHWM") / 1024.0; }

double ResidentMiB() { return StatusField("VmRSS") / 1024.0; }

}  // namespace benchdata
