#include "private/StoreDialect.h"

#include <Logger.h>
#include <StringUtils.h>
#include <cppconn/datatype.h>
#include <cppconn/resultset.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <cwchar>
#include <random>
#include <thread>

#include "TupElement.h"
#include "condition.h"
#include "dl_MultiValue.h"
#include "private/ExactDialect.h"
#include "private/OperationFrame.h"
#include "private/RowSink.h"
#include "private/SafeDialect.h"
#include "private/Transaction.h"
#include "utility.h"

namespace {

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

mutex g_idLocks[TICKET_MAXID + 1];

}  // namespace

const char* StoreDialect::ColumnPart(const char* column) const {
    const char* dot = column ? std::strchr(column, '.') : nullptr;
    if (dot == nullptr) {
        m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface : column name without a table part refused: %s",
                              column ? column : "");
        return nullptr;
    }
    return utility::StringLowerToUpper(dot + 1);
}

mutex* StoreDialect::StatementLock() const {
    if (m_context.connection == nullptr || ConnectionAccess::Size(*m_context.connection) == 1)
        return m_context.storeLock;
    return nullptr;
}

mutex* StoreDialect::IdLock(TICKET_TYPE_NV table) const {
    if (m_context.connection == nullptr || ConnectionAccess::Size(*m_context.connection) == 1)
        return m_context.storeLock;
    return &g_idLocks[table >= TICKET_JDFTICKET && table <= TICKET_MAXID ? table : 0];
}

void StoreDialect::WhereKey(Statement& statement, const std::string& keyColumn, const void* key,
                            PARAM_TYPE_NV keyType) const {
    statement.text += " WHERE " + Name(keyColumn) + " = ";
    Value(statement, keyType, key);
}

Statement StoreDialect::RowCheck(const std::string& table, const std::string& keyColumn, const void* key,
                                 PARAM_TYPE_NV keyType) const {
    Statement check = NewStatement();
    check.text = "SELECT 1 FROM " + Name(table);
    WhereKey(check, keyColumn, key, keyType);
    return check;
}

void StoreDialect::MatchColumn(Statement& check, const std::string& column, PARAM_TYPE_NV type,
                               const void* value) const {
    check.text += " AND " + Name(column) + " <=> ";
    Value(check, type, value);
}

Statement StoreDialect::InsertKey(const std::string& table, const std::string& keyColumn, const void* key,
                                  PARAM_TYPE_NV keyType) const {
    Statement statement = NewStatement();
    statement.text = "INSERT INTO " + Name(table) + "(" + Name(keyColumn) + ") VALUES(";
    Value(statement, keyType, key);
    statement.text += ")";
    return statement;
}

Statement StoreDialect::DeleteRow(const std::string& table, const std::string& keyColumn, const void* key,
                                  PARAM_TYPE_NV keyType) const {
    // No blanks around this "=" (docs/kept-behaviours.md, S5).
    Statement statement = NewStatement();
    statement.text = "DELETE FROM " + Name(table) + " WHERE " + Name(keyColumn) + "=";
    Value(statement, keyType, key);
    return statement;
}

Statement StoreDialect::SetColumn(const std::string& table, const std::string& keyColumn, const char* column,
                                  const void* value, PARAM_TYPE_NV valueType, const void* key,
                                  PARAM_TYPE_NV keyType) const {
    Statement statement = NewStatement();
    statement.text = "UPDATE " + Name(table) + " SET " + Name(column) + " = ";
    Value(statement, valueType, value);
    WhereKey(statement, keyColumn, key, keyType);
    return statement;
}

Statement StoreDialect::SetText(const std::string& table, const std::string& keyColumn, const char* column,
                                const std::string& text, const std::string& keyText) const {
    Statement statement = NewStatement();
    statement.text = "UPDATE " + Name(table) + " SET " + Name(column) + "=";
    Text(statement, text);
    statement.text += " WHERE " + Name(keyColumn) + " = ";
    Text(statement, keyText);
    return statement;
}

Statement StoreDialect::Keyed(const char* verb, const char* column, const std::string& table,
                              const std::string& keyColumn, const void* key, PARAM_TYPE_NV keyType) const {
    Statement statement = NewStatement();
    statement.text = std::string(verb) + " " + Name(column) + " FROM " + Name(table);
    WhereKey(statement, keyColumn, key, keyType);
    return statement;
}

Statement StoreDialect::Query(dl_MultiValue& query,
                              const std::function<std::string(TICKET_TYPE_NV)>& tableName) const {
    Statement statement = NewStatement();
    std::string& text = statement.text;
    text = query.StartStatement.set ? query.StartStatement.text : "SELECT ";
    // The last comma's removal takes the blank of "SELECT " when there are
    // no keys (docs/kept-behaviours.md, Q1).
    for (query.m_keyCursor = query.m_keys.begin(); query.m_keyCursor != query.m_keys.end(); ++query.m_keyCursor)
        text += Name(utility::StringLowerToUpper(*query.m_keyCursor)) + " ,";
    if (!text.empty()) text.erase(text.size() - 1);
    text += "FROM ";
    for (query.m_tableCursor = query.m_tableTypes.begin(); query.m_tableCursor != query.m_tableTypes.end();
         ++query.m_tableCursor)
        text += Name(tableName(*query.m_tableCursor)) + " ,";
    text.erase(text.size() - std::min<size_t>(2, text.size()));
    if (query.m_conditions.m_conditions.empty()) return statement;
    text += " WHERE ";
    for (const condition* token : query.m_conditions.m_conditions) {
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
                const TupElement* element =
                    token->type == COND_VALUE ? static_cast<const TupElement*>(token->value) : nullptr;
                if (element)
                    Value(statement, element->type, element->value);
                else
                    Text(statement, "");
            }
        }
        text += " ";
    }
    return statement;
}

void StoreDialect::ReadPlainCell(sql::ResultSet& rows, unsigned int index, int columnType, RowSink& row) {
    switch (columnType) {
        case sql::DataType::INTEGER: row.Int(rows.getInt(index)); break;
        case sql::DataType::VARCHAR:
        case sql::DataType::LONGVARCHAR: {
            const sql::SQLString text = rows.getString(index);
            row.Text(text.c_str(), text.length());
            break;
        }
        default: row.None();
    }
}

void StoreDialect::ReadTyped(sql::ResultSet& rows, const char* column, void* value, PARAM_TYPE_NV type) {
    switch (type) {
        case PARAM_INT:
        case PARAM_INT_2: {
            const int32_t number = rows.getInt(column);
            std::memcpy(value, &number, sizeof number);
            break;
        }
        case PARAM_LONG: {
            const int64_t number = rows.getInt(column);  // a 32-bit read, sign-extended
            std::memcpy(value, &number, sizeof number);
            break;
        }
        case PARAM_DOUBLE: {
            const double number = static_cast<double>(rows.getDouble(column));
            std::memcpy(value, &number, sizeof number);
            break;
        }
        case PARAM_WSTRING:
        case PARAM_WSTRING_7: {
            // The whole text and its NUL: the caller's buffer must hold it.
            const std::wstring wide = StringUtils::wstringFromstring(rows.getString(column));
            std::wmemcpy(static_cast<wchar_t*>(value), wide.c_str(), wide.size() + 1);
            break;
        }
        default: break;
    }
}

Outcome StoreDialect::Run(Statement& statement) {
    utility::LogCSqlQuery(kStoreLevel, m_context.logger, statement.text.c_str());
    // The values' line is built only when it will be written: a JDF among
    // them would otherwise be converted for nothing on every call.
    if (!statement.values.empty() && m_context.logger->GetLevel() >= kStoreLevel)
        m_context.logger->log(kStoreLevel, L"%ls", TraceValues(statement).c_str());
    if (m_context.connection == nullptr) return Outcome();
    Outcome outcome = ConnectionAccess::Run(*m_context.connection, statement);
    // A conflict rolled the statement back whole, so running it again cannot
    // apply it twice.
    for (int retry = 0; outcome.kind == ServerError::Conflict && !Transaction::Active() && retry < ConflictRetries();
         ++retry) {
        m_context.logger->log(kStoreLevel,
                              L"CMysqlDatabaseInterface : conflict (error 1213), running the statement again");
        ConflictPause(retry);
        outcome = ConnectionAccess::Run(*m_context.connection, statement);
    }
    return outcome;
}

std::unique_ptr<sql::ResultSet> StoreDialect::Rows(Statement& statement) { return std::move(Run(statement).rows); }

std::unique_ptr<StoreDialect> MakeDialect(const std::string& profile, const StoreContext& context) {
    if (profile == "exact") return std::unique_ptr<StoreDialect>(new ExactDialect(context));
    if (profile == "safe") return std::unique_ptr<StoreDialect>(new SafeDialect(context));
    return nullptr;
}
