#include "CMysqlDatabaseInterface.h"

#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <cppconn/datatype.h>
#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/resultset_metadata.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <optional>
#include <stdexcept>

#include "dl_MultiValue.h"
#include "private/MutexLock.h"
#include "private/ResultBlock.h"
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

void LogException(Logger* logger, const wchar_t* signature, bool unknown) {
    // The format says %s while the signature is wide, as it stands.
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

// Text placed between single quotes. Values go in as they stand; a hardened
// build escapes quote, backslash and the characters the server's own
// escaping covers.
std::string Quotable(const std::string& text) {
#ifdef NORVA_HARDENED
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
#else
    return text;
#endif
}

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

// One cell of a result row into the block: the column's type chooses the
// kind of cell and how the value is read. A type without a conversion gives
// a cell without a value (tag 10).
void ReadCell(sql::ResultSet& rows, unsigned int index, int columnType, ResultBlock& block) {
    switch (columnType) {
        case sql::DataType::INTEGER: block.Int(rows.getInt(index)); break;
        case sql::DataType::VARCHAR:
        case sql::DataType::LONGVARCHAR: {
            const sql::SQLString text = rows.getString(index);
            block.Text(text.c_str(), text.length());
            break;
        }
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
    : m_pDBConnection(nullptr), m_bIDPattern(false), m_pLogger(Logger::Initialise()) {
    RunFrame(m_pLogger, nullptr, kConstructor, [&](const wchar_t*&) {
        m_pLogger->log(kLevel, L"Creating a singleton object for dl_DatabaseInterface");
        m_userName = "lumbo27";
        m_password = "lumbo27";
        m_hostName = StringUtils::UTF8FromUni(ConfigurationControl::GetDBIPAddr());
        m_pDBConnection = CDatabaseConnection::GetInstance(m_hostName, m_userName, m_password);
        m_bIDPattern = ConfigurationControl::GetIDPattern();
        m_pLogger->log(kLevel, L"Creation a singleton object for dl_DatabaseInterface has been done");
    });
}

CMysqlDatabaseInterface::CMysqlDatabaseInterface(const CMysqlDatabaseInterface&)
    : dl_MainInterface(), m_pDBConnection(nullptr), m_bIDPattern(false), m_pLogger(Logger::Initialise()) {}

CMysqlDatabaseInterface& CMysqlDatabaseInterface::operator=(const CMysqlDatabaseInterface&) { return *this; }

// Neither the connection nor the singleton pointer is touched.
CMysqlDatabaseInterface::~CMysqlDatabaseInterface() {}

sql::ResultSet* CMysqlDatabaseInterface::Run(std::string& text) {
    utility::LogCSqlQuery(kLevel, m_pLogger, text.c_str());
    return m_pDBConnection ? m_pDBConnection->ExecuteSqlQuery(text) : nullptr;
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
    text << " WHERE " << GetPrimaryKey(table) << " = '";
    SendValueToCursor(keyType, text, key);
    text << "'";
}

std::string CMysqlDatabaseInterface::KeyedColumnStatement(const char* verb, const char* name, TICKET_TYPE_NV table,
                                                          const void* key, PARAM_TYPE_NV keyType) {
    std::ostringstream text;
    text << verb << " " << name << " FROM " << GetTicketType(table);
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
            case PARAM_TIMESTAMP: break;
            default:
                m_pLogger->log(kLevel,
                               L"CMysqlDatabaseInterface::SendValueToCursor() : Unknown and UnHandled Type send to "
                               L"database");
        }
    });
}

bool CMysqlDatabaseInterface::AddNewTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) {
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kAddNewTicket, [&](const wchar_t*&) {
        std::ostringstream text;
        text << "INSERT INTO " << GetTicketType(table) << "(" << GetPrimaryKey(table) << ") VALUES('";
        SendValueToCursor(keyType, text, key);
        text << "')";
        std::string statement = text.str();
        delete Run(statement);
    });
    return true;
}

bool CMysqlDatabaseInterface::DeleteTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) {
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kDeleteTicket, [&](const wchar_t*&) {
        std::ostringstream text;
        text << "DELETE FROM " << GetTicketType(table) << " WHERE " << GetPrimaryKey(table) << "='";
        SendValueToCursor(keyType, text, key);
        text << "'";
        std::string statement = text.str();
        delete Run(statement);
    });
    return true;
}

bool CMysqlDatabaseInterface::AddParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                           const char* column, const void* value, PARAM_TYPE_NV valueType) {
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kAddParameter, [&](const wchar_t*&) {
        if (valueType == PARAM_BLOB) {
            _BLOB blob(static_cast<const wchar_t*>(value));
            AddBlob(table, key, keyType, column, &blob);
            return;
        }
        const char* name = ColumnPart(column);
        if (name == nullptr) return;
        std::ostringstream text;
        text << "UPDATE " << GetTicketType(table) << " SET " << name << " = '";
        SendValueToCursor(valueType, text, value);
        text << "'";
        AppendWhereKey(text, table, key, keyType);
        std::string statement = text.str();
        delete Run(statement);
    });
    return true;
}

bool CMysqlDatabaseInterface::GetParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                           const char* column, void* value, PARAM_TYPE_NV valueType) {
    bool result = true;
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kGetParameter, [&](const wchar_t*& exitLine) {
        if (valueType == PARAM_BLOB) {
            GetBlob(table, key, keyType, column, static_cast<_BLOB*>(value));
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
        if (!rows->next()) return;  // no row: the caller's buffer stays as it was
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
            default: break;
        }
    });
    return result;
}

bool CMysqlDatabaseInterface::DeleteParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                              const char* column, PARAM_TYPE_NV) {
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kDeleteParameter, [&](const wchar_t*&) {
        const char* name = ColumnPart(column);
        if (name == nullptr) return;
        // The server reads this as a multi-table delete naming the column as
        // a table and refuses it; kept so, the failure is only logged.
        std::string statement = KeyedColumnStatement("DELETE", name, table, key, keyType);
        delete Run(statement);
    });
    return true;
}

bool CMysqlDatabaseInterface::AddBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                      const char* column, _BLOB* blob) {
    RunFrame(m_pLogger, nullptr, kAddBlob, [&](const wchar_t*&) {
        const char* name = ColumnPart(column);
        if (name == nullptr) return;
        std::string text = "UPDATE " + GetTicketType(table) + " SET " + name + "='" +
                           Quotable(Narrow(blob ? blob->data : nullptr)) + "' WHERE " + GetPrimaryKey(table) +
                           " = '";
        if (keyType == PARAM_INT)
            text += std::to_string(*static_cast<const int32_t*>(key));
        else
            text += Quotable(Narrow(key));
        text += "'";
        delete Run(text);
    });
    return true;
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
        // Decoded straight into the blob's text. A previous text is not
        // released: callers pass an empty _BLOB.
        const sql::SQLString content = rows->next() ? rows->getString(name) : sql::SQLString();
        blob->data = TupElement::AllocateText(content.c_str(), content.length());
        result = true;
    });
    return result;
}

void CMysqlDatabaseInterface::ExecuteQuery(dl_MultiValue* query) {
    RunFrame(m_pLogger, StoreLock(m_pDBConnection, m_mutex), kExecuteQuery, [&](const wchar_t*& exitLine) {
        std::string text = query->StartStatement.set ? query->StartStatement.text : "SELECT ";
        for (const char* key : query->m_keys) text += std::string(utility::StringLowerToUpper(key)) + " ,";
        if (!text.empty()) text.erase(text.size() - 1);
        text += "FROM ";
        for (TICKET_TYPE_NV table : query->m_tableTypes) text += GetTicketType(table) + " ,";
        text.erase(text.size() - std::min<size_t>(2, text.size()));
        if (!query->m_conditions.m_conditions.empty()) {
            text += " WHERE ";
            for (condition* token : query->m_conditions.m_conditions) {
                switch (token->type) {
                    case COND_BRACKET:
                    case COND_OPERATOR: text += static_cast<const char*>(token->value); break;
                    case COND_COLUMN: text += utility::StringLowerToUpper(static_cast<const char*>(token->value)); break;
                    default: {
                        std::ostringstream value;
                        const TupElement* element =
                            token->type == COND_VALUE ? static_cast<const TupElement*>(token->value) : nullptr;
                        if (element) SendValueToCursor(element->type, value, element->value);
                        text += "'" + value.str() + "'";
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
        // once. The cells go into one block, which the query holds from the
        // start: should reading stop half-way, the rows read whole stay.
        std::vector<int> types;
        std::shared_ptr<ResultBlock> block;
        while (rows->next()) {
            if (!block) {
                sql::ResultSetMetaData* meta = rows->getMetaData();
                std::vector<std::string> names;
                for (unsigned int i = 1; i <= meta->getColumnCount(); ++i) {
                    types.push_back(meta->getColumnType(i));
                    names.emplace_back(meta->getColumnName(i));
                }
                if (types.empty()) break;
                block = std::make_shared<ResultBlock>(std::move(names), rows->rowsCount());
                query->AddResult(block);
            }
            for (unsigned int i = 1; i <= types.size(); ++i) ReadCell(*rows, i, types[i - 1], *block);
        }
    });
}

void CMysqlDatabaseInterface::GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) {
    CDatabaseConnection::Pin pin(m_pDBConnection);  // taken before the lock, as every Pin is
    RunFrame(m_pLogger, IdLock(m_pDBConnection, m_mutex, table), kGenerateNewID, [&](const wchar_t*&) {
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
        // Lowest free: walk the sorted keys while they match the candidate
        // (a key of 0 also uses up one candidate number). Text keys can give
        // a number twice ("1" and "01") or below 1 ("-5"); such a key is
        // passed over, so the walk never stops on a number already taken.
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
    *maxId = std::max<int>(static_cast<int>(id), *maxId);
    return static_cast<int>(id);
}

int CMysqlDatabaseInterface::GetMaxId(TICKET_TYPE_NV table) {
    int value = 0;
    RunFrame(m_pLogger, nullptr, kGetMaxId, [&](const wchar_t*& exitLine) {
        const std::string column = GetTicketType(table);
        std::string text = "SELECT " + column + " FROM " + GetTicketType(TICKET_MAXID);
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
