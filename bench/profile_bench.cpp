// The safe profile against the exact one and the bare connector. The profile
// is read once per process, so scripts/run-bench.sh runs this program twice
// in one run (NORVA_BENCH_PROFILE=exact, then safe) and sets the two side by
// side. The raw side is a connection of its own running the safe profile's
// own prepared statements for the same call, each prepared once and its
// values bound: for AddTicket the three statements (raise and read MAXID,
// insert the row), for the reads one SELECT.
#include <ConfigurationControl.h>
#include <StringUtils.h>
#include <benchmark/benchmark.h>
#include <cppconn/connection.h>
#include <cppconn/prepared_statement.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>

#include <cstdlib>
#include <map>
#include <memory>
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

// The raw side's prepared statements, by text, each prepared once.
sql::PreparedStatement& Prepared(const std::string& text) {
    static std::map<std::string, std::unique_ptr<sql::PreparedStatement>> prepared;
    std::unique_ptr<sql::PreparedStatement>& statement = prepared[text];
    if (!statement) statement.reset(Raw().prepareStatement(text));
    return *statement;
}

std::string Utf8(const std::wstring& text) { return StringUtils::UTF8FromUni(text); }

// The safe profile's INSERT of a full record, with its values bound as the profile binds them.
void RawInsert(int id, const TicketTableRecord& r) {
    sql::PreparedStatement& insert = Prepared(
        "INSERT INTO `JDFTICKET` (`QENTRYID`, `JDF`, `HOLDDEVID`, `JMFRETURL`, `PREVIEWCACHEDFILEPATH`, "
        "`PREVIEWREMOTEURL`, `UPLOADURL`, `SENDERID`, `SUBTIME`, `LASTUPDATETIME`, `QSUBSPARAMS`, `STATUSMSG`, "
        "`STATUS`, `STATE`, `JOBID`, `JOBPARTID`) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    const std::string texts[] = {std::to_string(id), Utf8(r.jdf), Utf8(r.holdDevId), Utf8(r.jmfRetUrl),
                                 Utf8(r.previewCachedFilePath), Utf8(r.previewRemoteUrl), Utf8(r.uploadUrl),
                                 Utf8(r.senderId), "2026-11-24 09:00:00", "2026-11-24 09:00:00", Utf8(r.qsubsParams),
                                 Utf8(r.statusMsg)};
    unsigned int index = 1;
    for (const std::string& text : texts) insert.setString(index++, text);
    insert.setInt(index++, r.status);
    insert.setInt(index++, r.state);
    insert.setString(index++, Utf8(r.jobId));
    insert.setString(index++, Utf8(r.jobPartId));
    insert.executeUpdate();
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
            Prepared("UPDATE `MAXID` SET `JDFTICKET` = LAST_INSERT_ID(GREATEST(`JDFTICKET`, 0) + 1)").executeUpdate();
            std::unique_ptr<sql::ResultSet> last(Prepared("SELECT LAST_INSERT_ID()").executeQuery());
            const int id = last->next() ? last->getInt(1) : -1;
            RawInsert(id, full);
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
    const std::string text = record ? "SELECT `JDFTICKET`.* FROM `JDFTICKET` WHERE ( `JDFTICKET`.`QENTRYID` = ? ) "
                                    : "SELECT `STATUS` FROM `JDFTICKET` WHERE `QENTRYID` = ?";
    for (auto _ : state) {
        if (raw) {
            sql::PreparedStatement& select = Prepared(text);
            select.setString(1, "500");
            std::unique_ptr<sql::ResultSet> rows(select.executeQuery());
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
