// The safe profile against the exact one and the bare connector. The profile
// is read once per process, so scripts/run-bench.sh runs this program twice
// in one run (NORVA_BENCH_PROFILE=exact, then safe) and sets the two side by
// side. The raw side is a connection of its own sending what the safe profile
// sends for the same call: for AddTicket the three statements (raise and read
// MAXID, insert the row), for the reads one SELECT.
#include <ConfigurationControl.h>
#include <StringUtils.h>
#include <benchmark/benchmark.h>
#include <cppconn/connection.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "BenchData.h"
#include "CTicketDataProvider.h"
#include "RawStore.h"

namespace {

const char* Profile() {
    const char* profile = std::getenv("NORVA_BENCH_PROFILE");
    return profile ? profile : "exact";
}

CTicketDataProvider& Tickets() {
    static CTicketDataProvider* tickets = [] {
        ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(benchdata::Host()));
        ConfigurationControl::SetProfile(Profile());
        return new CTicketDataProvider();
    }();
    return *tickets;
}

sql::Connection& Raw() {
    static sql::Connection* connection = ConnectLikeLibrary(benchdata::Host());
    return *connection;
}

void RawRun(const std::string& text) {
    std::unique_ptr<sql::Statement> statement(Raw().createStatement());
    if (statement->execute(text)) std::unique_ptr<sql::ResultSet> rows(statement->getResultSet());
}

int RawInt(const std::string& text) {
    std::unique_ptr<sql::Statement> statement(Raw().createStatement());
    std::unique_ptr<sql::ResultSet> rows(statement->executeQuery(text));
    return rows->next() ? rows->getInt(1) : -1;
}

std::string Quoted(const std::wstring& text) { return "'" + StringUtils::UTF8FromUni(text) + "'"; }

// The safe profile's INSERT of a full record, as its trace shows it.
std::string InsertText(int id, const TicketTableRecord& r) {
    std::ostringstream text;
    text << "INSERT INTO `JDFTICKET` (`QENTRYID`, `JDF`, `HOLDDEVID`, `JMFRETURL`, `PREVIEWCACHEDFILEPATH`, "
            "`PREVIEWREMOTEURL`, `UPLOADURL`, `SENDERID`, `SUBTIME`, `LASTUPDATETIME`, `QSUBSPARAMS`, `STATUSMSG`, "
            "`STATUS`, `STATE`, `JOBID`, `JOBPARTID`) VALUES ('"
         << id << "', " << Quoted(r.jdf) << ", " << Quoted(r.holdDevId) << ", " << Quoted(r.jmfRetUrl) << ", "
         << Quoted(r.previewCachedFilePath) << ", " << Quoted(r.previewRemoteUrl) << ", " << Quoted(r.uploadUrl)
         << ", " << Quoted(r.senderId) << ", '2026-11-24 09:00:00', '2026-11-24 09:00:00', " << Quoted(r.qsubsParams)
         << ", " << Quoted(r.statusMsg) << ", '" << r.status << "', '" << r.state << "', " << Quoted(r.jobId) << ", "
         << Quoted(r.jobPartId) << ")";
    return text.str();
}

TicketTableRecord Record() {
    TicketTableRecord rec = benchdata::FullTicket(7);
    TimeStamp stamp(0);
    stamp.year = 2026, stamp.month = 11, stamp.day = 24, stamp.hour = 9;
    rec.subTime = rec.lastUpdateTime = stamp;
    return rec;
}

// A full-record AddTicket with `rows` queue entries in the table; the new row
// is removed with the clock stopped, so the table keeps its size.
void AddTicket(benchmark::State& state, bool raw) {
    benchdata::Load({benchdata::Kind::QueueEntries, static_cast<int>(state.range(0))});
    const TicketTableRecord full = Record();
    for (auto _ : state) {
        std::wstring key;
        if (raw) {
            RawRun("UPDATE `MAXID` SET `JDFTICKET` = LAST_INSERT_ID(GREATEST(`JDFTICKET`, 0) + 1)");
            const int id = RawInt("SELECT LAST_INSERT_ID()");
            RawRun(InsertText(id, full));
            key = std::to_wstring(id);
        } else {
            TicketTableRecord rec = full;
            if (!Tickets().AddTicket(&rec)) state.SkipWithError("AddTicket failed");
            key = rec.qentryId;
        }
        state.PauseTiming();
        benchdata::DeleteTicket(key);
        state.ResumeTiming();
    }
}

void Read(benchmark::State& state, bool raw, bool record) {
    benchdata::Load({benchdata::Kind::Tickets, 1000});
    const std::string text = record ? "SELECT `JDFTICKET`.* FROM `JDFTICKET` WHERE ( `JDFTICKET`.`QENTRYID` = '500' ) "
                                    : "SELECT `STATUS` FROM `JDFTICKET` WHERE `QENTRYID` = '500'";
    for (auto _ : state) {
        if (raw) {
            std::unique_ptr<sql::Statement> statement(Raw().createStatement());
            std::unique_ptr<sql::ResultSet> rows(statement->executeQuery(text));
            while (rows->next()) benchmark::DoNotOptimize(rows->getString(1));
        } else if (record) {
            TicketTableRecord rec;
            if (!Tickets().GetTicketRecord(L"500", &rec)) state.SkipWithError("GetTicketRecord failed");
        } else {
            int status = -1;
            if (!Tickets().GetTicketStatus(L"500", status)) state.SkipWithError("GetTicketStatus failed");
        }
    }
}

void Register() {
    const std::string lib = std::string("/") + Profile();
    for (int rows : {0, 10000, 100000}) {
        benchmark::RegisterBenchmark(("AddTicket_" + std::to_string(rows) + lib).c_str(),
                                     [](benchmark::State& s) { AddTicket(s, false); })
            ->Arg(rows)->UseRealTime()->MinTime(0.5);
        benchmark::RegisterBenchmark(("AddTicket_" + std::to_string(rows) + "/raw").c_str(),
                                     [](benchmark::State& s) { AddTicket(s, true); })
            ->Arg(rows)->UseRealTime()->MinTime(0.5);
    }
    for (bool record : {false, true}) {
        const std::string name = record ? "GetTicketRecord" : "GetTicketStatus";
        benchmark::RegisterBenchmark((name + lib).c_str(), [record](benchmark::State& s) { Read(s, false, record); })
            ->UseRealTime()->MinTime(0.5);
        benchmark::RegisterBenchmark((name + "/raw").c_str(), [record](benchmark::State& s) { Read(s, true, record); })
            ->UseRealTime()->MinTime(0.5);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Register();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
