#include "CMysqlDatabaseInterface.h"

#include <ConfigurationControl.h>
#include <Logger.h>
#include <StringUtils.h>
#include <cppconn/resultset.h>
#include <cppconn/resultset_metadata.h>

#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <stdexcept>

#include "TupElement.h"
#include "dl_MultiValue.h"
#include "private/ExactDialect.h"
#include "private/IdAllocation.h"
#include "private/LostWrite.h"
#include "private/OperationFrame.h"
#include "private/QueryRows.h"
#include "private/StoreSettings.h"
#include "utility.h"

// The store's operations: each one's frame (entry and exit lines, lock,
// handlers), the catalogue and the contract's texts. What a statement looks
// like in each profile, how its answer and cells are read, how a row is
// written and an identifier reserved: the dialect chosen at creation
// (private/StoreDialect.h).

namespace {

const LOG_CONST kLevel = kStoreLevel;
// The store refuses to run: this line names the values it could not understand.
const LOG_CONST kErrorLevel = LOG_LEVEL_1;

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

std::string Narrow(const void* wide) {
    return StringUtils::stringFromwstring(wide ? static_cast<const wchar_t*>(wide) : L"");
}

// The rows of a query's result into the query. The columns' types and names
// are the same on every row: read once. Each row is the query's as soon as
// it is read whole, so should reading stop half-way, the rows read whole stay.
void ReadRows(const StoreDialect& dialect, sql::ResultSet& rows, dl_MultiValue& query) {
    std::vector<int> types;
    std::shared_ptr<RowSink> block;
    while (rows.next()) {
        if (!block) {
            sql::ResultSetMetaData* meta = rows.getMetaData();
            std::vector<std::string> names;
            for (unsigned int i = 1; i <= meta->getColumnCount(); ++i) {
                types.push_back(meta->getColumnType(i));
                names.emplace_back(meta->getColumnName(i));
            }
            if (types.empty()) break;
            block = QueryRows::Open(query, std::move(names), rows.rowsCount());
        }
        for (unsigned int i = 1; i <= types.size(); ++i) dialect.ReadCell(rows, i, types[i - 1], *block);
    }
}

}  // namespace

// The providers' row writes reach the dialect of the store through here.
struct StoreAccess {
    static StoreDialect* Dialect(dl_MainInterface* db) {
        CMysqlDatabaseInterface* store = dynamic_cast<CMysqlDatabaseInterface*>(db);
        if (store == nullptr || store->Refused()) return nullptr;
        return store->m_pDialect.get();
    }
};

bool WriteRow(dl_MainInterface* db, TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
              const dl_ColumnValue* columns, std::size_t count, bool ok) {
    StoreDialect* dialect = StoreAccess::Dialect(db);
    return dialect ? dialect->WriteRow(table, key, keyType, columns, count, ok) : false;
}

bool InsertRow(dl_MainInterface* db, TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate,
               bool replace, const dl_ColumnValue* columns, std::size_t count) {
    StoreDialect* dialect = StoreAccess::Dialect(db);
    return dialect ? dialect->InsertRow(table, key, keyType, generate, replace, columns, count) : false;
}

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
        // The connection opens nothing when the settings have problems (it
        // names them); the store then refuses every operation.
        m_pDBConnection = CDatabaseConnection::GetInstance(m_hostName, m_userName, m_password);
        const StoreSettings settings = ReadStoreSettings();
        for (const std::string& problem : settings.problems) m_refusal += (m_refusal.empty() ? "" : "; ") + problem;
        if (Refused()) return;
        m_bIDPattern = settings.idPattern;
        m_pDialect = MakeDialect(settings.profile, {this, m_pDBConnection, m_pLogger, &m_mutex, m_bIDPattern});
        m_pLogger->log(kLevel, L"Creation a singleton object for dl_DatabaseInterface has been done");
    });
    // Whatever stopped the store, its operations answer as refused ones do.
    if (!m_pDialect) m_pDialect = MakeDialect("safe", {this, nullptr, m_pLogger, &m_mutex, false});
}

CMysqlDatabaseInterface::CMysqlDatabaseInterface(const CMysqlDatabaseInterface&)
    : dl_MainInterface(),
      m_pDBConnection(nullptr),
      m_bIDPattern(false),
      m_pDialect(MakeDialect("exact", {this, nullptr, Logger::Initialise(), &m_mutex, false})),
      m_pLogger(Logger::Initialise()) {}

CMysqlDatabaseInterface& CMysqlDatabaseInterface::operator=(const CMysqlDatabaseInterface&) { return *this; }

// Neither the connection nor the singleton pointer is touched.
CMysqlDatabaseInterface::~CMysqlDatabaseInterface() {}

bool CMysqlDatabaseInterface::Refused() const {
    if (m_refusal.empty()) return false;
    const std::wstring why = StringUtils::wstringFromstring(m_refusal);
    m_pLogger->log(kErrorLevel, L"CMysqlDatabaseInterface : the store refuses to run: %ls", why.c_str());
    return true;
}

const char* CMysqlDatabaseInterface::ProfileName() const { return m_pDialect->Profile(); }

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
    WriteValueText(m_pLogger, type, out, value);
}

bool CMysqlDatabaseInterface::AddNewTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) {
    bool result = m_pDialect->NotRun();
    RunFrame(m_pLogger, m_pDialect->StatementLock(), kAddNewTicket, [&](const wchar_t*&) {
        if (Refused()) return;
        Statement insert = m_pDialect->InsertKey(GetTicketType(table), GetPrimaryKey(table), key, keyType);
        result = m_pDialect->Answer(m_pDialect->Run(insert), false, L"AddNewTicket()", [&] {
            return WriteCheck{m_pDialect->RowCheck(GetTicketType(table), GetPrimaryKey(table), key, keyType), true};
        });
    });
    return result;
}

bool CMysqlDatabaseInterface::DeleteTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) {
    bool result = m_pDialect->NotRun();
    RunFrame(m_pLogger, m_pDialect->StatementLock(), kDeleteTicket, [&](const wchar_t*&) {
        if (Refused()) return;
        Statement remove = m_pDialect->DeleteRow(GetTicketType(table), GetPrimaryKey(table), key, keyType);
        result = m_pDialect->Answer(m_pDialect->Run(remove), false, L"DeleteTicket()", [&] {
            return WriteCheck{m_pDialect->RowCheck(GetTicketType(table), GetPrimaryKey(table), key, keyType), false};
        });
    });
    return result;
}

bool CMysqlDatabaseInterface::AddParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                           const char* column, const void* value, PARAM_TYPE_NV valueType) {
    bool result = m_pDialect->NotRun();
    RunFrame(m_pLogger, m_pDialect->StatementLock(), kAddParameter, [&](const wchar_t*&) {
        if (Refused()) return;
        if (valueType == PARAM_BLOB) {
            _BLOB blob(static_cast<const wchar_t*>(value));
            result = AddBlob(table, key, keyType, column, &blob);
            return;
        }
        const char* name = m_pDialect->ColumnPart(column);
        if (name == nullptr) return;
        Statement update =
            m_pDialect->SetColumn(GetTicketType(table), GetPrimaryKey(table), name, value, valueType, key, keyType);
        result = m_pDialect->Answer(m_pDialect->Run(update), true, L"AddParameter()", [&] {
            WriteCheck check{m_pDialect->RowCheck(GetTicketType(table), GetPrimaryKey(table), key, keyType), true};
            m_pDialect->MatchColumn(check.probe, name, valueType, value);
            return check;
        });
    });
    return result;
}

bool CMysqlDatabaseInterface::GetParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                           const char* column, void* value, PARAM_TYPE_NV valueType) {
    bool result = m_pDialect->NotRun();
    // The result is read on the connection it came from.
    ConnectionPin pin(m_pDBConnection);
    RunFrame(m_pLogger, m_pDialect->StatementLock(), kGetParameter, [&](const wchar_t*& exitLine) {
        if (Refused()) {
            result = false;
            return;
        }
        if (valueType == PARAM_BLOB) {
            result = GetBlob(table, key, keyType, column, static_cast<_BLOB*>(value)) || m_pDialect->NotRun();
            return;
        }
        const char* name = m_pDialect->ColumnPart(column);
        if (name == nullptr) {
            result = false;
            return;
        }
        Statement select = m_pDialect->Keyed("SELECT", name, GetTicketType(table), GetPrimaryKey(table), key, keyType);
        std::unique_ptr<sql::ResultSet> rows = m_pDialect->Rows(select);
        if (!rows) {
            exitLine = L"Returning from CMysqlDatabaseInterface::GetParameter() : Failed Execution";
            result = false;
            return;
        }
        // No row: the caller's buffer stays as it was.
        if (!rows->next()) {
            result = m_pDialect->NoRow(L"GetParameter()");
            return;
        }
        result = true;
        m_pDialect->ReadValue(*rows, name, value, valueType);
    });
    return result;
}

bool CMysqlDatabaseInterface::DeleteParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                              const char* column, PARAM_TYPE_NV) {
    bool result = m_pDialect->NotRun();
    RunFrame(m_pLogger, m_pDialect->StatementLock(), kDeleteParameter, [&](const wchar_t*&) {
        if (Refused()) return;
        const char* name = m_pDialect->ColumnPart(column);
        if (name == nullptr) return;
        Statement clear = m_pDialect->ClearColumn(GetTicketType(table), GetPrimaryKey(table), name, key, keyType);
        result = m_pDialect->Answer(m_pDialect->Run(clear), true, L"DeleteParameter()", [&] {
            WriteCheck check{m_pDialect->RowCheck(GetTicketType(table), GetPrimaryKey(table), key, keyType), true};
            check.probe.text += " AND " + m_pDialect->Name(name) + " IS NULL";
            return check;
        });
    });
    return result;
}

bool CMysqlDatabaseInterface::AddBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                      const char* column, _BLOB* blob) {
    bool result = m_pDialect->NotRun();
    RunFrame(m_pLogger, nullptr, kAddBlob, [&](const wchar_t*&) {
        if (Refused()) return;
        const char* name = m_pDialect->ColumnPart(column);
        if (name == nullptr) return;
        // The key as a decimal number for PARAM_INT, else as a wide text.
        const std::string keyText =
            keyType == PARAM_INT ? std::to_string(*static_cast<const int32_t*>(key)) : Narrow(key);
        Statement update = m_pDialect->SetText(GetTicketType(table), GetPrimaryKey(table), name,
                                               Narrow(blob ? blob->data : nullptr), keyText);
        result = m_pDialect->Answer(m_pDialect->Run(update), true, L"AddBlob()", [&] {
            WriteCheck check{m_pDialect->RowCheck(GetTicketType(table), GetPrimaryKey(table), key, keyType), true};
            m_pDialect->MatchColumn(check.probe, name, PARAM_WSTRING, blob ? blob->data : L"");
            return check;
        });
    });
    return result;
}

bool CMysqlDatabaseInterface::GetBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                      const char* column, _BLOB* blob) {
    bool result = false;
    ConnectionPin pin(m_pDBConnection);
    RunFrame(m_pLogger, nullptr, kGetBlob, [&](const wchar_t*& exitLine) {
        if (Refused()) return;
        const char* name = m_pDialect->ColumnPart(column);
        if (name == nullptr) {
            exitLine = nullptr;
            return;
        }
        Statement select = m_pDialect->Keyed("SELECT", name, GetTicketType(table), GetPrimaryKey(table), key, keyType);
        std::unique_ptr<sql::ResultSet> rows = m_pDialect->Rows(select);
        if (!rows) {
            exitLine = L"Exiting CMysqlDatabaseInterface::GetBlob() : Failed Execution.";
            return;
        }
        const bool found = rows->next();
        if (!found && !m_pDialect->NoRow(L"GetBlob()")) return;
        // Decoded straight into the blob's text. A previous text is not
        // released: callers pass an empty _BLOB.
        const sql::SQLString content = found ? rows->getString(name) : sql::SQLString();
        blob->data = TupElement::AllocateText(content.c_str(), content.length());
        result = true;
    });
    return result;
}

void CMysqlDatabaseInterface::ExecuteQuery(dl_MultiValue* query) {
    ConnectionPin pin(m_pDBConnection);
    RunFrame(m_pLogger, m_pDialect->StatementLock(), kExecuteQuery, [&](const wchar_t*& exitLine) {
        if (Refused()) return;
        Statement select = m_pDialect->Query(*query, [this](TICKET_TYPE_NV table) { return GetTicketType(table); });
        std::unique_ptr<sql::ResultSet> rows = m_pDialect->Rows(select);
        if (!rows) {
            m_pLogger->log(kLevel, L"CMysqlDatabaseInterface::ExecuteQuery : Failed to execute Query.");
            exitLine = nullptr;
            return;
        }
        ReadRows(*m_pDialect, *rows, *query);
    });
}

void CMysqlDatabaseInterface::GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) {
    ConnectionPin pin(m_pDBConnection);  // taken before the lock, as every pin is
    RunFrame(m_pLogger, m_pDialect->IdLock(table), kGenerateNewID, [&](const wchar_t*&) {
        if (Refused()) return;
        m_pDialect->GenerateNewID(table, out, keyType);
    });
}

namespace {

// The two workers of identifier generation: they differ only in how keys are
// read and how the identifier is written.
void GenerateID(Logger* logger, bool lowestFree, sql::ResultSet* keys, const std::string& keyColumn, void* out,
                int* maxId, bool textKeys) {
    const IdWorker& worker = textKeys ? kStringWorker : kIntWorker;
    logger->log(kLevel, worker.entry);
    if (keys == nullptr) {
        logger->log(kLevel, worker.noResult);
        return;
    }
    std::vector<int> values;
    while (keys->next()) values.push_back(textKeys ? LeadingNumber(keys->getString(keyColumn)) : keys->getInt(keyColumn));
    const NextId next = ChooseNextId(std::move(values), *maxId, lowestFree);
    switch (next.result) {
        case NextId::Result::Ok:
            *maxId = next.mark;
            if (textKeys)
                std::swprintf(static_cast<wchar_t*>(out), 33, L"%d", next.id);
            else
                std::memcpy(out, &next.id, sizeof next.id);
            break;
        case NextId::Result::Exhausted:
            logger->log(kLevel, L"CMysqlDatabaseInterface::GenerateNewID() : no identifier left below %d", INT_MAX);
            break;
        case NextId::Result::NotPositive:
            logger->log(kLevel, L"CMysqlDatabaseInterface::GenerateNewID() : no identifier above 0 follows %d",
                        static_cast<int>(next.below));
            break;
    }
    logger->log(kLevel, worker.exit);
}

}  // namespace

void CMysqlDatabaseInterface::GenerateIntID(sql::ResultSet* keys, const std::string& keyColumn, void*& out,
                                            int* maxId) {
    GenerateID(m_pLogger, m_bIDPattern, keys, keyColumn, out, maxId, false);
}

void CMysqlDatabaseInterface::GenerateStringID(sql::ResultSet* keys, const std::string& keyColumn, void*& out,
                                               int* maxId) {
    GenerateID(m_pLogger, m_bIDPattern, keys, keyColumn, out, maxId, true);
}

int CMysqlDatabaseInterface::GetMaxId(TICKET_TYPE_NV table) {
    int value = 0;
    RunFrame(m_pLogger, nullptr, kGetMaxId, [&](const wchar_t*& exitLine) {
        if (Refused()) return;
        const std::string column = GetTicketType(table);
        Statement select = m_pDialect->NewStatement();
        select.text = "SELECT " + m_pDialect->Name(column) + " FROM " + m_pDialect->Name(GetTicketType(TICKET_MAXID));
        std::unique_ptr<sql::ResultSet> rows = m_pDialect->Rows(select);
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
        if (Refused()) return;
        // Names bare and the value in the text in every profile: only the
        // exact profile's identifier generation calls it.
        Statement update;
        update.text =
            "UPDATE " + GetTicketType(TICKET_MAXID) + " SET " + GetTicketType(table) + " ='" + std::to_string(value) + "'";
        m_pDialect->Run(update);
    });
}
