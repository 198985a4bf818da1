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
#include <ConfigurationControl.h>
#include <StringUtils.h>
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "BenchData.h"
#include "CDataAccessProvider.h"

namespace {

std::string Hosts() {
    const char* hosts = std::getenv("NORVA_BENCH_HOSTS");
    return hosts && *hosts ? hosts : benchdata::Host();
}

int JobsPerProcess() {
    const char* jobs = std::getenv("NORVA_BENCH_JOBS");
    return jobs && std::atoi(jobs) > 0 ? std::atoi(jobs) : 200;
}

// The host list with its k-th host first.
std::string Rotated(int k) {
    std::vector<std::string> hosts;
    const std::string list = Hosts();
    for (size_t start = 0; start <= list.size();) {
        size_t end = list.find(',', start);
        if (end == std::string::npos) end = list.size();
        hosts.push_back(list.substr(start, end - start));
        start = end + 1;
    }
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

// Runs `work` count times in each of `processes` child processes at once;
// returns the seconds from the first start to the last end, or -1 when a
// call failed or a process did not end well.
double InProcesses(int processes, const std::string& profile, int count, const std::function<bool(int, int)>& work) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<pid_t> children;
    for (int k = 0; k < processes; ++k) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(Rotated(k)));
            ConfigurationControl::SetProfile(profile);
            bool ok = true;
            for (int n = 0; n < count; ++n) ok = work(k, n) && ok;
            std::_Exit(ok ? 0 : 1);
        }
        children.push_back(pid);
    }
    bool ok = true;
    for (pid_t pid : children) {
        int status = 0;
        ok = ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0 && ok;
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return ok ? elapsed.count() : -1;
}

void EmptyTables() {
    benchdata::Exec("DELETE FROM JDFTICKET");
    benchdata::SetMaxId(0);
}

void Jobs(benchmark::State& state, int processes, const std::string& profile) {
    const int jobs = JobsPerProcess();
    for (auto _ : state) {
        EmptyTables();
        const double seconds = InProcesses(processes, profile, jobs, [](int k, int n) { return Job(k * 100000 + n); });
        if (seconds < 0) state.SkipWithError("a call failed");
        state.SetIterationTime(seconds < 0 ? 1 : seconds);
    }
    state.counters["jobs_per_s"] = benchmark::Counter(processes * jobs, benchmark::Counter::kIsRate);
}

void Commit(benchmark::State& state, const std::string& profile) {
    constexpr int kUpdates = 500;
    for (auto _ : state) {
        EmptyTables();
        const double seconds = InProcesses(1, profile, kUpdates + 1, [](int, int n) {
            static TicketTableRecord rec = benchdata::FullTicket(1);
            return n == 0 ? Tickets()->AddTicket(&rec) : Tickets()->UpdateTicketStatus(rec.qentryId, n);
        });
        if (seconds < 0) state.SkipWithError("a call failed");
        state.SetIterationTime(seconds < 0 ? 1 : seconds / kUpdates);
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const std::string profile : {"exact", "safe"}) {
        for (int processes : {1, 3})
            benchmark::RegisterBenchmark(("Jobs/" + profile + "/processes:" + std::to_string(processes)).c_str(), Jobs,
                                         processes, profile)
                ->UseManualTime()->Iterations(1)->Repetitions(3)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Commit/" + profile).c_str(), Commit, profile)
            ->UseManualTime()->Iterations(1)->Repetitions(3)->Unit(benchmark::kMicrosecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
