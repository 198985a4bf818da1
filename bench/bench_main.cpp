// Benchmarks of the ticket and status subscription providers against the
// bare connector sending the same statements (RawStore), each with the
// data layer's trace off and with it on, written to a file.
//
// NORVA_BENCH_ROUNDS (default 1) sets how often each one runs;
// NORVA_BENCH_CONNECTIONS (default 1) the library's Connections.
//
// Before an operation is timed, both sides run it once: the statements the
// raw side sends must be exactly those the library logged, and both must
// return the same result; otherwise the benchmark reports an error.
#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <list>
#include <map>
#include <mutex>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "BenchData.h"
#include "CDatabaseFactory.h"
#include "TupElement.h"
#include "dl_MultiValue.h"
#include "CStatusSubDataProvider.h"
#include "CTicketDataProvider.h"
#include "RawStore.h"

namespace {

using benchdata::Family;
using benchdata::Kind;

// Logger thresholds: the data layer writes every line at level 5.
const int kTraceOff = 3;
const int kTraceOn = 5;

// Seconds each repetition of a benchmark runs at least.
const double kMinTime = 0.3;

std::string g_logPath;

// The providers and the raw store, made on first use so that listing the
// benchmarks needs no server.
struct Sides {
    CTicketDataProvider* tickets;
    CStatusSubDataProvider* subs;
    RawStore* raw;
};

Sides& Get() {
    static Sides sides{new CTicketDataProvider(), new CStatusSubDataProvider(), new RawStore(benchdata::Host())};
    return sides;
}

// What one call produced.
struct Output {
    bool ok = false;
    int status = -1;
    TicketTableRecord rec;
    std::wstring jdf;
    std::list<std::wstring> ids;
    std::vector<StatusSubTableRecord> subs;
    std::vector<TicketTableRecord> tickets;
};

typedef std::function<void(int64_t iteration, Output& out)> Call;

struct Operation {
    std::string name;
    Family family;
    Call lib;
    Call raw;
    std::function<void(Output&)> prepare;      // before the first call (untimed)
    std::function<void(const Output&)> after;  // after each call (untimed)
    double minTime;
};

// --- checking both sides against each other ---------------------------------

void DigestTicket(std::wostringstream& d, const TicketTableRecord& r) {
    d << r.previewCachedFilePath << L'|' << r.previewRemoteUrl << L'|' << r.qentryId << L'|' << r.jdf.size() << L':'
      << std::hash<std::wstring>()(r.jdf) << L'|' << r.holdDevId << L'|' << r.jmfRetUrl << L'|' << r.uploadUrl
      << L'|' << r.senderId << L'|' << (r.subTime == TimeStamp(0)) << (r.lastUpdateTime == TimeStamp(0)) << L'|'
      << r.qsubsParams << L'|' << r.statusMsg << L'|' << r.status << L'|' << r.state << L'|' << r.jobId << L'|'
      << r.jobPartId << L'\n';
}

void DigestSub(std::wostringstream& d, const StatusSubTableRecord& s) {
    d << s.ID << L'|' << s.REFID << L'|' << s.URL << L'|' << s.STATSUBS << L'|' << s.LASTSIG << L'|'
      << (s.LASTUPDATE == TimeStamp(0)) << L'|' << s.DEVDETLEVEL << L'|' << s.JOBDETAIL << L'|' << s.QUEUEINFO << L'|'
      << s.EMPLOYEINFO << L'|' << s.DEVICEID << L'|' << s.QENTRYID << L'|' << s.JOBID << L'|' << s.JOBPARTID << L'|'
      << s.REPEATSTEP << L'|' << s.REPEATTIME << L'|' << s.RESPONSE << L'|' << s.SENDERID << L'\n';
}

std::wstring Digest(const Output& o) {
    std::wostringstream d;
    d << o.ok << L'|' << o.status << L'\n';
    DigestTicket(d, o.rec);
    d << o.jdf.size() << L':' << std::hash<std::wstring>()(o.jdf) << L'\n';
    for (const std::wstring& id : o.ids) d << id << L',';
    d << L'\n';
    for (const StatusSubTableRecord& s : o.subs) DigestSub(d, s);
    for (const TicketTableRecord& t : o.tickets) DigestTicket(d, t);
    return d.str();
}

bool IsStatement(const std::wstring& line) {
    for (const wchar_t* verb : {L"SELECT ", L"INSERT ", L"UPDATE ", L"DELETE "}) {
        if (line.compare(0, std::wcslen(verb), verb) == 0) return true;
    }
    return false;
}

std::string Shorten(const std::string& text) { return text.size() <= 160 ? text : text.substr(0, 160) + "..."; }

// The bytes the library's trace writes for one call of each operation, line
// by line, as Verify saw them.
std::map<std::string, std::vector<std::string>>& TraceLines() {
    static std::map<std::string, std::vector<std::string>> lines;
    return lines;
}

// Runs the operation once on each side from the same table state; returns
// an empty text when the raw side sent the library's statements and got the
// same result, else what differs (details on stderr).
std::string Verify(const Operation& op) {
    Logger* logger = Logger::Initialise();
    const int mark = benchdata::MaxId();
    std::vector<std::string> logged;
    std::vector<std::string>& traced = TraceLines()[op.name];
    traced.clear();
    logger->SetSink([&logged, &traced](LOG_CONST, const std::wstring& line) {
        traced.push_back(StringUtils::UTF8FromUni(line) + "\n");
        if (IsStatement(line)) logged.push_back(StringUtils::UTF8FromUni(line));
    });
    logger->SetLevel(kTraceOn);
    Output libOut;
    if (op.prepare) op.prepare(libOut);
    op.lib(0, libOut);
    logger->SetLevel(kTraceOff);
    logger->SetSink(Logger::Sink());
    if (op.after) op.after(libOut);
    benchdata::SetMaxId(mark);

    std::vector<std::string> sent;
    Output rawOut;
    if (op.prepare) op.prepare(rawOut);
    Get().raw->record = &sent;
    op.raw(0, rawOut);
    Get().raw->record = nullptr;
    if (op.after) op.after(rawOut);
    benchdata::SetMaxId(mark);

    if (logged != sent) {
        std::cerr << op.name << ": the raw side's statements differ from the library's\n";
        for (size_t i = 0; i < std::max(logged.size(), sent.size()); ++i) {
            const std::string a = i < logged.size() ? logged[i] : "<none>";
            const std::string b = i < sent.size() ? sent[i] : "<none>";
            std::cerr << (a == b ? "  = " : "  library: ") << Shorten(a) << "\n";
            if (a != b) std::cerr << "  raw:     " << Shorten(b) << "\n";
        }
        return "raw statements differ from the library's";
    }
    if (logged.empty()) return "the library logged no statement";
    if (Digest(libOut) != Digest(rawOut)) return "raw and library results differ";
    return "";
}

// --- measuring ------------------------------------------------------------

long FileSize(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 ? static_cast<long>(info.st_size) : 0;
}

// The CSV output takes its columns from the first benchmark: every benchmark
// sets all of these, the ones it does not measure to 0.
void ZeroCounters(benchmark::State& state) {
    for (const char* name : {"peak_MiB", "base_MiB", "log_bytes", "server_cpu_us", "client_cpu_us"})
        state.counters[name] = 0;
}

// The sides an operation is timed on: the library; the bare connector; the
// bare connector that also writes the library's trace lines for the call,
// one write(2) each, as the trace must (trace on only).
enum class Side { Library, Raw, RawWithTraceWrites };

void Measure(benchmark::State& state, const Operation& op, Side side, bool trace) {
    const bool library = side == Side::Library;
    Get();
    benchdata::Load(op.family);
    static std::map<std::string, std::string> verified;
    auto check = verified.find(op.name);
    if (check == verified.end()) check = verified.emplace(op.name, Verify(op)).first;
    if (!check->second.empty()) {
        state.SkipWithError(check->second.c_str());
        return;
    }

    const Call& call = library ? op.lib : op.raw;
    Output out;
    if (op.prepare) op.prepare(out);
    // The trace file is emptied before each run; it does not exist before the first line.
    if (trace && ::truncate(g_logPath.c_str(), 0) != 0 && errno != ENOENT) std::perror(g_logPath.c_str());
    benchdata::ResetPeakMemory();
    const double base = benchdata::ResidentMiB();
    Logger* logger = Logger::Initialise();
    logger->SetLevel(trace ? kTraceOn : kTraceOff);
    const std::vector<std::string> lines =
        side == Side::RawWithTraceWrites ? TraceLines()[op.name] : std::vector<std::string>();
    const int rawLog = lines.empty() ? -1
                                     : ::open((g_logPath + ".raw").c_str(),
                                              O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    int64_t iteration = 0;
    for (auto _ : state) {
        call(iteration++, out);
        for (const std::string& line : lines)
            if (::write(rawLog, line.data(), line.size()) < 0) state.SkipWithError("write failed");
        benchmark::DoNotOptimize(&out);
        if (op.after) {
            state.PauseTiming();
            op.after(out);
            state.ResumeTiming();
        }
    }
    logger->SetLevel(kTraceOff);
    if (rawLog >= 0) ::close(rawLog);
    ZeroCounters(state);
    state.counters["peak_MiB"] = benchdata::PeakMiB();
    state.counters["base_MiB"] = base;
    state.counters["log_bytes"] =
        benchmark::Counter(trace ? static_cast<double>(FileSize(g_logPath)) : 0.0, benchmark::Counter::kAvgIterations);
}

// --- the operations -------------------------------------------------------

std::vector<Operation>& Operations() {
    static std::vector<Operation> ops;
    if (!ops.empty()) return ops;

    static const std::wstring ticket = benchdata::kTicketKey;
    static const std::wstring bigJdf = benchdata::kBigJdfKey;
    const Family tickets{Kind::Tickets, 0};

    ops.push_back({"GetTicketStatus", tickets,
                   [](int64_t, Output& o) { o.ok = Get().tickets->GetTicketStatus(ticket, o.status); },
                   [](int64_t, Output& o) { o.ok = Get().raw->GetTicketStatus(ticket, o.status); }, nullptr, nullptr,
                   kMinTime});
    // Alternates between two values so that every update changes the row.
    ops.push_back({"UpdateTicketStatus", tickets,
                   [](int64_t i, Output& o) { o.ok = Get().tickets->UpdateTicketStatus(ticket, 2 - (i & 1)); },
                   [](int64_t i, Output& o) { o.ok = Get().raw->UpdateTicketStatus(ticket, 2 - (i & 1)); }, nullptr,
                   nullptr, kMinTime});
    ops.push_back({"GetTicketRecord", tickets,
                   [](int64_t, Output& o) { o.ok = Get().tickets->GetTicketRecord(ticket, &o.rec); },
                   [](int64_t, Output& o) { o.ok = Get().raw->GetTicketRecord(ticket, &o.rec); }, nullptr, nullptr,
                   kMinTime});
    ops.push_back({"GetJDF_1MiB", tickets, [](int64_t, Output& o) { o.ok = Get().tickets->GetJDF(bigJdf, o.jdf); },
                   [](int64_t, Output& o) { o.ok = Get().raw->GetJDF(bigJdf, o.jdf); }, nullptr, nullptr, kMinTime});
    ops.push_back({"GetAllQueueEntryIDs_10000", Family{Kind::QueueEntries, 10000},
                   [](int64_t, Output& o) { o.ids = Get().tickets->GetAllQueueEntryIDs(); },
                   [](int64_t, Output& o) { o.ids = Get().raw->GetAllQueueEntryIDs(); }, nullptr, nullptr, kMinTime});
    ops.push_back({"StatusSubGetRecords_1000", Family{Kind::Subscriptions, 1000},
                   [](int64_t, Output& o) {
                       o.subs.clear();
                       o.ok = Get().subs->GetRecords(false, o.subs);
                   },
                   [](int64_t, Output& o) {
                       o.subs.clear();
                       o.ok = Get().raw->GetStatusSubRecords(false, o.subs);
                   },
                   nullptr, nullptr, kMinTime});
    // Every ticket, whole, through the store's query object as a host would
    // read them: one query, then each record's elements into a record.
    ops.push_back({"TicketRecords_1001", tickets,
                   [](int64_t, Output& o) {
                       dl_MultiValue query;
                       query.InsertTickettype(1, TICKET_JDFTICKET);
                       query.InsertKeys(1, "JDFTICKET.*");
                       CDatabaseFactory::GetDatabaseInterface()->ExecuteQuery(&query);
                       o.tickets.clear();
                       std::list<TupElement*> row;
                       const int count = query.GetRecordCount();
                       // Every record has its columns in the same places: the
                       // field each place fills is found once, as the raw side
                       // finds its column positions once.
                       std::vector<RawStore::TicketField> fields;
                       for (int n = 0; n < count && query.GetRecord(n, row); ++n) {
                           TicketTableRecord rec;
                           if (fields.empty())
                               for (const TupElement* e : row) fields.push_back(RawStore::FindTicketField(e->name));
                           auto field = fields.begin();
                           for (const TupElement* e : row)
                               (field++)->Set(rec, e->type == PARAM_WSTRING ? static_cast<const wchar_t*>(e->value) : nullptr,
                                              e->type == PARAM_INT ? static_cast<const int*>(e->value) : nullptr);
                           rec.subTime = TimeStamp(0);
                           rec.lastUpdateTime = TimeStamp(0);
                           o.tickets.push_back(std::move(rec));
                       }
                       o.ok = count > 0;
                   },
                   [](int64_t, Output& o) {
                       o.tickets.clear();
                       o.ok = Get().raw->GetAllTicketRecords(o.tickets) && !o.tickets.empty();
                   },
                   nullptr, nullptr, kMinTime});
    // A full record added to a queue of `rows` entries; the new row is
    // deleted again (untimed) so that the queue keeps its size.
    for (int rows : {0, 1000, 10000, 100000}) {
        ops.push_back({"AddTicket_" + std::to_string(rows), Family{Kind::QueueEntries, rows},
                       [](int64_t, Output& o) {
                           o.rec.qentryId.clear();
                           o.ok = Get().tickets->AddTicket(&o.rec);
                       },
                       [](int64_t, Output& o) {
                           o.rec.qentryId.clear();
                           o.ok = Get().raw->AddTicket(&o.rec);
                       },
                       [](Output& o) { o.rec = benchdata::FullTicket(0); },
                       [](const Output& o) {
                           if (!o.rec.qentryId.empty()) benchdata::DeleteTicket(o.rec.qentryId);
                       },
                       rows >= 100000 ? 2 * kMinTime : kMinTime});
    }
    return ops;
}

// --- Logger::log alone -------------------------------------------------------

// One trace line per call, alternating between the two shapes the data layer
// writes most: a fixed text and a statement passed as %ls. The raw side
// writes the same bytes with one write(2) each to a file of its own.
const wchar_t* const kEntryLine = L"Inside CMysqlDatabaseInterface::GetParameter()";
const wchar_t* const kStatementLine = L"SELECT STATUS FROM JDFTICKET WHERE QENTRYID = '500'";

void MeasureLogLine(benchmark::State& state, bool library) {
    Logger* logger = Logger::Initialise();
    const std::string rawPath = g_logPath + ".raw";
    int rawFile = -1;
    if (library) {
        if (::truncate(g_logPath.c_str(), 0) != 0 && errno != ENOENT) std::perror(g_logPath.c_str());
        logger->SetLevel(kTraceOn);
    } else {
        rawFile = ::open(rawPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    }
    const std::string entry = StringUtils::UTF8FromUni(kEntryLine) + "\n";
    const std::string statement = StringUtils::UTF8FromUni(kStatementLine) + "\n";
    int64_t i = 0;
    for (auto _ : state) {
        const bool even = (i++ & 1) == 0;
        if (library) {
            if (even)
                logger->log(LOG_LEVEL_5, kEntryLine);
            else
                logger->log(LOG_LEVEL_5, L"%ls", kStatementLine);
        } else {
            const std::string& line = even ? entry : statement;
            if (::write(rawFile, line.data(), line.size()) < 0) state.SkipWithError("write failed");
        }
    }
    logger->SetLevel(kTraceOff);
    if (rawFile >= 0) ::close(rawFile);
    ZeroCounters(state);
    state.counters["peak_MiB"] = benchdata::PeakMiB();
}

// --- throughput from several threads ------------------------------------------

// How many connections the library was configured with (NORVA_BENCH_CONNECTIONS).
int g_connections = 1;
// Connections the bare connector's threads share in its own pooled run
// (NORVA_BENCH_POOL, default 4).
int g_sharedConnections = 4;

// CPU time (user + system, microseconds) of the database server, read from
// /proc/<pid>/stat with the pid from the server's directory; -1 when unknown.
double ServerCpuMicros() {
    const char* dir = std::getenv("NORVA_TEST_DB_DIR");
    if (dir == nullptr) return -1;
    std::ifstream pidFile(std::string(dir) + "/mysqld.pid");
    long pid = 0;
    if (!(pidFile >> pid)) return -1;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    const size_t close = text.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    unsigned long long user = 0, system = 0;
    for (int n = 3; n <= 15 && fields >> field; ++n) {  // fields 14 and 15: utime, stime
        if (n == 14) user = std::stoull(field);
        if (n == 15) system = std::stoull(field);
    }
    return 1e6 * static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

double ProcessCpuMicros() {
    struct rusage usage;
    ::getrusage(RUSAGE_SELF, &usage);
    return 1e6 * (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + usage.ru_utime.tv_usec + usage.ru_stime.tv_usec;
}

// The raw side's connections, one per benchmark thread.
RawStore& RawForThread(int index) {
    static std::mutex lock;
    static std::vector<std::unique_ptr<RawStore>> stores(64);
    std::lock_guard<std::mutex> guard(lock);
    if (!stores[index]) stores[index].reset(new RawStore(benchdata::Host()));
    return *stores[index];
}

// A lock per raw connection, for threads that share them.
std::mutex& RawLock(int index) {
    static std::mutex locks[64];
    return locks[index];
}

// Each thread reads or updates a ticket of its own (keys 500, 501, ...), so
// that no two wait for one row lock. The library shares its providers
// between the threads; the raw side has a connection per thread or, with
// `shared` connections, thread n uses connection n mod shared under its lock.
void MeasureThreads(benchmark::State& state, bool update, bool library, int shared = 0) {
    const int thread = state.thread_index();
    const std::wstring key = std::to_wstring(500 + thread);
    const int connection = shared > 0 ? thread % shared : thread;
    RawStore* raw = library ? nullptr : &RawForThread(connection);
    std::unique_lock<std::mutex> sharing(RawLock(connection), std::defer_lock);
    double serverBefore = 0, clientBefore = 0;
    if (thread == 0) {
        Get();
        benchdata::Load(Family{Kind::Tickets, 0});
        Logger::Initialise()->SetLevel(kTraceOff);
        serverBefore = ServerCpuMicros();
        clientBefore = ProcessCpuMicros();
    }
    int64_t i = 0;
    int status = 0;
    bool ok = true;
    for (auto _ : state) {
        if (shared > 0) sharing.lock();
        if (update) {
            const int value = 2 - (i++ & 1);
            ok &= library ? Get().tickets->UpdateTicketStatus(key, value) : raw->UpdateTicketStatus(key, value);
        } else {
            ok &= library ? Get().tickets->GetTicketStatus(key, status) : raw->GetTicketStatus(key, status);
        }
        if (shared > 0) sharing.unlock();
    }
    if (!ok) state.SkipWithError("an operation failed");
    state.SetItemsProcessed(state.iterations());
    if (thread == 0) {
        // Counters are summed over the threads: only the first one sets these.
        const double operations = static_cast<double>(state.iterations()) * state.threads();
        ZeroCounters(state);
        state.counters["server_cpu_us"] = (ServerCpuMicros() - serverBefore) / operations;
        state.counters["client_cpu_us"] = (ProcessCpuMicros() - clientBefore) / operations;
    }
}

// Each benchmark runs in `rounds` rounds; within a round of an operation
// and trace setting the library and the raw side run back to back, so that
// a change in the machine's load between rounds hits both alike.
void RegisterAll(int rounds) {
    for (const Operation& op : Operations()) {
        for (bool trace : {false, true}) {
            for (int round = 1; round <= rounds; ++round) {
                for (Side side : {Side::Library, Side::Raw, Side::RawWithTraceWrites}) {
                    if (side == Side::RawWithTraceWrites && !trace) continue;
                    const char* sideName = side == Side::Library ? "/lib" : side == Side::Raw ? "/raw" : "/rawlog";
                    const std::string name = op.name + sideName + (trace ? "/trace_on" : "/trace_off") +
                                             "/round:" + std::to_string(round);
                    const Operation* which = &op;
                    benchmark::RegisterBenchmark(name.c_str(),
                                                 [which, side, trace](benchmark::State& state) {
                                                     Measure(state, *which, side, trace);
                                                 })
                        ->UseRealTime()
                        ->Unit(benchmark::kMicrosecond)
                        ->MinTime(op.minTime);
                }
            }
        }
    }
    for (int round = 1; round <= rounds; ++round) {
        for (bool library : {true, false}) {
            const std::string name = std::string("LoggerLog") + (library ? "/lib" : "/raw") +
                                     "/trace_on/round:" + std::to_string(round);
            benchmark::RegisterBenchmark(name.c_str(), [library](benchmark::State& state) {
                MeasureLogLine(state, library);
            })->Unit(benchmark::kMicrosecond)->MinTime(kMinTime);
        }
        // The least any system call costs on this machine (getpid does no
        // work): the floor under a trace line that must be written at once.
        const std::string name = "SystemCall/raw/trace_on/round:" + std::to_string(round);
        benchmark::RegisterBenchmark(name.c_str(), [](benchmark::State& state) {
            for (auto _ : state) benchmark::DoNotOptimize(::syscall(SYS_getpid));
            ZeroCounters(state);
            state.counters["peak_MiB"] = benchdata::PeakMiB();
        })->Unit(benchmark::kMicrosecond)->MinTime(kMinTime);
    }
    // Named Threads<operation>_c<connections>_t<threads>/<side>; the raw
    // sides only in the run with one library connection: a connection per
    // thread, and the pool's number shared by more threads than that.
    for (bool update : {false, true}) {
        for (int threads : {1, 2, 4, 8}) {
            for (int round = 1; round <= rounds; ++round) {
                const auto add = [&](const char* side, int connections, bool library, int shared) {
                    const std::string name = std::string("Threads") +
                                             (update ? "UpdateTicketStatus" : "GetTicketStatus") + "_c" +
                                             std::to_string(connections) + "_t" + std::to_string(threads) + "/" +
                                             side + "/trace_off/round:" + std::to_string(round);
                    benchmark::RegisterBenchmark(name.c_str(), [update, library, shared](benchmark::State& state) {
                        MeasureThreads(state, update, library, shared);
                    })
                        ->Threads(threads)
                        ->UseRealTime()
                        ->Unit(benchmark::kMicrosecond)
                        ->MinTime(1.0);
                };
                add("lib", g_connections, true, 0);
                if (g_connections != 1) continue;
                add("raw", threads, false, 0);
                if (threads > g_sharedConnections) add("rawshared", g_sharedConnections, false, g_sharedConnections);
            }
        }
    }
}

// Points the library at the server and its log file before anything is made.
void ConfigureLibrary() {
    const char* log = std::getenv("NORVA_BENCH_LOG");
    char cwd[PATH_MAX];
    const std::string dir = ::getcwd(cwd, sizeof cwd) ? cwd : ".";
    g_logPath = log && *log ? log : dir + "/norva-bench.log";
    const std::string conf = dir + "/norva-bench.conf";
    {
        std::ofstream out(conf);
        const char* connections = std::getenv("NORVA_BENCH_CONNECTIONS");
        if (connections && std::atoi(connections) > 0) g_connections = std::atoi(connections);
        const char* pool = std::getenv("NORVA_BENCH_POOL");
        if (pool && std::atoi(pool) > 1 && std::atoi(pool) <= 64) g_sharedConnections = std::atoi(pool);
        out << "# written by norva_bench\nLogLevel = " << kTraceOff << "\nLogFile = " << g_logPath
            << "\nConnections = " << g_connections << "\n";
    }
    if (!ConfigurationControl::Load(conf)) {
        std::cerr << "norva_bench: cannot read " << conf << "\n";
        std::exit(1);
    }
    ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(benchdata::Host()));
    Logger::Initialise()->SetLevel(kTraceOff);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    ConfigureLibrary();
    const char* rounds = std::getenv("NORVA_BENCH_ROUNDS");
    RegisterAll(rounds && std::atoi(rounds) > 0 ? std::atoi(rounds) : 1);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
