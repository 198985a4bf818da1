// Eight threads share the facade for a few seconds, each adding, reading,
// updating and removing tickets, devices, status subscriptions and job sender
// pairs while the others do the same. A watchdog aborts the test instead of
// letting a deadlock hang it; afterwards no error line was logged, no
// identifier was handed out twice, and every row kept reads back whole.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "CDataAccessProvider.h"
#include "StringUtils.h"
#include "TestSupport.h"

namespace {

constexpr int kThreads = 8;
constexpr int kMinOperations = 40;  // per thread, however slow the server commits

// A row a thread added: its identifier, the tag and serial it was made from,
// and the serial of its last update (0: none). The expected record follows from these.
struct Live { std::wstring id, tag; int n, updated; };

// One kind of row: Make builds the record of a tag, Change sets what an update
// changes (in the change sent and in the expected record alike), Fields lists
// what round-trips (time stamps do not: the store cannot write a DATETIME).
struct Ticket {
    using Rec = TicketTableRecord;
    static ITicketDataProvider* P() { return CDataAccessProvider::GetInstance()->GetTicketDataProvider(); }
    static Rec Make(const std::wstring& t, int n) {
        return Rec{L"/cache/" + t, L"http://preview/" + t, L"", L"<JDF ID=\"" + t + L"\">" +
                   std::wstring(3000 + n, L'\u00e4') + L"</JDF>", L"hold-" + t, L"http://ret/" + t,
                   L"http://up/" + t, L"sender-" + t, TimeStamp(0), TimeStamp(0), L"q=" + t,
                   L"Stra\u00dfe " + t, n % 50, n % 7, L"job-" + t, L"part-" + t};
    }
    static void Change(Rec& r, int n) { r.holdDevId = L"hold2-" + std::to_wstring(n), r.status = n; }
    static auto Fields(const Rec& r) {
        return std::tie(r.previewCachedFilePath, r.previewRemoteUrl, r.jdf, r.holdDevId, r.jmfRetUrl, r.uploadUrl,
                        r.senderId, r.qsubsParams, r.statusMsg, r.status, r.state, r.jobId, r.jobPartId);
    }
    static bool Add(Rec& r, std::wstring& id) { return P()->AddTicket(&r) && !(id = r.qentryId).empty(); }
    static bool Read(const Live& l, Rec& r) { return P()->GetTicketRecord(l.id, &r) && r.qentryId == l.id; }
    static bool Update(const Live& l, const Rec& change) { return P()->UpdateTicketRecord(l.id, change); }
    static bool Remove(const Live& l) { return P()->RemoveTicket(l.id); }
};

struct Device {
    using Rec = DeviceTableRecord;
    static IDeviceDataProvider* P() { return CDataAccessProvider::GetInstance()->GetDeviceDataProvider(); }
    // conditionCode stays unset (the server refuses "SET CONDITION").
    static Rec Make(const std::wstring& t, int n) {
        return Rec{100 + n % 9, L"dev-" + t, -1, std::wstring(2000 + n, L'\u00e9'), L"http://sub/" + t, n,
                   L"inter-" + t, L"\u00c9tage " + t, n % 6, L"ready " + t, L"ok-" + t, -1, n % 3, TimeStamp(0), L""};
    }
    static void Change(Rec& r, int n) { r.devCaps = L"caps " + std::to_wstring(n), r.status = n; }
    static auto Fields(const Rec& r) {
        return std::tie(r.serverId, r.devCaps, r.subUrl, r.devIndex, r.interName, r.displayName, r.status,
                        r.statusMsg, r.devCondition, r.deviceOpMode);
    }
    static bool Add(Rec& r, std::wstring& id) { return !(id = r.deviceId).empty() && P()->AddDevice(&r); }
    static bool Read(const Live& l, Rec& r) { return P()->GetDeviceRecord(l.id, &r) && r.deviceId == l.id; }
    static bool Update(const Live& l, const Rec& change) { return P()->UpdateDeviceRecord(l.id, change); }
    static bool Remove(const Live& l) { return P()->DeleteDevice(l.id); }
};

struct Subscription {
    using Rec = StatusSubTableRecord;
    static IStatusSubDataProvider* P() { return CDataAccessProvider::GetInstance()->GetStatusSubDataProvider(); }
    static Rec Make(const std::wstring& t, int n) {
        return Rec{-1, L"ref-" + t, L"http://sig/" + t, L"<Subs " + t + L"/>", L"<Sig/>", TimeStamp(0), L"Brief",
                   L"Full", n % 2, 1, L"sdev-" + t, L"sq-" + t, L"sjob-" + t, L"spart-" + t, n % 4, 30 + n,
                   L"resp \u00fc " + t, L"ssender-" + t};
    }
    static void Change(Rec& r, int n) { r.URL = L"http://sig2/" + std::to_wstring(n), r.REPEATTIME = n; }
    static auto Fields(const Rec& r) {
        return std::tie(r.REFID, r.URL, r.STATSUBS, r.LASTSIG, r.DEVDETLEVEL, r.JOBDETAIL, r.QUEUEINFO,
                        r.EMPLOYEINFO, r.DEVICEID, r.QENTRYID, r.JOBID, r.JOBPARTID, r.REPEATSTEP, r.REPEATTIME,
                        r.RESPONSE, r.SENDERID);
    }
    static bool Add(Rec& r, std::wstring& id) {
        return P()->AddRecord(&r) && r.ID > 0 && !(id = std::to_wstring(r.ID)).empty();
    }
    // No read by id: the rows of its own queue entry, which must be this one alone.
    static bool Read(const Live& l, Rec& r) {
        std::vector<Rec> rows;
        return P()->GetRecords(L"sq-" + l.tag, L"", L"", L"", true, rows) && rows.size() == 1 &&
               std::to_wstring((r = rows[0]).ID) == l.id;
    }
    static bool Update(const Live& l, const Rec& change) { return P()->UpdateRecord(std::stoi(l.id), change); }
    static bool Remove(const Live& l) { return P()->DeleteRecord(std::stoi(l.id)); }
};

struct JobSender {
    using Rec = CJobSenderData;
    static IJobSenderDataProvider* P() { return CDataAccessProvider::GetInstance()->GetJobSenderDataProvider(); }
    static Rec Make(const std::wstring& t, int) { return Rec(L"query-" + t, L"http://sender/" + t); }
    static void Change(Rec&, int) {}  // an update adds the same pair again, which is kept once
    static auto Fields(const Rec& r) { return std::tie(r.queryId, r.url); }
    static bool Add(Rec& r, std::wstring& id) { return P()->AddRecord(r), !(id = r.queryId).empty(); }
    // Found by its query id, then by its URL.
    static bool Read(const Live& l, Rec& r) { return P()->GetRecordByQueryId(l.id, r) && P()->GetRecord(r.url, r); }
    static bool Update(const Live& l, const Rec&) { Rec r = Make(l.tag, 0); return P()->AddRecord(r), true; }
    static bool Remove(const Live& l) { Rec r = Make(l.tag, 0); return P()->DeleteRecord(r); }
};

// What a thread does with a row. "whole": it reads back equal to what was
// written; a removed row no longer reads.
enum Action { kAdd, kWhole, kUpdate, kRemove };
template <class K>
bool Run(Action action, Live& l, int n) {
    typename K::Rec rec = K::Make(l.tag, l.n), back;
    if (l.updated) K::Change(rec, l.updated);
    switch (action) {
        case kAdd: return K::Add(rec, l.id);
        case kWhole: return K::Read(l, back) && K::Fields(back) == K::Fields(rec);
        case kUpdate: K::Change(back, l.updated = n); return K::Update(l, back);
        default: return K::Remove(l) && !K::Read(l, back);
    }
}

// The kinds, walked alike by every thread.
const struct Kind {
    const char* name;
    bool (*run)(Action, Live&, int);
} kKinds[] = {{"ticket", Run<Ticket>}, {"device", Run<Device>}, {"subscription", Run<Subscription>},
              {"job sender", Run<JobSender>}};
constexpr int kKindCount = sizeof kKinds / sizeof kKinds[0];

// What one thread did: the rows it keeps, by kind, every identifier it was
// handed, and what went wrong.
struct Worker {
    std::vector<Live> live[kKindCount];
    std::vector<std::pair<int, std::wstring>> ids;
    std::vector<std::string> failures;
};

const char* const kActionNames[] = {"add", "read", "update", "remove"};

void Work(int t, Worker& w, const std::atomic<bool>& stop) {
    std::mt19937 rng(1000 + t);
    for (int n = 1; !stop || n <= kMinOperations; ++n) {
        const int k = rng() % kKindCount, dice = rng() % 10;
        std::vector<Live>& rows = w.live[k];
        const bool add = rows.empty() || (dice < 3 && rows.size() < 6);
        const Action action = add ? kAdd : dice < 6 ? kWhole : dice < 8 ? kUpdate : kRemove;
        Live fresh{L"", L"t" + std::to_wstring(t) + L"-" + std::to_wstring(n), n, 0};
        Live& l = add ? fresh : rows[rng() % rows.size()];
        if (!kKinds[k].run(action, l, n) || ((add || action == kUpdate) && !kKinds[k].run(kWhole, l, n)))
            w.failures.push_back(std::string(kKinds[k].name) + " " + kActionNames[action] + " failed");
        if (add && !l.id.empty()) w.ids.emplace_back(k, l.id), rows.push_back(l);
        if (action == kRemove) l = rows.back(), rows.pop_back();  // l is not used after this
    }
}

TEST(Concurrency, EightThreadsThroughTheFacade) {
    testing_support::RawDb().Reset({"JDFTICKET", "DEVICE", "STATSSUBS"});
    std::remove("./QueryURL");
    CDataAccessProvider::GetInstance();  // the first call is not synchronised: made before the threads start

    testing_support::Watchdog watchdog;

    // Error lines only are kept (the sink runs under the logger's lock).
    std::vector<std::wstring> errors;
    Logger* logger = Logger::Initialise();
    logger->SetLevel(5);
    logger->SetSink([&errors](LOG_CONST, const std::wstring& line) {
        for (const wchar_t* mark : {L"xception", L"rror", L"Fail", L"failed", L"not available", L"Unknown"})
            if (line.find(mark) != std::wstring::npos) return errors.push_back(line);
    });
    std::vector<Worker> workers(kThreads);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back(Work, t, std::ref(workers[t]), std::cref(stop));
    std::this_thread::sleep_for(std::chrono::seconds(4));
    stop = true;
    for (std::thread& thread : threads) thread.join();
    logger->SetSink(nullptr);
    EXPECT_TRUE(errors.empty()) << errors.size() << " error lines, the first: "
                                << StringUtils::stringFromwstring(errors.empty() ? L"" : errors[0]);

    // No identifier was handed out twice; every row kept reads back whole.
    std::set<std::pair<int, std::wstring>> ids;
    for (Worker& w : workers) {
        for (const auto& id : w.ids)
            EXPECT_TRUE(ids.insert(id).second) << "handed out twice: " << StringUtils::stringFromwstring(id.second);
        for (int k = 0; k < kKindCount; ++k)
            for (Live& l : w.live[k])
                EXPECT_TRUE(kKinds[k].run(kWhole, l, 0)) << kKinds[k].name << " differs after the run";
        EXPECT_TRUE(w.failures.empty()) << w.failures.size() << " failed, the first: " << w.failures.front();
    }
}

}  // namespace
