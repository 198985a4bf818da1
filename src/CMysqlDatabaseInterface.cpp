#include "CMysqlDatabaseInterface.h"

#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <cppconn/datatype.h>
#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/resultset_metadata.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>
#include <thread>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <memory>
#include <optional>
#include <stdexcept>

#include "TimeStamp.h"
#include "dl_MultiValue.h"
#include "private/MutexLock.h"
#include "private/QueryRows.h"
#include "private/StoreProfile.h"
#include "private/StoreSettings.h"
#include "utility.h"

namespace {

const LOG_CONST kLevel = LOG_LEVEL_5;
const wchar_t* const kExceptionLine = L"*****Exception at %s*****";
const wchar_t* const kUnknownException = L"Unknown Exception occur";

// The texts of one store operation: its entry and exit lines, the signature
// reported with a caught exception, and whether a standard exception other
// than a SQL one counts as "known" (logged without the unknown line).
struct Operation {
    const wchar_t* entry;
    const wchar_t* exit;
    const wchar_t* signature;
    bool standardKnown;
};

const Operation kConstructor = {nullptr, nullptr, L"Exception at dl_DatabaseInterface::dl_DatabaseInterface", false};
const Operation kGetTicketType = {L"Inside CMysqlDatabaseInterface::GetTicketType()",
                                  L"Returning from CMysqlDatabaseInterface::GetTicketType()",
                                  L"std::string CMysqlDatabaseInterface::GetTicketType", false};
const Operation kGetPrimaryKey = {L"Inside CMysqlDatabaseInterface::GetPrimaryKey()",
                                  L"Returning from CMysqlDatabaseInterface::GetPrimaryKey()",
                                  L"std::string CMysqlDatabaseInterface::GetPrimaryKey", false};
const Operation kAddNewTicket = {L"Inside CMysqlDatabaseInterface::AddNewTicket()",
                                 L"Returning from CMysqlDatabaseInterface::AddNewTicket()",
                                 L"bool dl_DatabaseInterface::AddNewTicket", false};
const Operation kDeleteTicket = {L"Inside CMysqlDatabaseInterface::DeleteTicket()",
                                 L"Returning from CMysqlDatabaseInterface::DeleteTicket()",
                                 L"bool dl_DatabaseInterface::DeleteTicket", false};
const Operation kAddParameter = {L"Inside CMysqlDatabaseInterface::AddParameter()",
                                 L"Returning from CMysqlDatabaseInterface::AddParameter()",
                                 L"bool CMysqlDatabaseInterface::AddParameter", false};
const Operation kGetParameter = {L"Inside CMysqlDatabaseInterface::GetParameter()",
                                 L"Returning from CMysqlDatabaseInterface::GetParameter()",
                                 L"bool CMysqlDatabaseInterface::GetParameter", false};
const Operation kDeleteParameter = {L"Inside CMysqlDatabaseInterface::DeleteParameter()",
                                    L"Returning from CMysqlDatabaseInterface::DeleteParameter()",
                                    L"bool CMysqlDatabaseInterface::DeleteParameter", false};
const Operation kSendValueToCursor = {L"Inside CMysqlDatabaseInterface::SendValueToCursor()",
                                      L"Returning from CMysqlDatabaseInterface::SendValueToCursor()",
                                      L"void dl_DatabaseInterface::SendValueToCursor", false};
const Operation kExecuteQuery = {L"Inside CMysqlDatabaseInterface::ExecuteQuery()",
                                 L"Returning from CMysqlDatabaseInterface::ExecuteQuery()",
                                 L"void dl_DatabaseInterface::ExecuteQuery", true};
const Operation kGenerateNewID = {L"Inside CMysqlDatabaseInterface::GenerateNewID()",
                                  L"Returning from CMysqlDatabaseInterface::GenerateNewID()",
                                  L"void CMysqlDatabaseInterface::GenerateNewID", false};
const Operation kGetMaxId = {L"Inside CMysqlDatabaseInterface::GetMaxId()",
                             L"Returning from CMysqlDatabaseInterface::GetMaxId()",
                             L"int CMysqlDatabaseInterface::GetMaxID", true};
const Operation kUpdateMaxId = {L"Inside CMysqlDatabaseInterface::UpdateMaxId()",
                                L"Returning from CMysqlDatabaseInterface::UpdateMaxId()",
                                L"void CMysqlDatabaseInterface::UpdateMaxId", false};
const Operation kAddBlob = {L"Inside CMysqlDatabaseInterface::AddBlob()",
                            L"Returning from CMysqlDatabaseInterface::AddBlob()",
                            L"bool CMysqlDatabaseInterface::AddBlob", false};
const Operation kGetBlob = {L"Inside CMysqlDatabaseInterface::GetBlob()",
                            L"Returning from CMysqlDatabaseInterface::GetBlob()",
                            L"bool CMysqlDatabaseInterface::GetBlob", false};
const Operation kWriteRow = {L"Inside CMysqlDatabaseInterface::WriteRow()",
                             L"Returning from CMysqlDatabaseInterface::WriteRow()",
                             L"bool CMysqlDatabaseInterface::WriteRow", false};
const Operation kInsertRow = {L"Inside CMysqlDatabaseInterface::InsertRow()",
                              L"Returning from CMysqlDatabaseInterface::InsertRow()",
                              L"bool CMysqlDatabaseInterface::InsertRow", false};

// Server error numbers the safe profile acts on.
const int kDuplicateKey = 1062;
// How often an insert with a generated key is tried before it gives up, and
// after how many taken keys the MAXID mark is raised past the table's keys.
const int kInsertAttempts = 8;
const int kAttemptsBeforeResync = 2;

// The two workers of identifier generation differ only in these texts.
struct IdWorker {
    const wchar_t* entry;
    const wchar_t* noResult;
    const wchar_t* exit;
};
const IdWorker kIntWorker = {L"Inside CMysqlDatabaseInterface::GenerateIntID()",
                             L"CMysqlDatabaseInterface::GenerateIntID : ResultSet is NULL",
                             L"Returning from CMysqlDatabaseInterface::GenerateIntID()"};
const IdWorker kStringWorker = {L"Inside CMysqlDatabaseInterface::GenerateStringID()",
                                L"CMysqlDatabaseInterface::GenerateStringID : ResultSet is NULL",
                                L"Returning from CMysqlDatabaseInterface::GenerateStringID()"};

// The built-in catalogue: table name and primary key by TICKET_TYPE_NV.
struct CatalogueEntry {
    const char* table;
    const char* key;
};
const CatalogueEntry kCatalogue[] = {
    {"", ""},
    {"JDFTICKET", "QENTRYID"},
    {"CONTENT", "CONTENTID"},
    {"DEVICEJOB", "TRACKID"},
    {"STATSSUBS", "ID"},
    {"SERVER", "SERVERID"},
    {"DEVICE", "DEVICEID"},
    {"LOG", "LOGID"},
    {"MAXID", "JDFTICKET"},
};

bool IsKnownTable(TICKET_TYPE_NV table) { return table >= TICKET_JDFTICKET && table <= TICKET_MAXID; }

// Which lock a store operation takes. With one connection every operation
// holds the store's lock, as statements share that connection. With more,
// statements run side by side on their own connections and only identifier
// generation is one critical section, per table.
mutex g_idLocks[TICKET_MAXID + 1];

bool SharesOneConnection(CDatabaseConnection* connection) { return connection == nullptr || connection->Size() == 1; }

mutex* StoreLock(CDatabaseConnection* connection, mutex& storeLock) {
    return SharesOneConnection(connection) ? &storeLock : nullptr;
}

mutex* IdLock(CDatabaseConnection* connection, mutex& storeLock, TICKET_TYPE_NV table) {
    if (SharesOneConnection(connection)) return &storeLock;
    return &g_idLocks[IsKnownTable(table) ? table : 0];
}

// Set while this thread runs BeginTurn's transaction: a statement refused as
// a deadlock is then not run again on its own (the transaction is gone).
thread_local bool t_inTurn = false;

// Before the n-th rerun of a statement refused as a conflict: a random pause
// of up to 2^n ms (at most 64 ms), so that writers colliding on one row (a
// cluster's MAXID) do not collide again in step.
void ConflictPause(int n) {
    thread_local std::minstd_rand random(static_cast<unsigned>(
        std::hash<std::thread::id>()(std::this_thread::get_id()) ^
        static_cast<size_t>(std::chrono::steady_clock::now().time_since_epoch().count())));
    const int limit = 1000 << std::min(n, 6);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % limit));
}

void LogException(Logger* logger, const wchar_t* signature, bool unknown) {
    // %s with a wide signature: one character shows (docs/kept-behaviours.md, S9).
    logger->log(kLevel, kExceptionLine, signature);
    if (unknown) logger->log(kLevel, L"%ls", kUnknownException);
}

// The frame every store operation runs in: entry line, the lock (when one is
// given), the body under a handler for every exception, unlock, exit line.
// The body may replace the exit line, or drop it by setting it to null.
template <class Body>
void RunFrame(Logger* logger, mutex* lock, const Operation& op, Body body) {
    if (op.entry) logger->log(kLevel, op.entry);
    const wchar_t* exitLine = op.exit;
    {
        std::optional<MutexLock> guard;
        if (lock) guard.emplace(*lock);
        try {
            body(exitLine);
        } catch (const sql::SQLException&) {
            LogException(logger, op.signature, false);
        } catch (const std::exception&) {
            LogException(logger, op.signature, !op.standardKnown);
        } catch (...) {
            LogException(logger, op.signature, true);
        }
    }
    if (exitLine) logger->log(kLevel, exitLine);
}

// Escapes text for a quoted literal as the server's own escaping does for
// utf8mb4 (an ASCII-safe character set: only these bytes need it).
std::string Escaped(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size() + 8);
    for (char c : text) {
        switch (c) {
            case '\'': escaped += "\\'"; break;
            case '"': escaped += "\\\""; break;
            case '\\': escaped += "\\\\"; break;
            case '\0': escaped += "\\0"; break;
            case '\n': escaped += "\\n"; break;
            case '\r': escaped += "\\r"; break;
            case '\x1a': escaped += "\\Z"; break;
            default: escaped += c;
        }
    }
    return escaped;
}

// "name" in backquotes, a backquote inside doubled.
std::string Backquoted(const std::string& name) {
    std::string quoted = "`";
    for (char c : name) {
        if (c == '`') quoted += '`';
        quoted += c;
    }
    return quoted + "`";
}

// "YYYY-MM-DD HH:MM:SS" from a time stamp; the fraction and zone are not stored.
std::string DateTimeText(const TimeStamp& stamp) {
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", stamp.year, stamp.month, stamp.day, stamp.hour,
                  stamp.minute, stamp.second);
    return text;
}

// A DATETIME value as the server sends it; fraction and zone stay 0.
TimeStamp TimeFromText(const std::string& text) {
    TimeStamp stamp(0);
    std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d", &stamp.year, &stamp.month, &stamp.day, &stamp.hour, &stamp.minute,
                &stamp.second);
    return stamp;
}

// A blob value of the one-statement-per-column writer that is handed on as
// the address of a _BLOB record; the zero tail ends a read of the record's
// own bytes as a wide text inside this object.
struct BlobRecordValue {
    _BLOB blob;
    wchar_t end[2] = {0, 0};
};
static_assert(sizeof(_BLOB) % sizeof(wchar_t) == 0, "the tail must follow the _BLOB directly");

std::string Narrow(const void* wide) {
    return StringUtils::stringFromwstring(wide ? static_cast<const wchar_t*>(wide) : L"");
}

// The leading decimal number of a key text, read as a stream reads an int:
// blanks skipped, an optional sign, digits; none counts as 0, and a number
// out of range gives the nearest limit.
int LeadingNumber(const std::string& text) {
    size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
    bool negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) negative = text[at++] == '-';
    int64_t value = 0;
    const int64_t limit = negative ? -static_cast<int64_t>(INT_MIN) : INT_MAX;
    bool digits = false;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        digits = true;
        value = std::min<int64_t>(value * 10 + (text[at] - '0'), limit + 1);
    }
    if (!digits) return 0;
    if (value > limit) return negative ? INT_MIN : INT_MAX;
    return static_cast<int>(negative ? -value : value);
}

// Writes the "not set" value of `type` into a caller's buffer: -1, an
// empty text or TimeStamp(0).
void ClearValue(void* value, PARAM_TYPE_NV type) {
    switch (type) {
        case PARAM_INT:
        case PARAM_INT_2:
        case PARAM_INT_5: {
            const int32_t unset = -1;
            std::memcpy(value, &unset, sizeof unset);
            break;
        }
        case PARAM_LONG: {
            const int64_t unset = -1;
            std::memcpy(value, &unset, sizeof unset);
            break;
        }
        case PARAM_DOUBLE: {
            const double unset = -1;
            std::memcpy(value, &unset, sizeof unset);
            break;
        }
        case PARAM_WSTRING:
        case PARAM_WSTRING_7: *static_cast<wchar_t*>(value) = L'\0'; break;
        case PARAM_TIMESTAMP: *static_cast<TimeStamp*>(value) = TimeStamp(0); break;
        default: break;
    }
}

// One cell of a result row into the block: the column's type chooses the
// kind of cell and how the value is read. A type without a conversion gives
// a cell without a value (tag 10); so does NULL, and DATETIME unless the
// profile reads time stamps.
void ReadCell(const StoreProfile& profile, sql::ResultSet& rows, unsigned int index, int columnType,
              RowSink& block) {
    if (profile.nullIsUnset && rows.isNull(index)) {
        block.None();
        return;
    }
    switch (columnType) {
        case sql::DataType::INTEGER: block.Int(rows.getInt(index)); break;
        case sql::DataType::VARCHAR:
        case sql::DataType::LONGVARCHAR: {
            const sql::SQLString text = rows.getString(index);
            block.Text(text.c_str(), text.length());
            break;
        }
        case sql::DataType::TIMESTAMP:
            if (profile.times) {
                block.Time(TimeFromText(rows.getString(index)));
                break;
            }
            block.None();
            break;
        default: block.None();
    }
}

}  // namespace

CMysqlDatabaseInterface* CMysqlDatabaseInterface::mDatabaseInterfaceP = nullptr;

CMysqlDatabaseInterface* CMysqlDatabaseInterface::GetInstance() {
    if (mDatabaseInterfaceP == nullptr) mDatabaseInterfaceP = new CMysqlDatabaseInterface();
    return mDatabaseInterfaceP;
}

CMysqlDatabaseInterface::CMysqlDatabaseInterface()
    : m_pDBConnection(nullptr),
      m_bIDPattern(false),
      m_pProfile(&kExactProfile),
      m_pLogger(Logger::Initialise()) {
    RunFrame(m_pLogger, nullptr, kConstructor, [&](const wchar_t*&) {
        m_pLogger->log(kLevel, L"Creating a singleton object for dl_DatabaseInterface");
        m_userName = "lumbo27";
        m_password = "lumbo27";
        m_hostName = StringUtils::UTF8FromUni(ConfigurationControl::GetDBIPAddr());
        m_pDBConnection = CDatabaseConnection::GetInstance(m_hostName, m_userName, m_password);
        const StoreSettings settings = ReadStoreSettings();
        m_bIDPattern = settings.idPattern;
        m_pProfile = &ProfileNamed(settings.profile);
        m_pLogger->log(kLevel, L"Creation a singleton object for dl_DatabaseInterface has been done");
    });
}

CMysqlDatabaseInterface::CMysqlDatabaseInterface(const CMysqlDatabaseInterface&)
    : dl_MainInterface(),
      m_pDBConnection(nullptr),
      m_bIDPattern(false),
      m_pProfile(&kExactProfile),
      m_pLogger(Logger::Initialise()) {}

CMysqlDatabaseInterface& CMysqlDatabaseInterface::operator=(const CMysqlDatabaseInterface&) { return *this; }

// Neither the connection nor the singleton pointer is touched.
CMysqlDatabaseInterface::~CMysqlDatabaseInterface() {}

const char* CMysqlDatabaseInterface::ProfileName() const { return m_pProfile->name; }

sql::ResultSet* CMysqlDatabaseInterface::Run(std::string& text) { return Exec(text).rows; }

CDatabaseConnection::Outcome CMysqlDatabaseInterface::Exec(std::string& text) {
    utility::LogCSqlQuery(kLevel, m_pLogger, text.c_str());
    if (m_pDBConnection == nullptr) return {nullptr, -1, 0};
    CDatabaseConnection::Outcome outcome = m_pDBConnection->Execute(text);
    // A deadlock (or a cluster's certification conflict) rolled the statement
    // back whole, so running it again cannot apply it twice.
    // Inside a transaction the whole transaction is gone: its owner starts it again.
    for (int retry = 0; outcome.error == 1213 && !t_inTurn && retry < m_pProfile->conflictRetries; ++retry) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface : conflict (error 1213), running the statement again");
        ConflictPause(retry);
        outcome = m_pDBConnection->Execute(text);
    }
    return outcome;
}

bool CMysqlDatabaseInterface::Answer(CDatabaseConnection::Outcome outcome, bool needsRow, const wchar_t* what) {
    delete outcome.rows;
    if (!m_pProfile->truthfulAnswers) return true;
    if (outcome.error != 0) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::%ls : the server refused the statement (error %d)", what,
                       outcome.error);
        return false;
    }
    if (needsRow && outcome.matched == 0) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::%ls : no row has the key", what);
        return false;
    }
    return true;
}

std::string CMysqlDatabaseInterface::Name(const std::string& name) const {
    if (!m_pProfile->quoteNames) return name;
    // Each part of "TABLE.COLUMN" on its own; "*" stays bare.
    std::string quoted;
    size_t start = 0;
    while (true) {
        const size_t dot = name.find('.', start);
        const std::string part = name.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        quoted += part == "*" ? part : Backquoted(part);
        if (dot == std::string::npos) return quoted;
        quoted += '.';
        start = dot + 1;
    }
}

void CMysqlDatabaseInterface::Literal(std::ostringstream& out, PARAM_TYPE_NV type, const void* value) {
    if (m_pProfile->times && type == PARAM_TIMESTAMP &&
        (value == nullptr || *static_cast<const TimeStamp*>(value) == TimeStamp(0))) {
        out << "NULL";
        return;
    }
    out << "'";
    SendValueToCursor(type, out, value);
    out << "'";
}

std::string CMysqlDatabaseInterface::Quotable(const std::string& text) const {
    return m_pProfile->escapeValues ? Escaped(text) : text;
}

const char* CMysqlDatabaseInterface::ColumnPart(const char* column) {
    const char* dot = column ? std::strchr(column, '.') : nullptr;
    if (dot == nullptr) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface : column name without a table part refused: %s",
                       column ? column : "");
        return nullptr;
    }
    return utility::StringLowerToUpper(dot + 1);
}

void CMysqlDatabaseInterface::AppendWhereKey(std::ostringstream& text, TICKET_TYPE_NV table, const void* key,
                                             PARAM_TYPE_NV keyType) {
    text << " WHERE " << Name(GetPrimaryKey(table)) << " = ";
    Literal(text, keyType, key);
}

std::string CMysqlDatabaseInterface::KeyedColumnStatement(const char* verb, const char* name, TICKET_TYPE_NV table,
                                                          const void* key, PARAM_TYPE_NV keyType) {
    std::ostringstream text;
    text << verb << " " << Name(name) << " FROM " << Name(GetTicketType(table));
    AppendWhereKey(text, table, key, keyType);
    return text.str();
}

std::string CMysqlDatabaseInterface::GetTicketType(TICKET_TYPE_NV table) {
    std::string name;
    RunFrame(m_pLogger, nullptr, kGetTicketType, [&](const wchar_t*&) {
        if (IsKnownTable(table))
            name = kCatalogue[table].table;
        else
            m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GetTicketType() : TICKET_TYPE_NV:UNKNOWN");
    });
    return name;
}

std::string CMysqlDatabaseInterface::GetPrimaryKey(TICKET_TYPE_NV table) {
    std::string key;
    RunFrame(m_pLogger, nullptr, kGetPrimaryKey, [&](const wchar_t*&) {
        if (IsKnownTable(table)) key = kCatalogue[table].key;
    });
    return key;
}

void CMysqlDatabaseInterface::SendValueToCursor(PARAM_TYPE_NV type, std::ostringstream& out, const void* value) {
    RunFrame(m_pLogger, nullptr, kSendValueToCursor, [&](const wchar_t*&) {
        switch (type) {
            case PARAM_INT:
            case PARAM_INT_2:
            case PARAM_INT_5: out << *static_cast<const int32_t*>(value); break;
            case PARAM_LONG: out << *static_cast<const int64_t*>(value); break;
            case PARAM_DOUBLE: out << *static_cast<const double*>(value); break;
            case PARAM_WSTRING:
            case PARAM_WSTRING_7: out << Quotable(Narrow(value)); break;
            case PARAM_TIMESTAMP:
                if (m_pProfile->times && value) out << DateTimeText(*static_cast<const TimeStamp*>(value));
                break;
            default:
                m_pLogger->log(kLevel,
                               L"CMysqlDatabaseInterface::SendValueToCursor() : Unknown and UnHandled Type send to "
                               L"database");
        }
    });
}

bool CMysqlDatabaseInterface::AddNewTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) {
    // Exact: true whatever happens. Safe: true only once the server took the change.
    bool result = !m_pProfile->truthfulAnswers;
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kAddNewTicket, [&](const wchar_t*&) {
        std::ostringstream text;
        text << "INSERT INTO " << Name(GetTicketType(table)) << "(" << Name(GetPrimaryKey(table)) << ") VALUES(";
        Literal(text, keyType, key);
        text << ")";
        std::string statement = text.str();
        result = Answer(Exec(statement), false, L"AddNewTicket()");
    });
    return result;
}

bool CMysqlDatabaseInterface::DeleteTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) {
    // Exact: true whatever happens. Safe: true only once the server took the change.
    bool result = !m_pProfile->truthfulAnswers;
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kDeleteTicket, [&](const wchar_t*&) {
        std::ostringstream text;
        text << "DELETE FROM " << Name(GetTicketType(table)) << " WHERE " << Name(GetPrimaryKey(table)) << "=";
        Literal(text, keyType, key);
        std::string statement = text.str();
        result = Answer(Exec(statement), false, L"DeleteTicket()");
    });
    return result;
}

bool CMysqlDatabaseInterface::AddParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                           const char* column, const void* value, PARAM_TYPE_NV valueType) {
    // Exact: true whatever happens. Safe: true only once the server took the change.
    bool result = !m_pProfile->truthfulAnswers;
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kAddParameter, [&](const wchar_t*&) {
        if (valueType == PARAM_BLOB) {
            _BLOB blob(static_cast<const wchar_t*>(value));
            result = AddBlob(table, key, keyType, column, &blob);
            return;
        }
        const char* name = ColumnPart(column);
        if (name == nullptr) {
            result = !m_pProfile->truthfulAnswers;
            return;
        }
        std::ostringstream text;
        text << "UPDATE " << Name(GetTicketType(table)) << " SET " << Name(name) << " = ";
        Literal(text, valueType, value);
        AppendWhereKey(text, table, key, keyType);
        std::string statement = text.str();
        result = Answer(Exec(statement), true, L"AddParameter()");
    });
    return result;
}

bool CMysqlDatabaseInterface::GetParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                           const char* column, void* value, PARAM_TYPE_NV valueType) {
    // Safe: a read that stops on an exception answers false.
    bool result = !m_pProfile->truthfulAnswers;
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kGetParameter, [&](const wchar_t*& exitLine) {
        if (valueType == PARAM_BLOB) {
            result = GetBlob(table, key, keyType, column, static_cast<_BLOB*>(value)) || !m_pProfile->truthfulAnswers;
            return;
        }
        const char* name = ColumnPart(column);
        if (name == nullptr) {
            result = false;
            return;
        }
        std::string statement = KeyedColumnStatement("SELECT", name, table, key, keyType);
        std::unique_ptr<sql::ResultSet> rows(Run(statement));
        if (!rows) {
            exitLine = L"Returning from CMysqlDatabaseInterface::GetParameter() : Failed Execution";
            result = false;
            return;
        }
        if (!rows->next()) {
            // No row: the caller's buffer stays as it was.
            if (m_pProfile->truthfulAnswers) {
                m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GetParameter() : no row has the key");
                result = false;
            }
            return;
        }
        result = true;
        if (m_pProfile->nullIsUnset && rows->isNull(name)) {
            ClearValue(value, valueType);
            return;
        }
        switch (valueType) {
            case PARAM_INT:
            case PARAM_INT_2: {
                const int32_t number = rows->getInt(name);
                std::memcpy(value, &number, sizeof number);
                break;
            }
            case PARAM_LONG: {
                const int64_t number = rows->getInt(name);  // a 32-bit read, sign-extended
                std::memcpy(value, &number, sizeof number);
                break;
            }
            case PARAM_DOUBLE: {
                const double number = static_cast<double>(rows->getDouble(name));
                std::memcpy(value, &number, sizeof number);
                break;
            }
            case PARAM_WSTRING:
            case PARAM_WSTRING_7: {
                // The whole text and its NUL: the caller's buffer must hold it.
                const std::wstring wide = StringUtils::wstringFromstring(rows->getString(name));
                std::wmemcpy(static_cast<wchar_t*>(value), wide.c_str(), wide.size() + 1);
                break;
            }
            case PARAM_TIMESTAMP:
                if (m_pProfile->times) *static_cast<TimeStamp*>(value) = TimeFromText(rows->getString(name));
                break;
            default: break;
        }
    });
    return result;
}

bool CMysqlDatabaseInterface::DeleteParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                              const char* column, PARAM_TYPE_NV) {
    // Exact: true whatever happens. Safe: true only once the server took the change.
    bool result = !m_pProfile->truthfulAnswers;
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kDeleteParameter, [&](const wchar_t*&) {
        const char* name = ColumnPart(column);
        if (name == nullptr) {
            result = !m_pProfile->truthfulAnswers;
            return;
        }
        std::string statement;
        if (m_pProfile->clearSetsNull) {
            std::ostringstream text;
            text << "UPDATE " << Name(GetTicketType(table)) << " SET " << Name(name) << " = NULL";
            AppendWhereKey(text, table, key, keyType);
            statement = text.str();
        } else {
            // Refused by the server, only logged (docs/kept-behaviours.md, S4).
            statement = KeyedColumnStatement("DELETE", name, table, key, keyType);
        }
        result = Answer(Exec(statement), true, L"DeleteParameter()");
    });
    return result;
}

bool CMysqlDatabaseInterface::AddBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                      const char* column, _BLOB* blob) {
    // Exact: true whatever happens. Safe: true only once the server took the change.
    bool result = !m_pProfile->truthfulAnswers;
    RunFrame(m_pLogger, nullptr, kAddBlob, [&](const wchar_t*&) {
        const char* name = ColumnPart(column);
        if (name == nullptr) {
            result = !m_pProfile->truthfulAnswers;
            return;
        }
        std::string text = "UPDATE " + Name(GetTicketType(table)) + " SET " + Name(name) + "='" +
                           Quotable(Narrow(blob ? blob->data : nullptr)) + "' WHERE " + Name(GetPrimaryKey(table)) +
                           " = '";
        if (keyType == PARAM_INT)
            text += std::to_string(*static_cast<const int32_t*>(key));
        else
            text += Quotable(Narrow(key));
        text += "'";
        result = Answer(Exec(text), true, L"AddBlob()");
    });
    return result;
}

bool CMysqlDatabaseInterface::GetBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                      const char* column, _BLOB* blob) {
    bool result = false;
    RunFrame(m_pLogger, nullptr, kGetBlob, [&](const wchar_t*& exitLine) {
        const char* name = ColumnPart(column);
        if (name == nullptr) {
            exitLine = nullptr;
            return;
        }
        std::string statement = KeyedColumnStatement("SELECT", name, table, key, keyType);
        std::unique_ptr<sql::ResultSet> rows(Run(statement));
        if (!rows) {
            exitLine = L"Exiting CMysqlDatabaseInterface::GetBlob() : Failed Execution.";
            return;
        }
        const bool found = rows->next();
        if (!found && m_pProfile->truthfulAnswers) {
            m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GetBlob() : no row has the key");
            return;
        }
        // Decoded straight into the blob's text. A previous text is not
        // released: callers pass an empty _BLOB.
        const sql::SQLString content = found ? rows->getString(name) : sql::SQLString();
        blob->data = TupElement::AllocateText(content.c_str(), content.length());
        result = true;
    });
    return result;
}

void CMysqlDatabaseInterface::ExecuteQuery(dl_MultiValue* query) {
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kExecuteQuery, [&](const wchar_t*& exitLine) {
        std::string text = query->StartStatement.set ? query->StartStatement.text : "SELECT ";
        dl_MultiValue& q = *query;  // the store reads the keys and tables with the query's own cursors
        for (q.m_keyCursor = q.m_keys.begin(); q.m_keyCursor != q.m_keys.end(); ++q.m_keyCursor)
            text += Name(utility::StringLowerToUpper(*q.m_keyCursor)) + " ,";
        if (!text.empty()) text.erase(text.size() - 1);
        text += "FROM ";
        for (q.m_tableCursor = q.m_tableTypes.begin(); q.m_tableCursor != q.m_tableTypes.end(); ++q.m_tableCursor)
            text += Name(GetTicketType(*q.m_tableCursor)) + " ,";
        text.erase(text.size() - std::min<size_t>(2, text.size()));
        if (!query->m_conditions.m_conditions.empty()) {
            text += " WHERE ";
            for (condition* token : query->m_conditions.m_conditions) {
                switch (token->type) {
                    case COND_BRACKET:
                    case COND_OPERATOR: text += static_cast<const char*>(token->value); break;
                    case COND_COLUMN: {
                        // A "TABLE.COLUMN" token is a name; others (CURRENT_TIMESTAMP) go in bare.
                        const char* column = utility::StringLowerToUpper(static_cast<const char*>(token->value));
                        text += std::strchr(column, '.') ? Name(column) : column;
                        break;
                    }
                    default: {
                        std::ostringstream value;
                        const TupElement* element =
                            token->type == COND_VALUE ? static_cast<const TupElement*>(token->value) : nullptr;
                        if (element)
                            Literal(value, element->type, element->value);
                        else
                            value << "''";
                        text += value.str();
                    }
                }
                text += " ";
            }
        }
        std::unique_ptr<sql::ResultSet> rows(Run(text));
        if (!rows) {
            m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::ExecuteQuery : Failed to execute Query.");
            exitLine = nullptr;
            return;
        }
        // The columns' types and names are the same on every row: read them
        // once. Each row is the query's as soon as it is read whole, so
        // should reading stop half-way, the rows read whole stay.
        std::vector<int> types;
        std::shared_ptr<RowSink> block;
        while (rows->next()) {
            if (!block) {
                sql::ResultSetMetaData* meta = rows->getMetaData();
                std::vector<std::string> names;
                for (unsigned int i = 1; i <= meta->getColumnCount(); ++i) {
                    types.push_back(meta->getColumnType(i));
                    names.emplace_back(meta->getColumnName(i));
                }
                if (types.empty()) break;
                block = QueryRows::Open(*query, std::move(names), rows->rowsCount());
            }
            for (unsigned int i = 1; i <= types.size(); ++i) ReadCell(*m_pProfile, *rows, i, types[i - 1], *block);
        }
    });
}

void CMysqlDatabaseInterface::GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) {
    CDatabaseConnection::Pin pin(m_pDBConnection);  // taken before the lock, as every Pin is
    RunFrame(m_pLogger, IdLock(m_pDBConnection, m_mutex, table), kGenerateNewID, [&](const wchar_t*&) {
        if (m_pProfile->sharedIds) {
            ReserveID(table, out, keyType);
            return;
        }
        int maxId = GetMaxId(table);
        const int readMaxId = maxId;
        std::string text = "SELECT " + GetPrimaryKey(table) + " FROM " + GetTicketType(table);
        std::unique_ptr<sql::ResultSet> keys(Run(text));
        const std::string keyColumn = GetPrimaryKey(table);
        void* target = out;
        if (keyType == PARAM_INT)
            GenerateIntID(keys.get(), keyColumn, target, &maxId);
        else if (keyType == PARAM_WSTRING)
            GenerateStringID(keys.get(), keyColumn, target, &maxId);
        else
            m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GenerateNewQID() : Unknown Type to generate id");
        if (maxId != readMaxId) UpdateMaxId(table, maxId);
    });
}

void CMysqlDatabaseInterface::GenerateIntID(sql::ResultSet* keys, const std::string& keyColumn, void*& out,
                                            int* maxId) {
    GenerateID(keys, keyColumn, out, maxId, false);
}

void CMysqlDatabaseInterface::GenerateStringID(sql::ResultSet* keys, const std::string& keyColumn, void*& out,
                                               int* maxId) {
    GenerateID(keys, keyColumn, out, maxId, true);
}

void CMysqlDatabaseInterface::GenerateID(sql::ResultSet* keys, const std::string& keyColumn, void* out, int* maxId,
                                         bool textKeys) {
    const IdWorker& worker = textKeys ? kStringWorker : kIntWorker;
    m_pLogger->log(kLevel, worker.entry);
    if (keys == nullptr) {
        m_pLogger->log(kLevel, worker.noResult);
        return;
    }
    std::vector<int> values;
    while (keys->next()) {
        int value = 0;
        if (textKeys) {
            value = LeadingNumber(keys->getString(keyColumn));
        } else {
            value = keys->getInt(keyColumn);
        }
        values.push_back(value);
    }
    const int id = NextID(values, maxId);
    if (id > 0) {
        if (textKeys)
            std::swprintf(static_cast<wchar_t*>(out), 33, L"%d", id);
        else
            std::memcpy(out, &id, sizeof id);
    }
    m_pLogger->log(kLevel, worker.exit);
}

int CMysqlDatabaseInterface::NextID(std::vector<int>& keys, int* maxId) {
    int64_t id;
    if (!m_bIDPattern) {
        // Sequential: one past the larger of the largest key and the mark.
        int64_t mark = *maxId;
        if (!keys.empty()) mark = std::max<int64_t>(*std::max_element(keys.begin(), keys.end()), mark);
        id = mark + 1;
    } else {
        std::sort(keys.begin(), keys.end());
        // Lowest free: walk the sorted keys while they match the candidate;
        // how keys of 0, repeated and negative numbers count:
        // docs/kept-behaviours.md, S10.
        int64_t candidate = 1;
        for (int key : keys) {
            if (key == candidate || key == 0)
                ++candidate;
            else if (key > candidate)
                break;
        }
        id = candidate;
    }
    if (id > INT_MAX) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GenerateNewID() : no identifier left below %d", INT_MAX);
        return -1;
    }
    // Keys and mark below 0 can make the next number 0 or less: no identifier,
    // and the mark stays where it was.
    if (id < 1) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GenerateNewID() : no identifier above 0 follows %d",
                       static_cast<int>(id - 1));
        return -1;
    }
    *maxId = std::max<int>(static_cast<int>(id), *maxId);
    return static_cast<int>(id);
}

int CMysqlDatabaseInterface::GetMaxId(TICKET_TYPE_NV table) {
    int value = 0;
    RunFrame(m_pLogger, nullptr, kGetMaxId, [&](const wchar_t*& exitLine) {
        const std::string column = GetTicketType(table);
        std::string text = "SELECT " + Name(column) + " FROM " + Name(GetTicketType(TICKET_MAXID));
        std::unique_ptr<sql::ResultSet> rows(Run(text));
        if (!rows) {
            exitLine = nullptr;
            throw std::runtime_error("CMysqlDatabaseInterface::GetMaxId() : Database query could not be executed");
        }
        while (rows->next()) value = rows->getInt(column);
    });
    return value;
}

void CMysqlDatabaseInterface::UpdateMaxId(TICKET_TYPE_NV table, int value) {
    RunFrame(m_pLogger, nullptr, kUpdateMaxId, [&](const wchar_t*&) {
        std::string text =
            "UPDATE " + GetTicketType(TICKET_MAXID) + " SET " + GetTicketType(table) + " ='" + std::to_string(value) + "'";
        delete Run(text);
    });
}

namespace {

// Whether an identifier was written to `key`: a text key is not empty, an int
// key is not -1 (the value callers start from).
bool KeyProduced(const void* key, PARAM_TYPE_NV keyType) {
    return keyType == PARAM_INT ? *static_cast<const int32_t*>(key) != -1 : static_cast<const wchar_t*>(key)[0] != 0;
}

void ClearKey(void* key, PARAM_TYPE_NV keyType) {
    if (keyType == PARAM_INT)
        *static_cast<int32_t*>(key) = -1;
    else
        static_cast<wchar_t*>(key)[0] = 0;
}

// The value of a column as a literal: blob texts are plain texts there.
PARAM_TYPE_NV LiteralType(PARAM_TYPE_NV type) { return type == PARAM_BLOB ? PARAM_WSTRING : type; }

}  // namespace

bool CMysqlDatabaseInterface::ReserveID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) {
    if (keyType != PARAM_INT && keyType != PARAM_WSTRING) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GenerateNewQID() : Unknown Type to generate id");
        return false;
    }
    const std::string mark = Name(GetTicketType(table));  // MAXID's column is named after the table
    const std::string marks = Name(GetTicketType(TICKET_MAXID));
    int64_t id = -1;
    if (!m_bIDPattern) {
        // One atomic step raises the mark and remembers the new value for
        // this connection alone, so no two processes get the same number.
        CDatabaseConnection::Pin pin(m_pDBConnection);
        // A mark below 0 counts as 0.
        std::string raise = "UPDATE " + marks + " SET " + mark + " = LAST_INSERT_ID(GREATEST(" + mark + ", 0) + 1)";
        if (!Answer(Exec(raise), true, L"GenerateNewID()")) return false;
        std::string read = "SELECT LAST_INSERT_ID()";
        std::unique_ptr<sql::ResultSet> rows(Run(read));
        if (rows && rows->next()) id = rows->getInt64(1);
    } else {
        // Lowest free number: a candidate only; the row insert decides, and
        // another process that took it makes the insert try again.
        int maxId = GetMaxId(table);
        const int readMaxId = maxId;
        std::string text = "SELECT " + Name(GetPrimaryKey(table)) + " FROM " + Name(GetTicketType(table));
        std::unique_ptr<sql::ResultSet> keys(Run(text));
        if (!keys) return false;
        std::vector<int> values;
        while (keys->next())
            values.push_back(keyType == PARAM_WSTRING ? LeadingNumber(keys->getString(1)) : keys->getInt(1));
        id = NextID(values, &maxId);
        if (id > 0 && maxId != readMaxId) {
            std::string raise = "UPDATE " + marks + " SET " + mark + " = GREATEST(" + mark + ", " +
                                std::to_string(id) + ")";
            Answer(Exec(raise), false, L"GenerateNewID()");
        }
    }
    if (id < 1 || id > INT_MAX) {
        m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::GenerateNewID() : no identifier could be reserved");
        return false;
    }
    if (keyType == PARAM_WSTRING)
        std::swprintf(static_cast<wchar_t*>(out), 32, L"%d", static_cast<int>(id));
    else
        *static_cast<int32_t*>(out) = static_cast<int32_t>(id);
    return true;
}

void CMysqlDatabaseInterface::RaiseMarkToKeys(TICKET_TYPE_NV table) {
    const std::string key = Name(GetPrimaryKey(table));
    std::string text = "SELECT MAX(CAST(" + key + " AS SIGNED)) FROM " + Name(GetTicketType(table));
    std::unique_ptr<sql::ResultSet> rows(Run(text));
    if (!rows || !rows->next() || rows->isNull(1)) return;
    const std::string mark = Name(GetTicketType(table));
    std::string raise = "UPDATE " + Name(GetTicketType(TICKET_MAXID)) + " SET " + mark + " = GREATEST(" + mark +
                        ", " + std::to_string(std::min<int64_t>(rows->getInt64(1), INT_MAX)) + ")";
    Answer(Exec(raise), false, L"GenerateNewID()");
}

bool CMysqlDatabaseInterface::WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                       const dl_ColumnValue* columns, size_t count, bool ok) {
    if (!m_pProfile->oneStatementRows) {
        // One AddParameter per column, each with its own lines and answer.
        for (size_t i = 0; i < count; ++i) {
            const dl_ColumnValue& column = columns[i];
            if (column.whileOk && !ok) continue;
            if (column.blobRecord) {
                BlobRecordValue record{_BLOB(static_cast<const wchar_t*>(column.value))};
                ok = AddParameter(table, key, keyType, column.column, &record.blob, PARAM_BLOB);
            } else {
                ok = AddParameter(table, key, keyType, column.column, column.value, column.type);
            }
        }
        return ok;
    }
    if (count == 0) return ok;
    bool result = false;
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kWriteRow, [&](const wchar_t*&) {
        std::ostringstream text;
        text << "UPDATE " << Name(GetTicketType(table)) << " SET ";
        for (size_t i = 0; i < count; ++i) {
            const char* name = ColumnPart(columns[i].column);
            if (name == nullptr) return;
            text << (i ? ", " : "") << Name(name) << " = ";
            Literal(text, LiteralType(columns[i].type), columns[i].value);
        }
        AppendWhereKey(text, table, key, keyType);
        std::string statement = text.str();
        result = Answer(Exec(statement), true, L"WriteRow()");
    });
    return result;
}

bool CMysqlDatabaseInterface::InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate,
                                        bool replace, const dl_ColumnValue* columns, size_t count) {
    if (m_pProfile->oneStatementRows) {
        bool result = false;
        // An insert with a new key is identifier generation: one critical
        // section per table, its connection pinned first.
        CDatabaseConnection::Pin pin(m_pDBConnection);
        mutex* lock = generate ? IdLock(m_pDBConnection, m_mutex, table) : StoreLock(m_pDBConnection, m_mutex);
        RunFrame(m_pLogger, lock, kInsertRow, [&](const wchar_t*&) {
            result = InsertOneStatement(table, key, keyType, generate, replace, columns, count);
        });
        return result;
    }
    if (generate) {
        GenerateNewID(table, key, keyType);
        if (!KeyProduced(key, keyType)) return false;
    }
    const bool ok = AddNewTicket(table, key, keyType);
    return WriteRow(table, key, keyType, columns, count, ok);
}

bool CMysqlDatabaseInterface::BeginTurn() {
    std::string begin = "START TRANSACTION";
    if (!Answer(Exec(begin), false, L"InsertRow()")) return false;
    t_inTurn = true;
    std::string hold = "SELECT 1 FROM " + Name(GetTicketType(TICKET_MAXID)) + " FOR UPDATE";
    delete Run(hold);
    return true;
}

CDatabaseConnection::Outcome CMysqlDatabaseInterface::EndTurn(CDatabaseConnection::Outcome outcome) {
    t_inTurn = false;
    std::string end = outcome.error == 0 ? "COMMIT" : "ROLLBACK";
    CDatabaseConnection::Outcome ended = Exec(end);
    delete ended.rows;
    // A commit the server refused (a cluster's conflict) undid the insert.
    if (outcome.error == 0 && ended.error != 0) {
        delete outcome.rows;
        return ended;
    }
    return outcome;
}

bool CMysqlDatabaseInterface::InsertOneStatement(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType,
                                                 bool generate, bool replace, const dl_ColumnValue* columns,
                                                 size_t count) {
    const std::string keyColumn = GetPrimaryKey(table);
    // The key column is written from the key; a column naming it again is left out.
    std::vector<std::pair<const char*, const dl_ColumnValue*>> written;
    for (size_t i = 0; i < count; ++i) {
        const char* name = ColumnPart(columns[i].column);
        if (name == nullptr) return false;
        if (keyColumn != name) written.emplace_back(name, &columns[i]);
    }
    // Lowest-free numbers come from a scan, so two processes scanning at once
    // would pick the same one: then the scan and the insert run in one
    // transaction that holds MAXID's row, and the processes take turns.
    const bool turns = generate && m_bIDPattern;
    for (int attempt = 1; attempt <= kInsertAttempts; ++attempt) {
        if (turns && !BeginTurn()) break;
        const bool reserved = !generate || ReserveID(table, key, keyType);
        CDatabaseConnection::Outcome outcome = {nullptr, -1, 0};
        if (reserved) {
            std::ostringstream text;
            text << "INSERT INTO " << Name(GetTicketType(table)) << " (" << Name(keyColumn);
            for (const auto& column : written) text << ", " << Name(column.first);
            text << ") VALUES (";
            Literal(text, keyType, key);
            for (const auto& column : written) {
                text << ", ";
                Literal(text, LiteralType(column.second->type), column.second->value);
            }
            text << ")";
            if (replace) {
                text << " ON DUPLICATE KEY UPDATE ";
                if (written.empty()) text << Name(keyColumn) << " = " << Name(keyColumn);
                for (size_t i = 0; i < written.size(); ++i) {
                    const std::string name = Name(written[i].first);
                    text << (i ? ", " : "") << name << " = VALUES(" << name << ")";
                }
            }
            std::string statement = text.str();
            outcome = Exec(statement);
        }
        if (turns) outcome = EndTurn(outcome);
        if (!reserved) break;
        if (generate && (outcome.error == kDuplicateKey || outcome.error == 1213)) {
            // Another process (or a row written past the mark) has this key,
            // or a cluster node took the turn first.
            delete outcome.rows;
            m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::InsertRow() : the key is taken, trying another");
            if (attempt == kAttemptsBeforeResync) RaiseMarkToKeys(table);
            continue;
        }
        if (Answer(outcome, false, L"InsertRow()")) return true;
        break;
    }
    if (generate) ClearKey(key, keyType);
    return false;
}
