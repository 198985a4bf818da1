#include "private/ExactDialect.h"

#include <Logger.h>
#include <StringUtils.h>
#include <cppconn/datatype.h>
#include <cppconn/resultset.h>

#include <cstring>
#include <cwchar>

#include "CMysqlDatabaseInterface.h"
#include "_BLOB.h"
#include "private/OperationFrame.h"
#include "private/RowSink.h"

namespace {

const Operation kSendValueToCursor = {L"Inside CMysqlDatabaseInterface::SendValueToCursor()",
                                      L"Returning from CMysqlDatabaseInterface::SendValueToCursor()",
                                      L"void dl_DatabaseInterface::SendValueToCursor", false};

// A blob value handed on as the address of a _BLOB record (docs/kept-behaviours.md,
// P2); the zero tail ends a read of the record's own bytes as a wide text
// inside this object.
struct BlobRecordValue {
    _BLOB blob;
    wchar_t end[2] = {0, 0};
};
static_assert(sizeof(_BLOB) % sizeof(wchar_t) == 0, "the tail must follow the _BLOB directly");

// Whether an identifier was written to `key`: a text key is not empty, an int
// key is not -1 (the value callers start from).
bool KeyProduced(const void* key, PARAM_TYPE_NV keyType) {
    return keyType == PARAM_INT ? *static_cast<const int32_t*>(key) != -1 : static_cast<const wchar_t*>(key)[0] != 0;
}

}  // namespace

void WriteValueText(Logger* logger, PARAM_TYPE_NV type, std::ostringstream& out, const void* value) {
    RunFrame(logger, nullptr, kSendValueToCursor, [&](const wchar_t*&) {
        switch (type) {
            case PARAM_INT:
            case PARAM_INT_2:
            case PARAM_INT_5: out << *static_cast<const int32_t*>(value); break;
            case PARAM_LONG: out << *static_cast<const int64_t*>(value); break;
            case PARAM_DOUBLE: out << *static_cast<const double*>(value); break;
            case PARAM_WSTRING:
            case PARAM_WSTRING_7:
                out << StringUtils::stringFromwstring(value ? static_cast<const wchar_t*>(value) : L"");
                break;
            case PARAM_TIMESTAMP: break;  // never written (docs/kept-behaviours.md, S6)
            default:
                logger->log(kStoreLevel,
                            L"CMysqlDatabaseInterface::SendValueToCursor() : Unknown and UnHandled Type send to "
                            L"database");
        }
    });
}

void ExactDialect::Value(Statement& statement, PARAM_TYPE_NV type, const void* value) const {
    // Between quotes as it stands (docs/kept-behaviours.md, S2).
    std::ostringstream text;
    text << "'";
    WriteValueText(m_context.logger, type, text, value);
    text << "'";
    statement.text += text.str();
}

void ExactDialect::Text(Statement& statement, const std::string& utf8) const { statement.text += "'" + utf8 + "'"; }

void ExactDialect::ReadCell(sql::ResultSet& rows, unsigned int index, int columnType, RowSink& block) const {
    // NULL as the connector reads it (S7); DATETIME without a value (S6).
    ReadPlainCell(rows, index, columnType, block);
}

void ExactDialect::ReadValue(sql::ResultSet& rows, const char* column, void* value, PARAM_TYPE_NV type) const {
    // NULL as the connector reads it (S7); PARAM_INT_5 and time stamps are not read (S6).
    ReadTyped(rows, column, value, type);
}

bool ExactDialect::Answer(const Outcome&, bool, const wchar_t*, const std::function<WriteCheck()>&) {
    return true;  // whatever the server said (docs/kept-behaviours.md, S1)
}

Statement ExactDialect::ClearColumn(const std::string& table, const std::string& keyColumn, const char* column,
                                    const void* key, PARAM_TYPE_NV keyType) const {
    // Refused by the server, only logged (docs/kept-behaviours.md, S4).
    return Keyed("DELETE", column, table, keyColumn, key, keyType);
}

bool ExactDialect::WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                            const dl_ColumnValue* columns, std::size_t count, bool ok) {
    // One AddParameter per column, each with its own lines and answer (S12).
    CMysqlDatabaseInterface& store = *m_context.store;
    for (std::size_t i = 0; i < count; ++i) {
        const dl_ColumnValue& column = columns[i];
        if (column.whileOk && !ok) continue;
        if (column.blobRecord) {
            BlobRecordValue record{_BLOB(static_cast<const wchar_t*>(column.value))};
            ok = store.AddParameter(table, key, keyType, column.column, &record.blob, PARAM_BLOB);
        } else {
            ok = store.AddParameter(table, key, keyType, column.column, column.value, column.type);
        }
    }
    return ok;
}

bool ExactDialect::InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool,
                             const dl_ColumnValue* columns, std::size_t count) {
    CMysqlDatabaseInterface& store = *m_context.store;
    if (generate) {
        store.GenerateNewID(table, key, keyType);
        if (!KeyProduced(key, keyType)) return false;
    }
    const bool ok = store.AddNewTicket(table, key, keyType);
    return WriteRow(table, key, keyType, columns, count, ok);
}

void ExactDialect::GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) {
    // One past the keys and the mark, chosen under this process's lock (S11).
    CMysqlDatabaseInterface& store = *m_context.store;
    int maxId = store.GetMaxId(table);
    const int readMaxId = maxId;
    Statement keys = NewStatement();
    keys.text = "SELECT " + store.GetPrimaryKey(table) + " FROM " + store.GetTicketType(table);
    std::unique_ptr<sql::ResultSet> rows = Rows(keys);
    const std::string keyColumn = store.GetPrimaryKey(table);
    void* target = out;
    if (keyType == PARAM_INT)
        store.GenerateIntID(rows.get(), keyColumn, target, &maxId);
    else if (keyType == PARAM_WSTRING)
        store.GenerateStringID(rows.get(), keyColumn, target, &maxId);
    else
        m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface::GenerateNewQID() : Unknown Type to generate id");
    if (maxId != readMaxId) store.UpdateMaxId(table, maxId);
}
