// `norva purge` against the private server, or against every node of the
// private cluster when scripts/run-cluster.sh has set NORVA_CLUSTER_HOSTS.
//
// Each case seeds 20,000 queue entries, every second one completed (state 4),
// each with two content rows and a subscription, beside rows no filter
// names: subscriptions and content rows of no queue entry, keys with a quote
// and non-ASCII text. What the filter does not name is compared before and
// after, byte for byte (an MD5 over every column of every row, in key order).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"

namespace {

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool OnCluster() { return !Env("NORVA_CLUSTER_HOSTS").empty(); }
// The DBIPAddr the tool is given.
std::string Hosts() { return OnCluster() ? Env("NORVA_CLUSTER_HOSTS") : testing_support::DbHost(); }

// A connection to each node (one on a single server), as its administrator
// through its socket; reads on a node wait until it has applied what the
// cluster committed.
std::vector<std::unique_ptr<testing_support::RawDb>> Databases() {
    std::vector<std::unique_ptr<testing_support::RawDb>> dbs;
    if (!OnCluster()) dbs.push_back(std::make_unique<testing_support::RawDb>());
    for (int i = 1; OnCluster() && !Env(("NORVA_CLUSTER_NODE" + std::to_string(i)).c_str()).empty(); ++i) {
        ::setenv("NORVA_TEST_DB_DIR", (Env("NORVA_CLUSTER_DIR") + "/node" + std::to_string(i)).c_str(), 1);
        dbs.push_back(std::make_unique<testing_support::RawDb>());
        dbs.back()->Exec("SET SESSION wsrep_sync_wait = 1");
    }
    for (auto& db : dbs) db->Exec("SET SESSION group_concat_max_len = 67108864");
    // The tool reads ./norva.conf: over TLS when the cluster takes nothing else.
    std::ofstream conf("norva.conf", std::ios::trunc);
    if (!Env("NORVA_TEST_TLS_CA").empty())
        conf << "DBTLS = verify-identity\nDBTLSCA = " << Env("NORVA_TEST_TLS_CA") << "\n";
    return dbs;
}

constexpr int kEntries = 20000;

// Odd entries are completed. Time stamps (safe profile): SUBTIME 0 to 3 days
// back; entries 3, 11, 19... were submitted 3 days ago but updated an hour ago.
void Seed(testing_support::RawDb& db) {
    db.Reset({"JDFTICKET", "CONTENT", "STATSSUBS"});
    const std::string n = std::to_string(kEntries);
    db.Exec("INSERT INTO JDFTICKET (QENTRYID, STATE, STATUS, JOBID, JDF, SUBTIME, LASTUPDATETIME) SELECT "
            "CONCAT('pq-', seq), IF(seq % 2 = 1, 4, 1 + seq % 3), seq, CONCAT('job ', seq), "
            "CONCAT('<JDF ID=\"n', seq, '\"/>'), NOW() - INTERVAL (seq % 4) DAY, "
            "IF(seq % 8 = 3, NOW() - INTERVAL 1 HOUR, NULL) FROM seq_1_to_" + n);
    db.Exec("INSERT INTO CONTENT (CONTENTID, QENTRYID, DISPLAYNAME, NPAGES) SELECT seq, "
            "CONCAT('pq-', (seq + 1) DIV 2), CONCAT('file ', seq), seq % 50 FROM seq_1_to_" +
            std::to_string(2 * kEntries));
    db.Exec("INSERT INTO STATSSUBS (ID, QENTRYID, URL, REPEATTIME) SELECT seq, CONCAT('pq-', seq), "
            "CONCAT('http://sig/', seq), 30 FROM seq_1_to_" + n);
    // A completed entry whose key needs quoting, a kept one in Unicode, and
    // rows of no queue entry.
    db.Exec("INSERT INTO JDFTICKET (QENTRYID, STATE, JOBID) VALUES ('pq-don''t', 4, 'q'), ('pq-Ünïcødé ☃', 2, 'u')");
    db.Exec("INSERT INTO CONTENT (CONTENTID, QENTRYID) VALUES (900001, 'pq-don''t'), (900002, 'pq-Ünïcødé ☃'), "
            "(900003, NULL), (900004, 'pq-gone')");
    db.Exec("INSERT INTO STATSSUBS (ID, QENTRYID, URL) VALUES (900001, 'pq-don''t', 'q'), (900002, NULL, 'none')");
}

// Count and MD5 of a table's rows that match `where`, every column quoted.
std::string Digest(testing_support::RawDb& db, const std::string& table, const std::string& key,
                   const std::string& where) {
    const std::string columns = db.Scalar(
        "SELECT GROUP_CONCAT(CONCAT('QUOTE(`', COLUMN_NAME, '`)') ORDER BY ORDINAL_POSITION) FROM "
        "information_schema.COLUMNS WHERE TABLE_SCHEMA = 'jdfdb' AND TABLE_NAME = '" + table + "'");
    return db.Scalar("SELECT CONCAT(COUNT(*), ' ', MD5(COALESCE(GROUP_CONCAT(MD5(CONCAT_WS(',', " + columns +
                     ")) ORDER BY " + key + " SEPARATOR ''), ''))) FROM " + table + " WHERE " + where);
}

// The rows a filter on the queue entries does not name, in every table the
// tool may touch; "FALSE": every row.
std::string KeptDigest(testing_support::RawDb& db, const std::string& filter) {
    const std::string dependant = "NOT COALESCE(QENTRYID IN (SELECT QENTRYID FROM JDFTICKET WHERE " + filter + "), 0)";
    return Digest(db, "JDFTICKET", "QENTRYID", "NOT COALESCE(" + filter + ", 0)") + " | " +
           Digest(db, "CONTENT", "CONTENTID", dependant) + " | " + Digest(db, "STATSSUBS", "ID", dependant) +
           " | " + db.Scalar("SELECT CONCAT_WS('/', JDFTICKET, CONTENT, STATSSUBS) FROM MAXID");
}

// Completed entries left without all their dependants, and seeded content
// rows and subscriptions left without their entry: both must stay 0.
long long Broken(testing_support::RawDb& db) {
    const std::string orphan = " AND QENTRYID NOT IN (SELECT QENTRYID FROM JDFTICKET)";
    return db.Count("JDFTICKET t", "STATE = 4 AND QENTRYID LIKE 'pq-_%' AND QENTRYID <> 'pq-don''t' AND "
                    "((SELECT COUNT(*) FROM CONTENT c WHERE c.QENTRYID = t.QENTRYID) <> 2 OR "
                    "(SELECT COUNT(*) FROM STATSSUBS s WHERE s.QENTRYID = t.QENTRYID) <> 1)") +
           db.Count("CONTENT", "CONTENTID <= " + std::to_string(2 * kEntries) + orphan) +
           db.Count("STATSSUBS", "ID <= " + std::to_string(kEntries) + orphan);
}

// A program in a process of its own, its standard output kept in a file; a
// process still running when the object goes is killed.
class Tool {
public:
    explicit Tool(std::vector<std::string> argv) : m_pid(::fork()) {
        if (m_pid == 0) {
            ::dup2(::open("tool-out.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
            std::vector<char*> pointers;
            for (std::string& a : argv) pointers.push_back(&a[0]);
            pointers.push_back(nullptr);
            ::execvp(pointers[0], pointers.data());
            std::_Exit(127);
        }
    }
    ~Tool() {
        if (m_pid > 0 && ::kill(m_pid, SIGKILL) == 0) ::waitpid(m_pid, nullptr, 0);
    }
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    void Signal(int signal) { ::kill(m_pid, signal); }
    // The exit code, or -1 when it did not end within the time given.
    int Wait(int seconds = 120) {
        for (int ms = 0; ms < seconds * 1000; ms += 10) {
            int status = 0;
            if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
                m_pid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }
    std::string Output() const {
        std::ifstream in("tool-out.txt");
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

private:
    pid_t m_pid;
};

// A number of the tool's --json summary.
long long Field(const std::string& json, const std::string& name) {
    const size_t at = json.find("\"" + name + "\": ");
    return at == std::string::npos ? -1 : std::atoll(json.c_str() + at + name.size() + 4);
}

// The norva tool on the database of this run.
std::vector<std::string> Norva(std::vector<std::string> args) {
    args.insert(args.begin(), {NORVA_TOOL, "--host", Hosts()});
    return args;
}
// The same, its standard output a terminal (script(1)).
std::vector<std::string> NorvaOnTerminal(const std::vector<std::string>& args) {
    std::string line;
    for (const std::string& a : Norva(args)) line += "'" + a + "' ";
    return {"script", "-qec", line, "/dev/null"};
}

const std::string kCompleted = "STATE = 4";

class Purge : public ::testing::Test {
protected:
    void SetUp() override {
        m_dbs = Databases();
        Seed(*m_dbs[0]);
    }
    testing_support::RawDb& Db() { return *m_dbs[0]; }
    // Every node holds exactly the rows it held before that the filter did not name.
    void ExpectOnly(const std::string& kept) {
        for (auto& db : m_dbs) EXPECT_EQ(kept, KeptDigest(*db, "FALSE"));
    }
    std::vector<std::unique_ptr<testing_support::RawDb>> m_dbs;
    testing_support::Watchdog m_watchdog{170};
};

TEST_F(Purge, DryRunCountsAndRunRemovesCompletedEntriesInBoundedBatches) {
    const std::string everything = KeptDigest(Db(), "FALSE"), kept = KeptDigest(Db(), kCompleted);
    Tool dry(Norva({"--json", "purge", "--state", "4", "--dry-run"}));
    ASSERT_EQ(0, dry.Wait());
    EXPECT_EQ("{\"result\": \"dry-run\", \"queue_entries\": 10001, \"content_rows\": 20001, \"subscriptions\": "
              "10001, \"batches\": 0}\n", dry.Output());
    EXPECT_EQ(everything, KeptDigest(Db(), "FALSE"));

    const auto started = std::chrono::steady_clock::now();
    Tool run(Norva({"--json", "purge", "--state", "4", "--batch", "1000"}));
    ASSERT_EQ(0, run.Wait()) << run.Output();
    const std::string summary = run.Output();
    std::printf("figure: purge of the completed half of %d queue entries%s: %lld ms, %lld batches\n", kEntries,
                OnCluster() ? " on the cluster" : "",
                static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                           std::chrono::steady_clock::now() - started).count()),
                Field(summary, "batches"));
    EXPECT_EQ(10001, Field(summary, "queue_entries")) << summary;
    EXPECT_EQ(20001, Field(summary, "content_rows"));
    EXPECT_EQ(10001, Field(summary, "subscriptions"));
    // 40,004 rows, at most 1,000 a batch.
    EXPECT_GE(Field(summary, "batches"), 41);
    ExpectOnly(kept);

    Tool again(Norva({"--json", "purge", "--state", "4"}));
    ASSERT_EQ(0, again.Wait());
    EXPECT_EQ(0, Field(again.Output(), "queue_entries"));
}

TEST_F(Purge, InterruptedRunsLeaveWholeEntriesAndARerunFinishes) {
    const std::string kept = KeptDigest(Db(), kCompleted);
    const long long completed = Db().Count("JDFTICKET", kCompleted);
    // Returns once a batch of the tool just started has been committed.
    auto startedRemoving = [&] {
        const long long before = Db().Count("JDFTICKET", kCompleted);
        for (int ms = 0; ms < 60000 && Db().Count("JDFTICKET", kCompleted) == before; ms += 5)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    };
    // Killed outright: the batch in flight is rolled back by the server.
    {
        Tool killed(Norva({"purge", "--state", "4", "--batch", "40"}));
        startedRemoving();
        killed.Signal(SIGKILL);
        EXPECT_EQ(128 + SIGKILL, killed.Wait());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the server notices the closed connection
    EXPECT_EQ(0, Broken(Db()));
    // SIGINT: the batch in flight is finished, then the tool stops.
    Tool interrupted(Norva({"--json", "purge", "--state", "4", "--batch", "40"}));
    startedRemoving();
    interrupted.Signal(SIGINT);
    EXPECT_EQ(130, interrupted.Wait());
    EXPECT_NE(std::string::npos, interrupted.Output().find("\"result\": \"interrupted\""));
    const long long left = Db().Count("JDFTICKET", kCompleted);
    EXPECT_GT(left, 0);
    EXPECT_LT(left, completed);
    EXPECT_EQ(0, Broken(Db()));

    // Run again on a terminal: a line per batch, then the summary.
    Tool rerun(NorvaOnTerminal({"purge", "--state", "4", "--batch", std::to_string(4 * left / 3 + 4)}));
    ASSERT_EQ(0, rerun.Wait());
    const std::string out = rerun.Output();
    EXPECT_NE(std::string::npos, out.find("batch 1: ")) << out;
    EXPECT_NE(std::string::npos, out.find("batch 3: " + std::to_string(left) + " queue entries")) << out;
    EXPECT_EQ(std::string::npos, out.find("batch 4: ")) << out;
    EXPECT_NE(std::string::npos, out.find("QUEUE_ENTRIES  " + std::to_string(left))) << out;
    ExpectOnly(kept);
}

TEST_F(Purge, AgeNeedsStoredTimeStampsAndNamesOnlyOlderEntries) {
    const std::string everything = KeptDigest(Db(), "FALSE");
    Tool exact(Norva({"purge", "--state", "4", "--older-than", "36h"}));
    EXPECT_EQ(3, exact.Wait());
    EXPECT_EQ(everything, KeptDigest(Db(), "FALSE"));

    // Entries submitted 2 or 3 days ago and not updated since: 7, 15, 23...
    const std::string older = "STATE = 4 AND COALESCE(LASTUPDATETIME, SUBTIME) < NOW() - INTERVAL 36 HOUR";
    const std::string kept = KeptDigest(Db(), older);
    const long long named = Db().Count("JDFTICKET", older);
    ASSERT_EQ(kEntries / 8, named);
    Tool safe(Norva({"--profile", "safe", "--json", "purge", "--state", "4", "--older-than", "36h"}));
    ASSERT_EQ(0, safe.Wait());
    EXPECT_EQ(named, Field(safe.Output(), "queue_entries"));
    ExpectOnly(kept);
}

}  // namespace
