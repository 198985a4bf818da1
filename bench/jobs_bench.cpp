// Throughput of host processes sharing one database: each process makes
// jobs (a full-record AddTicket and two status updates) through the facade,
// all processes at once, and the figure is jobs per second over all of them.
//
// The database is NORVA_BENCH_HOSTS (a DBIPAddr value; process k puts the
// k-th host of the list first) or else NORVA_TEST_DB. NORVA_BENCH_JOBS
// (default 200) sets the jobs per process. The tables are emptied before
// every repetition, so AddTicket always starts from an empty queue.
//
// Commit/<profile> is one process's status update alone: the cost of one
// committed statement on this database, which tells where a job's time goes.
// Read/<profile> is one process's status read alone; on a cluster, the safe
// profile's reads wait for the writes the cluster committed before them.
//
// With several hosts (a cluster), Cluster/safe/writes:one and writes:any run
// 3 processes in the safe profile, either all given the same list and
// writing through its first node (ClusterWrites = one) or each with its own
// node first (any). Counted besides jobs per second: write sets that failed
// certification and local transactions aborted by a replicated one, over all
// nodes (wsrep_local_cert_failures, wsrep_local_bf_aborts), and jobs with a
// call that still returned false after the store's reruns.
#include <ConfigurationControl.h>
#include <StringUtils.h>
#include <benchmark/benchmark.h>
#include <cppconn/connection.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BenchData.h"
#include "CDataAccessProvider.h"
#include "RawStore.h"

namespace {

std::string Hosts() {
    const char* hosts = std::getenv("NORVA_BENCH_HOSTS");
    return hosts && *hosts ? hosts : benchdata::Host();
}

int JobsPerProcess() {
    const char* jobs = std::getenv("NORVA_BENCH_JOBS");
    return jobs && std::atoi(jobs) > 0 ? std::atoi(jobs) : 200;
}

std::vector<std::string> HostList() {
    std::vector<std::string> hosts;
    const std::string list = Hosts();
    for (size_t start = 0; start <= list.size();) {
        size_t end = list.find(',', start);
        if (end == std::string::npos) end = list.size();
        hosts.push_back(list.substr(start, end - start));
        start = end + 1;
    }
    return hosts;
}

// The host list with its k-th host first.
std::string Rotated(int k) {
    const std::vector<std::string> hosts = HostList();
    std::string rotated;
    for (size_t i = 0; i < hosts.size(); ++i) rotated += (i ? "," : "") + hosts[(k + i) % hosts.size()];
    return rotated;
}

ITicketDataProvider* Tickets() { return CDataAccessProvider::GetInstance()->GetTicketDataProvider(); }

// One job: a full record added, then two status updates. True when every call was.
bool Job(int n) {
    TicketTableRecord rec = benchdata::FullTicket(n);
    return Tickets()->AddTicket(&rec) && Tickets()->UpdateTicketStatus(rec.qentryId, 1) &&
           Tickets()->UpdateTicketStatus(rec.qentryId, 2);
}

// How the processes of a run are set up: the profile, ClusterWrites (empty:
// not set) and whether every process gets the same host list.
struct Setup {
    std::string profile, writes;
    bool sameList;
};

// What a run of processes gave: seconds from the first start to the last
// end, the calls of `work` that returned false, and whether every process ended well.
struct Run {
    double seconds;
    int failed;
    bool ended;
};

// Runs `work` count times in each of `processes` child processes at once.
Run InProcesses(int processes, const Setup& setup, int count, const std::function<bool(int, int)>& work) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<pid_t> children;
    for (int k = 0; k < processes; ++k) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(setup.sameList ? Hosts() : Rotated(k)));
            ConfigurationControl::SetProfile(setup.profile);
            if (!setup.writes.empty()) ConfigurationControl::SetClusterWrites(setup.writes);
            int failed = 0;
            for (int n = 0; n < count; ++n) failed += !work(k, n);
            std::_Exit(std::min(failed, 100));
        }
        children.push_back(pid);
    }
    Run run{0, 0, true};
    for (pid_t pid : children) {
        int status = 0;
        const bool ended = ::waitpid(pid, &status, 0) == pid && WIFEXITED(status);
        run.ended = run.ended && ended;
        run.failed += ended ? WEXITSTATUS(status) : 0;
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return run;
}

void EmptyTables() {
    benchdata::Exec("DELETE FROM JDFTICKET");
    benchdata::SetMaxId(0);
}

void Jobs(benchmark::State& state, int processes, const std::string& profile) {
    const int jobs = JobsPerProcess();
    for (auto _ : state) {
        EmptyTables();
        const Run run = InProcesses(processes, {profile, "", false}, jobs,
                                    [](int k, int n) { return Job(k * 100000 + n); });
        if (run.failed > 0 || !run.ended) state.SkipWithError("a call failed");
        state.SetIterationTime(run.seconds);
    }
    state.counters["jobs_per_s"] = benchmark::Counter(processes * jobs, benchmark::Counter::kIsRate);
}

// One process: a ticket added, then `calls` single-row calls on it, each
// timed as one iteration.
void OneRowCalls(benchmark::State& state, const std::string& profile, const std::function<bool(int, int)>& call) {
    constexpr int kCalls = 500;
    for (auto _ : state) {
        EmptyTables();
        const Run run = InProcesses(1, {profile, "", true}, kCalls + 1, call);
        if (run.failed > 0 || !run.ended) state.SkipWithError("a call failed");
        state.SetIterationTime(run.seconds / kCalls);
    }
}

TicketTableRecord& OneTicket() {
    static TicketTableRecord rec = benchdata::FullTicket(1);
    return rec;
}

void Commit(benchmark::State& state, const std::string& profile) {
    OneRowCalls(state, profile, [](int, int n) {
        return n == 0 ? Tickets()->AddTicket(&OneTicket()) : Tickets()->UpdateTicketStatus(OneTicket().qentryId, n);
    });
}

void Read(benchmark::State& state, const std::string& profile) {
    OneRowCalls(state, profile, [](int, int n) {
        int status = -1;
        return n == 0 ? Tickets()->AddTicket(&OneTicket()) : Tickets()->GetTicketStatus(OneTicket().qentryId, status);
    });
}

// A status counter summed over every node of the host list.
long long OverNodes(const std::string& name) {
    static std::map<std::string, std::unique_ptr<sql::Connection>> nodes;
    long long sum = 0;
    for (const std::string& host : HostList()) {
        std::unique_ptr<sql::Connection>& node = nodes[host];
        if (!node) node.reset(ConnectLikeLibrary(host));
        std::unique_ptr<sql::Statement> statement(node->createStatement());
        std::unique_ptr<sql::ResultSet> row(statement->executeQuery("SHOW GLOBAL STATUS LIKE '" + name + "'"));
        sum += row->next() ? std::stoll(row->getString(2)) : 0;
    }
    return sum;
}

void ClusterJobs(benchmark::State& state, const std::string& writes) {
    constexpr int kProcesses = 3;
    const int jobs = JobsPerProcess();
    for (auto _ : state) {
        EmptyTables();
        const long long certBefore = OverNodes("wsrep_local_cert_failures");
        const long long abortsBefore = OverNodes("wsrep_local_bf_aborts");
        const Run run = InProcesses(kProcesses, {"safe", writes, writes == "one"}, jobs,
                                    [](int k, int n) { return Job(k * 100000 + n); });
        if (!run.ended) state.SkipWithError("a process did not end well");
        state.SetIterationTime(run.seconds);
        state.counters["cert_failures"] = static_cast<double>(OverNodes("wsrep_local_cert_failures") - certBefore);
        state.counters["bf_aborts"] = static_cast<double>(OverNodes("wsrep_local_bf_aborts") - abortsBefore);
        state.counters["false_jobs"] = run.failed;
    }
    state.counters["jobs_per_s"] = benchmark::Counter(kProcesses * jobs, benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
    for (const std::string profile : {"exact", "safe"}) {
        for (int processes : {1, 3})
            benchmark::RegisterBenchmark(("Jobs/" + profile + "/processes:" + std::to_string(processes)).c_str(), Jobs,
                                         processes, profile)
                ->UseManualTime()->Iterations(1)->Repetitions(3)->Unit(benchmark::kMillisecond);
        for (auto kind : {std::make_pair("Commit/", Commit), std::make_pair("Read/", Read)})
            benchmark::RegisterBenchmark((kind.first + profile).c_str(), kind.second, profile)
                ->UseManualTime()->Iterations(1)->Repetitions(3)->Unit(benchmark::kMicrosecond);
    }
    if (HostList().size() > 1)
        for (const std::string writes : {"one", "any"})
            benchmark::RegisterBenchmark(("Cluster/safe/writes:" + writes).c_str(), ClusterJobs, writes)
                ->UseManualTime()->Iterations(1)->Repetitions(10)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
