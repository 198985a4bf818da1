// norva: an operator's look into the workflow database through the data
// layer's facade. See norva.1 (or `norva --help`) for the subcommands and
// exit codes.
//
// Every subcommand builds a Table (rows of columns) and hands it to one
// formatter that prints aligned text or JSON. Only `check` and `init-db`
// look at the schema themselves; the others read through the providers.
#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <ZTTickets.h>
#include <cppconn/connection.h>
#include <cppconn/driver.h>
#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <fcntl.h>
#include <signal.h>
#include <norvadatalayer.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "private/ConnectOptions.h"
#include "private/HostList.h"
#include "private/StoreSettings.h"

namespace {

// Exit codes (also in norva --help and norva.1).
enum Exit { kOk = 0, kProblem = 1, kUnreachable = 2, kUsage = 3, kFailed = 4, kInterrupted = 130 };

// The schema and the account the library uses without DBUser (compiled into it as well).
const char kSchema[] = "jdfdb";
const char kUser[] = "lumbo27";
const char kPassword[] = "lumbo27";
// The rights the library needs on the schema, and all it should have.
const char* const kRights[] = {"SELECT", "INSERT", "UPDATE", "DELETE"};
const char kRightsText[] = "SELECT, INSERT, UPDATE, DELETE";

// ---- output: one formatter for every subcommand ----

struct Cell {
    std::string text;
    enum Kind { Text, Number, Null } kind;
};
Cell Str(const std::wstring& s) { return s.empty() ? Cell{"", Cell::Null} : Cell{StringUtils::stringFromwstring(s), Cell::Text}; }
Cell Str(const std::string& s) { return Cell{s, Cell::Text}; }
Cell Num(int n) { return n == -1 ? Cell{"", Cell::Null} : Cell{std::to_string(n), Cell::Number}; }
Cell Time(const TimeStamp& t) {
    if (t == TimeStamp(0)) return Cell{"", Cell::Null};
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute,
                  t.second);
    return Cell{text, Cell::Text};
}

// Columns and rows; `record` prints the single row as "NAME value" lines
// (JSON: one object instead of an array).
struct Table {
    std::vector<std::string> columns;
    std::vector<std::vector<Cell>> rows;
    bool record = false;
};

size_t Width(const std::string& s) {  // UTF-8 code points
    return static_cast<size_t>(std::count_if(s.begin(), s.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string JsonText(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", c);
            out += esc;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string JsonObject(const Table& t, const std::vector<Cell>& row) {
    std::string out = "{";
    for (size_t i = 0; i < t.columns.size(); ++i) {
        const Cell& c = row[i];
        out += (i ? ", " : "") + JsonText(t.columns[i]) + ": " +
               (c.kind == Cell::Null ? "null" : c.kind == Cell::Number ? c.text : JsonText(c.text));
    }
    return out + "}";
}

void Print(const Table& t, bool json) {
    if (json) {
        if (t.record) {
            std::printf("%s\n", JsonObject(t, t.rows.at(0)).c_str());
            return;
        }
        std::printf("[");
        for (size_t r = 0; r < t.rows.size(); ++r) std::printf("%s\n %s", r ? "," : "", JsonObject(t, t.rows[r]).c_str());
        std::printf("]\n");
        return;
    }
    auto shown = [](const Cell& c) { return c.kind == Cell::Null ? std::string("-") : c.text; };
    if (t.record) {
        size_t w = 0;
        for (const std::string& c : t.columns) w = std::max(w, c.size());
        for (size_t i = 0; i < t.columns.size(); ++i) {
            std::string value = shown(t.rows.at(0)[i]);
            for (size_t p = 0; (p = value.find('\n', p)) != std::string::npos; p += w + 3) value.insert(p + 1, w + 2, ' ');
            std::printf("%-*s  %s\n", static_cast<int>(w), Upper(t.columns[i]).c_str(), value.c_str());
        }
        return;
    }
    std::vector<size_t> w;
    for (const std::string& c : t.columns) w.push_back(c.size());
    for (const auto& row : t.rows)
        for (size_t i = 0; i < row.size(); ++i) w[i] = std::max(w[i], Width(shown(row[i])));
    auto line = [&](const std::vector<std::string>& cells) {
        std::string out;
        for (size_t i = 0; i < cells.size(); ++i) {
            out += cells[i];
            if (i + 1 < cells.size()) out += std::string(w[i] - Width(cells[i]) + 2, ' ');
        }
        std::printf("%s\n", out.c_str());
    };
    std::vector<std::string> head;
    for (const std::string& c : t.columns) head.push_back(Upper(c));
    line(head);
    for (const auto& row : t.rows) {
        std::vector<std::string> cells;
        for (const Cell& c : row) cells.push_back(shown(c));
        line(cells);
    }
}

// ---- command line ----

struct Args {
    std::string command;
    std::vector<std::string> positional;
    std::map<std::string, std::string> values;  // --name VALUE
    std::set<std::string> flags;                // --name
    std::string Get(const std::string& name) const {
        auto it = values.find(name);
        return it == values.end() ? std::string() : it->second;
    }
    bool Has(const std::string& name) const { return flags.count(name) || values.count(name); }
};

// A failure of a subcommand: message for stderr and exit code.
struct Failure {
    std::string message;
    int code;
};
using Result = std::pair<Table, Failure>;

Result Fail(int code, const std::string& message) { return {Table(), Failure{message, code}}; }
Result Done(Table t) { return {std::move(t), Failure{"", kOk}}; }
Result Printed() { return {Table(), Failure{"", kOk}}; }  // the command wrote its own output

std::string Host() { return StringUtils::stringFromwstring(ConfigurationControl::GetDBIPAddr()); }

// The library's settings, read as it reads them, once the command line has
// set what it overrides.
const StoreSettings& Settings() {
    static const StoreSettings settings = ReadStoreSettings();
    return settings;
}

// The account connections use: DBUser, else the compiled-in one.
std::string Account() { return Settings().user.empty() ? kUser : Settings().user; }

// ---- the connection test (and the connection of `check`) ----

struct Probe {
    std::unique_ptr<sql::Connection> connection;
    Failure failure;
};

// Connects as the library does, to the host the library would write through:
// the first of DBIPAddr's hosts that answers and, on a cluster, is synced. A
// server that cannot be reached is exit 2; one that answers but lacks the
// schema or the account is a problem (exit 1).
Probe Connect() {
    Probe p{nullptr, {"", kOk}};
    const HostList hosts(Host(), Settings().clusterWrites);
    for (size_t attempt = 0; attempt < hosts.Size() && !p.connection; ++attempt) try {
        const std::string& host = hosts.Name(hosts.Attempt(attempt));
        p.connection.reset(OpenConnection(*get_driver_instance(), Settings(), host, kUser, kPassword));
        if (PrepareSession(*p.connection, Settings(), hosts.Size() > 1) == SessionNode::NotSynced && hosts.Size() > 1) {
            p.connection.reset();
            p.failure = {"cannot reach database at " + Host() + ": " + host + " is a cluster node that is not synced",
                         kUnreachable};
        }
    } catch (sql::SQLException& e) {
        const int error = e.getErrorCode();
        if (error == 1049)
            p.failure = {"database " + std::string(kSchema) + " is missing at " + Host() +
                             ": load sql/jdfdb.sql (norva init-db)", kProblem};
        else if (error == 1044 || error == 1045)
            p.failure = {"account " + Account() + " is refused at " + Host() + ": " + e.what() +
                             (Settings().user.empty() ? "; load sql/jdfdb.sql (norva init-db)"
                                                      : "; check DBUser and DBPasswordFile (norva init-db --user)"),
                         kProblem};
        else if (error == 2026)
            p.failure = {"no secure connection to " + Host() + ": " + e.what(), kProblem};
        else
            p.failure = {"cannot reach database at " + Host() + ": " + e.what(), kUnreachable};
    } catch (std::exception& e) {
        p.failure = {"cannot reach database at " + Host() + ": " + e.what(), kUnreachable};
    }
    if (p.connection) p.failure = {"", kOk};
    return p;
}

// ---- the schema file ----

// The installed copy beside the program (../share/norvadatalayer), else the
// source tree's (a program run from its build directory).
std::string SchemaPath(const Args& a) {
    if (!a.Get("schema").empty()) return a.Get("schema");
    char exe[4096];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n > 0) {
        std::string dir(exe, static_cast<size_t>(n));
        dir.erase(dir.rfind('/'));
        const std::string installed = dir + "/../" NORVA_DATADIR_REL "/jdfdb.sql";
        if (access(installed.c_str(), R_OK) == 0) return installed;
    }
    return NORVA_SOURCE_SCHEMA;
}

// Table name -> (column name, definition) in file order, read from the
// CREATE TABLE statements of the schema file.
using Columns = std::vector<std::pair<std::string, std::string>>;
bool ReadSchema(const std::string& path, std::vector<std::pair<std::string, Columns>>& tables) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    const std::string create = "CREATE TABLE IF NOT EXISTS ";
    bool open = false;  // inside a CREATE TABLE
    while (std::getline(in, line)) {
        if (line.compare(0, create.size(), create) == 0) {
            tables.push_back({line.substr(create.size(), line.find(' ', create.size()) - create.size()), {}});
            open = true;
            continue;
        }
        if (!line.empty() && line[0] == ')') open = false;
        if (!open || line.size() < 3 || line.compare(0, 2, "  ") != 0 || line[2] == ' ' || line[2] == '-')
            continue;
        std::istringstream words(line);
        std::string name;
        words >> name;
        if (name == "PRIMARY" || name == "KEY" || name == "UNIQUE") continue;
        std::string definition = line.substr(line.find(name) + name.size());
        definition = definition.substr(definition.find_first_not_of(' '));
        definition = definition.substr(0, definition.find(','));
        definition = definition.substr(0, definition.find("  --"));
        std::istringstream parts(definition);  // spaces of the file's alignment collapsed
        definition.clear();
        for (std::string part; parts >> part;) definition += (definition.empty() ? "" : " ") + part;
        name.erase(std::remove(name.begin(), name.end(), '`'), name.end());
        tables.back().second.push_back({name, definition});
    }
    return !tables.empty();
}

// ---- subcommands ----

CDataAccessProvider* Facade() { return CDataAccessProvider::GetInstance(); }

const std::vector<std::string> kTicketList = {"key", "job", "part", "status", "state", "device", "submitted"};

std::vector<Cell> TicketRow(const TicketTableRecord& r, bool full) {
    std::vector<Cell> row = {Str(r.qentryId), Str(r.jobId), Str(r.jobPartId), Num(r.status),
                             Num(r.state), Str(r.holdDevId), Time(r.subTime)};
    if (!full) return row;
    for (Cell c : {Time(r.lastUpdateTime), Str(r.senderId), Str(r.statusMsg), Str(r.jmfRetUrl), Str(r.uploadUrl),
                   Str(r.previewRemoteUrl), Str(r.previewCachedFilePath), Str(r.qsubsParams), Str(r.jdf)})
        row.push_back(c);
    return row;
}

Result Tickets(const Args& a) {
    ITicketDataProvider* tickets = Facade()->GetTicketDataProvider();
    const std::wstring device = StringUtils::wstringFromstring(a.Get("device"));
    const bool byState = a.Has("state");
    const std::string stateText = a.Get("state");
    char* end = nullptr;
    const int state = byState ? static_cast<int>(std::strtol(stateText.c_str(), &end, 10)) : -1;
    if (byState && (stateText.empty() || *end != 0)) return Fail(kUsage, "--state takes a number");
    std::list<std::wstring> keys;
    if (device.empty()) keys = tickets->GetAllQueueEntryIDs();
    else if (byState) keys = tickets->GetTicketRecords(device, state);
    else keys = tickets->GetAllQueueEntryIds(device);
    keys.sort();
    Table t{kTicketList, {}};
    for (const std::wstring& key : keys) {
        TicketTableRecord r;
        if (!tickets->GetTicketRecord(key, &r) || (byState && r.state != state)) continue;
        t.rows.push_back(TicketRow(r, false));
    }
    return Done(t);
}

Result Ticket(const Args& a) {
    const std::wstring key = StringUtils::wstringFromstring(a.positional.at(0));
    TicketTableRecord r;
    if (!Facade()->GetTicketDataProvider()->GetTicketRecord(key, &r))
        return Fail(kProblem, "no queue entry " + a.positional[0]);
    if (a.Has("jdf")) {
        std::fputs(StringUtils::stringFromwstring(r.jdf).c_str(), stdout);
        return Printed();
    }
    Table t{kTicketList, {TicketRow(r, true)}, true};
    for (const char* c : {"updated", "sender", "status_msg", "jmf_return_url", "upload_url", "preview_url",
                          "preview_path", "subscription_params", "jdf"})
        t.columns.push_back(c);
    return Done(t);
}

Result Devices(const Args&) {
    IDeviceDataProvider* devices = Facade()->GetDeviceDataProvider();
    std::list<std::wstring> ids = devices->GetAllDeviceIds();
    ids.sort();
    Table t{{"device", "server", "index", "name", "status", "status_msg", "condition", "condition_code", "op_mode",
             "updated"}, {}};
    for (const std::wstring& id : ids) {
        DeviceTableRecord r;
        if (!devices->GetDeviceRecord(id, &r)) continue;
        t.rows.push_back({Str(r.deviceId), Num(r.serverId), Num(r.devIndex), Str(r.displayName), Num(r.status),
                          Str(r.statusMsg), Str(r.devCondition), Num(r.conditionCode), Num(r.deviceOpMode),
                          Time(r.lastUpdateTime)});
    }
    return Done(t);
}

Result Servers(const Args&) {
    std::vector<ServerTableRecord> servers;
    Facade()->GetServerDataProvider()->GetServerRecords(servers);
    std::sort(servers.begin(), servers.end(),
              [](const ServerTableRecord& x, const ServerTableRecord& y) { return x.SERVERID < y.SERVERID; });
    Table t{{"id", "name", "type", "state", "status_msg", "serial", "version", "login"}, {}};
    for (const ServerTableRecord& r : servers)
        t.rows.push_back({Num(r.SERVERID), Str(r.COMPNAME), Num(r.STYPE), Num(r.STATE), Str(r.STATMSG),
                          Str(r.SERIALNO), Str(r.VERSION), Str(r.LOGINSERNAME)});
    return Done(t);
}

Result Subs(const Args& a) {
    IStatusSubDataProvider* subs = Facade()->GetStatusSubDataProvider();
    std::vector<StatusSubTableRecord> records;
    if (a.Has("due")) subs->GetRecords(records);  // time-driven and due now
    else subs->GetRecords(L"", L"", L"", L"", true, records);
    const std::wstring device = StringUtils::wstringFromstring(a.Get("device"));
    std::sort(records.begin(), records.end(),
              [](const StatusSubTableRecord& x, const StatusSubTableRecord& y) { return x.ID < y.ID; });
    Table t{{"id", "device", "key", "job", "part", "sender", "url", "repeat_time", "repeat_step", "last_update"}, {}};
    for (const StatusSubTableRecord& r : records) {
        if (!device.empty() && r.DEVICEID != device) continue;
        t.rows.push_back({Num(r.ID), Str(r.DEVICEID), Str(r.QENTRYID), Str(r.JOBID), Str(r.JOBPARTID),
                          Str(r.SENDERID), Str(r.URL), Num(r.REPEATTIME), Num(r.REPEATSTEP), Time(r.LASTUPDATE)});
    }
    return Done(t);
}

// The pairs of the ticket file the job-sender provider keeps (./QueryURL).
Result Senders(const Args& a) {
    const std::string path = a.Has("file") ? a.Get("file") : "./QueryURL";
    const STICKET_ACCESS* ticket = CreateTicket(path.c_str());
    if (ticket == nullptr) return Fail(kFailed, "cannot read ticket file " + path);
    std::vector<std::string> ids, urls;
    ticket->GetVectorParameter("ZT/QUERYID", ids);
    ticket->GetVectorParameter("ZT/URL", urls);
    DestroyTicket(ticket);
    Table t{{"query_id", "url"}, {}};
    for (size_t i = 0; i < std::min(ids.size(), urls.size()); ++i) t.rows.push_back({Str(ids[i]), Str(urls[i])});
    return Done(t);
}

// One line per finding: tables, columns, the MAXID row, the account's rights.
Result Check(const Args& a) {
    Table t{{"result", "finding"}, {}};
    int problems = 0;
    auto finding = [&](bool ok, const std::string& text) {
        t.rows.push_back({Str(ok ? "ok" : "FAIL"), Str(text)});
        problems += ok ? 0 : 1;
    };
    // A value the library cannot understand makes it refuse to run: name
    // each; nothing is sent to the server then, by the library or by check.
    for (const std::string& problem : Settings().problems)
        finding(false, problem + ": the library refuses to run until it is corrected");
    if (problems) return {t, Failure{"", kProblem}};
    Probe p = Connect();
    if (p.failure.code == kUnreachable) return Fail(kUnreachable, p.failure.message);
    if (!p.connection) {
        finding(false, p.failure.message);
        return {t, Failure{"", kProblem}};
    }
    finding(true, "connected to " + Host() + " as " + Account());
    if (Settings().user.empty())
        t.rows.push_back({Str("WARN"), Str("account " + std::string(kUser) + " has the well-known default password: "
                                           "anyone who reaches " + Host() + " may log in; make an account of your own "
                                           "(norva init-db --user) and set DBUser and DBPasswordFile")});
    const std::string path = SchemaPath(a);
    std::vector<std::pair<std::string, Columns>> schema;
    if (!ReadSchema(path, schema)) return Fail(kFailed, "cannot read the schema file " + path);
    try {
        std::unique_ptr<sql::Statement> st(p.connection->createStatement());
        auto rows = [&](const std::string& q) {
            std::set<std::string> out;
            std::unique_ptr<sql::ResultSet> r(st->executeQuery(q));
            while (r->next()) out.insert(r->getString(1));
            return out;
        };
        const std::set<std::string> present = rows(
            "SELECT CONCAT(TABLE_NAME, '.', COLUMN_NAME) FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = '" +
            std::string(kSchema) + "'");
        for (const auto& table : schema) {
            if (!present.count(table.first + "." + table.second.at(0).first)) {
                finding(false, "table " + table.first + " is missing: load sql/jdfdb.sql (norva init-db)");
                continue;
            }
            int missing = 0;
            for (const auto& column : table.second) {
                if (present.count(table.first + "." + column.first)) continue;
                ++missing;
                finding(false, "column " + table.first + "." + column.first + " is missing: ALTER TABLE " +
                                   table.first + " ADD COLUMN `" + column.first + "` " + column.second);
            }
            if (!missing) finding(true, "table " + table.first + ": all " +
                                            std::to_string(table.second.size()) + " columns present");
        }
        if (present.count("MAXID.JDFTICKET")) {
            const std::string n = *rows("SELECT COUNT(*) FROM MAXID").begin();
            if (n == "1") finding(true, "MAXID has its one row");
            else if (n == "0") finding(false, "MAXID has no row: load sql/jdfdb.sql (norva init-db), which inserts it");
            else finding(false, "MAXID has " + n + " rows: delete all but the one with the highest values");
        }
        // The account's own rights: everywhere (*.*) and per schema.
        const std::set<std::string> granted = rows(
            "SELECT CONCAT(PRIVILEGE_TYPE, ' on *.*') FROM information_schema.USER_PRIVILEGES "
            "WHERE PRIVILEGE_TYPE <> 'USAGE' UNION "
            "SELECT CONCAT(PRIVILEGE_TYPE, ' on ', TABLE_SCHEMA) FROM information_schema.SCHEMA_PRIVILEGES");
        std::set<std::string> beyond = granted;
        for (const char* right : kRights) {
            const std::string here = std::string(right) + " on " + kSchema;
            const bool has = granted.count(here) || granted.count(std::string(right) + " on *.*");
            beyond.erase(here);
            finding(has, Account() + " may " + right + (has ? "" : " not: GRANT " + std::string(kRightsText) +
                                                                     " ON jdfdb.* TO the account (norva init-db --user)"));
        }
        if (!beyond.empty()) {
            std::string list;
            for (const std::string& right : beyond) list += (list.empty() ? "" : ", ") + right;
            t.rows.push_back({Str("WARN"), Str(Account() + " has rights beyond " + kRightsText + " on jdfdb: " + list +
                                               "; revoke them (norva init-db --user makes an account without)")});
        }
    } catch (sql::SQLException& e) {
        finding(false, std::string("schema query failed: ") + e.what());
    }
    return {t, Failure{"", problems ? kProblem : kOk}};
}

// Runs the mariadb client as an administrator with `input` as its standard
// input; its exit status, or -1 when it could not be run. Nothing secret
// goes on its command line: the SQL comes through the input.
int RunClient(const Args& a, int input) {
    std::vector<std::string> argv = {"mariadb", "--no-defaults", "--batch"};
    if (a.Has("admin-socket")) argv.push_back("--socket=" + a.Get("admin-socket"));
    if (a.Has("admin-host")) argv.push_back("--host=" + a.Get("admin-host"));
    if (a.Has("admin-port")) argv.push_back("--port=" + a.Get("admin-port"));
    if (a.Has("admin-user")) argv.push_back("--user=" + a.Get("admin-user"));
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(input, 0);
        if (a.Has("admin-password")) setenv("MYSQL_PWD", a.Get("admin-password").c_str(), 1);
        std::vector<char*> args;
        for (std::string& s : argv) args.push_back(&s[0]);
        args.push_back(nullptr);
        execvp(args[0], args.data());
        std::fprintf(stderr, "cannot run mariadb: %s\n", std::strerror(errno));
        _exit(127);
    }
    close(input);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) < 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A text between single quotes, for a session without NO_BACKSLASH_ESCAPES.
std::string Quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'' || c == '\\') out += '\\';
        out += c;
    }
    return out + "'";
}

bool Plain(const std::string& text, const char* allowed) {
    return !text.empty() && text.size() <= 80 &&
           std::all_of(text.begin(), text.end(), [&](char c) { return std::isalnum(static_cast<unsigned char>(c)) || std::strchr(allowed, c); });
}

// The SQL that gives `user` at each host pattern the password and the
// library's four rights on jdfdb, and nothing else (an existing account loses
// what it had). Empty, with `problem` set, when the options cannot be used.
std::string AccountSql(const Args& a, std::string& problem) {
    const std::string user = a.Get("user");
    if (!Plain(user, "_-.")) problem = "--user takes letters, digits, '_', '-' and '.', not " + user;
    const std::vector<std::string> hosts =
        a.Has("from") ? std::vector<std::string>{a.Get("from")} : std::vector<std::string>{"localhost", "127.0.0.1"};
    for (const std::string& host : hosts)
        if (!Plain(host, "_-.%:/")) problem = "--from takes a host name, address or pattern (%, /mask), not " + host;
    if (!a.Has("password-file")) problem = "init-db --user needs --password-file FILE";
    if (!problem.empty()) return std::string();
    const std::string password = ReadPasswordFile(a.Get("password-file"), problem);
    if (!problem.empty()) {
        problem = "--password-file " + problem;
        return std::string();
    }
    std::string sql = "SET SESSION sql_mode = REPLACE(@@SESSION.sql_mode, 'NO_BACKSLASH_ESCAPES', '');\n";
    for (const std::string& host : hosts) {
        const std::string account = Quoted(user) + "@" + Quoted(host);
        sql += "CREATE USER IF NOT EXISTS " + account + " IDENTIFIED BY " + Quoted(password) + ";\n" +
               "ALTER USER " + account + " IDENTIFIED BY " + Quoted(password) + ";\n" +
               "REVOKE ALL PRIVILEGES, GRANT OPTION FROM " + account + ";\n" +
               "GRANT " + kRightsText + " ON jdfdb.* TO " + account + ";\n";
    }
    return sql;
}

// Loads the schema file with the mariadb client as an administrator, then
// makes the account of --user if one is asked for.
Result InitDb(const Args& a) {
    std::string problem;
    const std::string account = a.Has("user") ? AccountSql(a, problem) : std::string();
    if (!problem.empty()) return Fail(problem.compare(0, 16, "--password-file ") == 0 ? kFailed : kUsage, problem);
    const std::string path = SchemaPath(a);
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return Fail(kFailed, "cannot read the schema file " + path);
    const std::string where = a.Has("admin-socket") ? a.Get("admin-socket") : a.Get("admin-host");
    if (RunClient(a, fd) != 0)
        return Fail(kFailed, "loading " + path + " into " + where + " failed (see the mariadb line above)");
    std::printf("loaded %s into %s\n", path.c_str(), where.c_str());
    if (account.empty()) return Printed();
    int input[2];
    if (pipe(input) != 0) return Fail(kFailed, "cannot start the mariadb client");
    const bool sent = write(input[1], account.data(), account.size()) == static_cast<ssize_t>(account.size());
    close(input[1]);  // the text is far below a pipe's buffer
    if (!sent || RunClient(a, input[0]) != 0)
        return Fail(kFailed, "making the account " + a.Get("user") + " at " + where + " failed (see the mariadb line above)");
    std::printf("account %s may %s on jdfdb.* and nothing else, from %s\n", a.Get("user").c_str(), kRightsText,
                a.Has("from") ? a.Get("from").c_str() : "localhost and 127.0.0.1");
    return Printed();
}

// ---- purge ----

// Set by SIGINT or SIGTERM: the purge stops after the batch in flight.
volatile std::sig_atomic_t g_stopPurge = 0;
extern "C" void StopPurge(int) { g_stopPurge = 1; }

// A text as a literal the server reads back byte for byte, whatever it holds.
std::string Literal(const std::string& text) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out = "_utf8mb4 X'";
    for (unsigned char c : text) out += {kDigits[c >> 4], kDigits[c & 15]};
    return out + "'";
}

// A duration such as 90s, 30m, 12h or 30d, in seconds; -1 when malformed.
long long Seconds(const std::string& text) {
    char* end = nullptr;
    const long long n = std::strtoll(text.c_str(), &end, 10);
    const std::map<std::string, long long> units = {{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}};
    const auto unit = units.find(end ? end : "");
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0])) || unit == units.end() ||
        n > 100000LL * 86400 / unit->second)
        return -1;
    return n * unit->second;
}

// What a purge removed (or, in a dry run, would remove).
struct PurgeCounts {
    long long entries = 0, contents = 0, subscriptions = 0, batches = 0;
};

Table PurgeTable(const PurgeCounts& n, const std::string& result) {
    return Table{{"result", "queue_entries", "content_rows", "subscriptions", "batches"},
                 {{Str(result), Cell{std::to_string(n.entries), Cell::Number},
                   Cell{std::to_string(n.contents), Cell::Number}, Cell{std::to_string(n.subscriptions), Cell::Number},
                   Cell{std::to_string(n.batches), Cell::Number}}},
                 true};
}

// Ticket texts of one batch stay below this many bytes (at least one entry a
// batch): a cluster refuses a write set larger than wsrep_max_ws_size.
const long long kBatchBytes = 64LL << 20;

// One batch in one transaction: the first entries the filter names (locked),
// as many as fit in `rows` rows with their dependants, go with their content
// rows and subscriptions. Returns the entries removed, 0 when none is left.
long long PurgeBatch(sql::Statement& st, const std::string& where, long long rows, long long candidates,
                     PurgeCounts& total) {
    st.execute("START TRANSACTION");
    std::vector<std::string> keys;
    long long batchRows = 0, bytes = 0, contents = 0, subscriptions = 0;
    {
        std::unique_ptr<sql::ResultSet> r(st.executeQuery(
            "SELECT t.QENTRYID, (SELECT COUNT(*) FROM CONTENT c WHERE c.QENTRYID = t.QENTRYID), "
            "(SELECT COUNT(*) FROM STATSSUBS s WHERE s.QENTRYID = t.QENTRYID), "
            "COALESCE(LENGTH(t.JDF), 0) + COALESCE(LENGTH(t.QSUBSPARAMS), 0) FROM JDFTICKET t WHERE " +
            where + " ORDER BY t.QENTRYID LIMIT " + std::to_string(candidates) + " FOR UPDATE"));
        while (r->next()) {
            const long long entryRows = 1 + r->getInt64(2) + r->getInt64(3);
            if (!keys.empty() && (batchRows + entryRows > rows || bytes + r->getInt64(4) > kBatchBytes)) break;
            keys.push_back(r->getString(1));
            batchRows += entryRows, bytes += r->getInt64(4);
            contents += r->getInt64(2), subscriptions += r->getInt64(3);
        }
    }
    if (keys.empty()) {
        st.execute("COMMIT");
        return 0;
    }
    std::string in;
    for (const std::string& key : keys) in += (in.empty() ? "" : ", ") + Literal(key);
    // One statement, whole in itself even outside the transaction (a session
    // the connector opened again by itself); the filter is asked again, so an
    // entry changed meanwhile stays with its rows.
    st.execute("DELETE t, c, s FROM JDFTICKET t LEFT JOIN CONTENT c ON c.QENTRYID = t.QENTRYID "
               "LEFT JOIN STATSSUBS s ON s.QENTRYID = t.QENTRYID WHERE t.QENTRYID IN (" + in + ") AND " + where);
    st.execute("COMMIT");
    // Counted as the batch found them: rows added meanwhile went with it.
    total.entries += static_cast<long long>(keys.size());
    total.contents += contents, total.subscriptions += subscriptions, ++total.batches;
    return static_cast<long long>(keys.size());
}

Result Purge(const Args& a) {
    const std::string stateText = a.Get("state");
    char* end = nullptr;
    const long state = std::strtol(stateText.c_str(), &end, 10);
    if (stateText.empty() || *end != 0) return Fail(kUsage, "purge needs --state S, a number");
    // The filter, on the queue entries as `t`.
    std::string where = "t.STATE = " + std::to_string(state);
    if (a.Has("older-than")) {
        const long long age = Seconds(a.Get("older-than"));
        if (age < 0) return Fail(kUsage, "--older-than takes a number and a unit (s, m, h or d), such as 30d");
        if (Upper(ConfigurationControl::GetProfile()) != "SAFE")
            return Fail(kUsage, "--older-than needs the time stamps only the safe profile stores; this is the exact "
                                "profile (Profile = safe in norva.conf, or --profile safe)");
        where += " AND COALESCE(t.LASTUPDATETIME, t.SUBTIME) < NOW() - INTERVAL " + std::to_string(age) + " SECOND";
    }
    long long rows = 1000;
    const std::string batchText = a.Get("batch");
    if (a.Has("batch")) {
        rows = std::strtoll(batchText.c_str(), &end, 10);
        if (batchText.empty() || *end != 0 || rows < 1 || rows > 100000)
            return Fail(kUsage, "--batch takes a number of rows from 1 to 100000");
    }
    Probe p = Connect();
    if (!p.connection) return Fail(p.failure.code, p.failure.message);
    PurgeCounts n;
    const bool progress = !a.Has("json") && isatty(STDOUT_FILENO);
    try {
        std::unique_ptr<sql::Statement> st(p.connection->createStatement());
        if (a.Has("dry-run")) {
            const std::string named = "QENTRYID IN (SELECT t.QENTRYID FROM JDFTICKET t WHERE " + where + ")";
            std::unique_ptr<sql::ResultSet> r(st->executeQuery(
                "SELECT (SELECT COUNT(*) FROM JDFTICKET t WHERE " + where + "), (SELECT COUNT(*) FROM CONTENT WHERE " +
                named + "), (SELECT COUNT(*) FROM STATSSUBS WHERE " + named + ")"));
            r->next();
            n.entries = r->getInt64(1), n.contents = r->getInt64(2), n.subscriptions = r->getInt64(3);
            return Done(PurgeTable(n, "dry-run"));
        }
        // Rows the filter does not name are neither read-locked nor waited for.
        st->execute("SET SESSION TRANSACTION ISOLATION LEVEL READ COMMITTED");
        struct sigaction stop = {};
        stop.sa_handler = StopPurge;
        stop.sa_flags = SA_RESTART | SA_RESETHAND;  // a second signal ends the process at once
        sigaction(SIGINT, &stop, nullptr);
        sigaction(SIGTERM, &stop, nullptr);
        long long candidates = rows;
        for (int conflicts = 0; !g_stopPurge;) {
            long long removed = 0;
            try {
                removed = PurgeBatch(*st, where, rows, candidates, n);
            } catch (sql::SQLException& e) {
                // A batch that lost a conflict with another writer (a deadlock,
                // a failed certification on a cluster) was rolled back whole.
                if (e.getErrorCode() != 1213 || ++conflicts > 8) throw;
                st->execute("ROLLBACK");
                continue;
            }
            if (removed == 0) break;
            conflicts = 0;
            // Entries seen but left out this time are looked at again next batch.
            candidates = std::min(rows, 2 * removed);
            if (progress)
                std::printf("batch %lld: %lld queue entries, %lld content rows, %lld subscriptions removed so far\n",
                            n.batches, n.entries, n.contents, n.subscriptions), std::fflush(stdout);
        }
    } catch (sql::SQLException& e) {
        return {PurgeTable(n, "failed"), Failure{"purge stopped: " + std::string(e.what()) +
                                                     "; the batches before were committed whole, run it again",
                                                 kFailed}};
    }
    if (g_stopPurge)
        return {PurgeTable(n, "interrupted"),
                Failure{"purge interrupted after " + std::to_string(n.batches) +
                            " batches; the same command finishes it", kInterrupted}};
    return Done(PurgeTable(n, "done"));
}

struct Command {
    const char* name;
    size_t positional;
    std::set<std::string> values;  // options taking a value
    std::set<std::string> flags;
    bool readsDatabase;            // through the facade: test the connection first
    std::function<Result(const Args&)> run;
    const char* usage;
};

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"check", 0, {"schema"}, {}, false, Check,
         "check [--schema FILE]             verify tables, columns, the MAXID row and the account's rights"},
        {"tickets", 0, {"device", "state"}, {}, true, Tickets,
         "tickets [--device D] [--state S]  one row per queue entry"},
        {"ticket", 1, {}, {"jdf"}, true, Ticket, "ticket KEY [--jdf]                one queue entry in full, or its JDF alone"},
        {"devices", 0, {}, {}, true, Devices, "devices                           the output devices"},
        {"servers", 0, {}, {}, true, Servers, "servers                           the servers of the devices"},
        {"subs", 0, {"device"}, {"due"}, true, Subs, "subs [--due] [--device D]         status subscriptions (--due: due now)"},
        {"senders", 0, {"file"}, {}, false, Senders,
         "senders [--file PATH]             query-id/URL pairs of the ticket file (./QueryURL)"},
        {"init-db", 0,
         {"admin-socket", "admin-host", "admin-port", "admin-user", "admin-password", "schema", "user", "password-file",
          "from"},
         {}, false, InitDb,
         "init-db --admin-socket PATH | --admin-host H [--admin-port P]\n"
         "          [--admin-user U] [--admin-password W] [--schema FILE]\n"
         "          [--user NAME --password-file FILE [--from HOSTPATTERN]]\n"
         "                                    load the schema and the account (mariadb client); --user:\n"
         "                                    an account of your own with the library's rights only,\n"
         "                                    from HOSTPATTERN (default: this machine)"},
        {"purge", 0, {"state", "older-than", "batch"}, {"dry-run"}, false, Purge,
         "purge --state S [--older-than AGE] [--batch ROWS] [--dry-run]\n"
         "                                    remove queue entries in state S with their content rows and\n"
         "                                    subscriptions, in batches of at most ROWS rows (default 1000)"},
    };
    return commands;
}

int Help(FILE* out) {
    std::fprintf(out,
                 "usage: norva [--host HOST] [--profile exact|safe] [--json] COMMAND [ARGS]\n\n"
                 "Reads norva.conf from the working directory like the library; --host\n"
                 "overrides DBIPAddr, --profile overrides Profile.\n\ncommands:\n");
    for (const Command& c : Commands()) std::fprintf(out, "  %s\n", c.usage);
    std::fprintf(out,
                 "\nexit codes:\n"
                 "  0  success\n"
                 "  1  a problem was found (check), a record is missing, or the schema or account is missing\n"
                 "  2  the database server cannot be reached\n"
                 "  3  usage error\n"
                 "  4  other failure (configuration refused, schema or password file unreadable, init-db failed,\n"
                 "     ticket file unreadable)\n"
                 "  130  purge interrupted (SIGINT, SIGTERM) after a whole batch; run it again\n");
    return out == stdout ? kOk : kUsage;
}

int Usage(const std::string& message) {
    std::fprintf(stderr, "%s (norva --help lists the commands and options)\n", message.c_str());
    return kUsage;
}

}  // namespace

int main(int argc, char** argv) {
    Args a;
    bool json = false;
    std::vector<std::string> words(argv + 1, argv + argc);
    // Global options first, then the command and its own options.
    size_t i = 0;
    for (; i < words.size() && words[i].compare(0, 2, "--") == 0; ++i) {
        const std::string& w = words[i];
        if (w == "--help") return Help(stdout);
        if (w == "--json") { json = true; continue; }
        if ((w != "--host" && w != "--profile") || i + 1 >= words.size()) return Usage("unknown option " + w);
        const std::string value = words[++i];
        if (w == "--host") ConfigurationControl::SetDBIPAddr(StringUtils::wstringFromstring(value));
        else if (value == "exact" || value == "safe") ConfigurationControl::SetProfile(value);
        else return Usage("--profile takes exact or safe, not " + value);
    }
    if (i >= words.size()) return Help(stderr);
    a.command = words[i++];
    auto command = std::find_if(Commands().begin(), Commands().end(),
                                [&](const Command& c) { return a.command == c.name; });
    if (command == Commands().end()) return Usage("unknown command " + a.command);
    for (; i < words.size(); ++i) {
        const std::string& w = words[i];
        const std::string name = w.compare(0, 2, "--") == 0 ? w.substr(2) : "";
        if (w == "--help") return Help(stdout);
        if (w == "--json") json = true;
        else if (command->flags.count(name)) a.flags.insert(name);
        else if (command->values.count(name) && i + 1 < words.size()) a.values[name] = words[++i];
        else if (name.empty() && a.positional.size() < command->positional) a.positional.push_back(w);
        else return Usage("unexpected argument " + w + " for " + a.command);
    }
    if (a.positional.size() != command->positional) return Usage(a.command + " needs a KEY");
    if (a.command == "init-db" && !a.Has("admin-socket") && !a.Has("admin-host"))
        return Usage("init-db needs --admin-socket PATH or --admin-host HOST");

    // The library's log goes to its LogFile; without one its lines would mix
    // with this tool's one-line errors on stderr, so they are dropped.
    if (ConfigurationControl::GetLogFile().empty()) Logger::Initialise()->SetSink([](LOG_CONST, const std::wstring&) {});
    // Settings the library would refuse are refused here too, before
    // connecting (check lists them as its findings).
    if (command->readsDatabase || a.command == "purge") {
        for (const std::string& problem : Settings().problems)
            std::fprintf(stderr, "the configuration is refused: %s\n", problem.c_str());
        if (!Settings().Usable()) return kFailed;
    }
    // The library logs a failed connection only; test it here first.
    if (command->readsDatabase) {
        Probe p = Connect();
        if (!p.connection) {
            std::fprintf(stderr, "%s\n", p.failure.message.c_str());
            return p.failure.code;
        }
    }
    if (json) a.flags.insert("json");
    Result r = command->run(a);
    if (!r.second.message.empty()) std::fprintf(stderr, "%s\n", r.second.message.c_str());
    if (!r.first.columns.empty()) Print(r.first, json);
    return r.second.code;
}
