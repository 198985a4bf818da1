// Four processes add rows to one database at once: tickets, content,
// subscriptions and servers. Each child writes down the key of every add that
// answered true, with the tag it wrote; the parent then reads the tables back.
// The safe profile must lose nothing: every key distinct, every row there and
// holding its own tag, no row without a call behind it. The exact profile
// picks identifiers under its own process's lock only: its loss is printed as
// a figure, not failed.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "CDataAccessProvider.h"
#include "StringUtils.h"
#include "TestSupport.h"

namespace {

constexpr int kProcesses = 4;
constexpr int kTickets = 300;
constexpr int kOthers = 40;  // content, subscription and server adds per process

// One kind of row: its table, key column and tag column, and an add that
// writes `tag` and gives the new key.
struct Kind {
    const char* name;
    const char* table;
    const char* key;
    const char* tagColumn;
    int count;
    std::function<bool(const std::wstring& tag, std::wstring& key)> add;
};

// An add through `provider`: the record gets `tag` in `tagField`, the new key
// comes back from `keyField`.
template <class Rec, class Provider, class Key>
std::function<bool(const std::wstring&, std::wstring&)> Add(Provider* (CDataAccessProvider::*get)(),
                                                              bool (Provider::*add)(Rec*), std::wstring Rec::*tagField,
                                                              Key Rec::*keyField, std::function<void(Rec&)> fill) {
    return [=](const std::wstring& tag, std::wstring& key) {
        Rec r;
        r.*tagField = tag;
        fill(r);
        const bool ok = (((CDataAccessProvider::GetInstance())->*get)()->*add)(&r);
        std::wostringstream text;
        text << r.*keyField;
        key = text.str();
        return ok;
    };
}

std::vector<Kind> Kinds() {
    using F = CDataAccessProvider;
    return {
        {"ticket", "JDFTICKET", "QENTRYID", "JOBID", kTickets,
         Add<TicketTableRecord>(&F::GetTicketDataProvider, &ITicketDataProvider::AddTicket, &TicketTableRecord::jobId,
                                &TicketTableRecord::qentryId, [](TicketTableRecord& r) {
                                    r.senderId = L"mp", r.status = 1, r.jdf = L"<JDF ID=\"" + r.jobId + L"\"/>";
                                })},
        {"content", "CONTENT", "CONTENTID", "RUN_ID", kOthers,
         Add<ContentTableRecord>(&F::GetContentDataProvider, &IContentDataProvider::AddRecord,
                                 &ContentTableRecord::runId, &ContentTableRecord::contentId,
                                 [](ContentTableRecord& r) { r.qentryId = L"mp"; })},
        {"subscription", "STATSSUBS", "ID", "REFID", kOthers,
         Add<StatusSubTableRecord>(&F::GetStatusSubDataProvider, &IStatusSubDataProvider::AddRecord,
                                   &StatusSubTableRecord::REFID, &StatusSubTableRecord::ID,
                                   [](StatusSubTableRecord& r) { r.URL = L"http://mp"; })},
        {"server", "SERVER", "SERVERID", "COMPNAME", kOthers,
         Add<ServerTableRecord>(&F::GetServerDataProvider, &IServerDataProvider::AddServer, &ServerTableRecord::COMPNAME,
                                &ServerTableRecord::SERVERID, [](ServerTableRecord& r) { r.STYPE = 1; })},
    };
}

// A child: every add of every kind, interleaved; "kind key tag" per true answer.
void RunChild(int index, const std::string& path) {
    std::ofstream out(path);
    std::vector<Kind> kinds = Kinds();
    for (int n = 0; n < kTickets; ++n) {
        for (const Kind& kind : kinds) {
            if (n >= kind.count) continue;
            const std::wstring tag = L"p" + std::to_wstring(index) + L"-" + std::to_wstring(n);
            std::wstring key;
            if (kind.add(tag, key))
                out << kind.name << ' ' << StringUtils::UTF8FromUni(key) << ' ' << StringUtils::UTF8FromUni(tag) << '\n';
        }
    }
}

TEST(MultiProcessTest, ConcurrentAddsFromFourProcesses) {
    testing_support::Watchdog watchdog(300);
    testing_support::RawDb db;
    db.Reset({"JDFTICKET", "CONTENT", "STATSSUBS", "SERVER"});
    // Nothing of the library may exist before the fork: each child makes its own store.
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            RunChild(i, "answers-" + std::to_string(i) + ".txt");
            std::fflush(nullptr);
            _exit(0);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    // kind -> key -> tags the calls that answered true claim for it.
    std::map<std::string, std::multimap<std::string, std::string>> claims;
    for (int i = 0; i < kProcesses; ++i) {
        std::ifstream in("answers-" + std::to_string(i) + ".txt");
        std::string kind, key, tag;
        while (in >> kind >> key >> tag) claims[kind].emplace(key, tag);
    }
    for (const Kind& kind : Kinds()) {
        const auto& claimed = claims[kind.name];
        long lost = 0;
        std::set<std::string> keys;
        for (const auto& [key, tag] : claimed) {
            keys.insert(key);
            const std::string stored = db.Scalar(std::string("SELECT ") + kind.tagColumn + " FROM " + kind.table +
                                                 " WHERE " + kind.key + " = '" + key + "'");
            if (stored != tag) ++lost;  // another call's row, or none
        }
        const long rows = db.Count(kind.table);
        std::printf("%s: %d calls, %zu answered true, %zu distinct keys, %ld rows, %ld true answers without their row\n",
                    kind.name, kProcesses * kind.count, claimed.size(), keys.size(), rows, lost);
        if (testing_support::Safe()) {
            EXPECT_EQ(static_cast<size_t>(kProcesses * kind.count), claimed.size()) << kind.name;
            EXPECT_EQ(claimed.size(), keys.size()) << kind.name;
            EXPECT_EQ(static_cast<long>(claimed.size()), rows) << kind.name;
            EXPECT_EQ(0, lost) << kind.name;
        }
    }
}

}  // namespace
