#include "private/SafeDialect.h"

#include <Logger.h>
#include <StringUtils.h>
#include <cppconn/datatype.h>
#include <cppconn/resultset.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "CMysqlDatabaseInterface.h"
#include "TimeStamp.h"
#include "private/IdAllocation.h"
#include "private/LostWrite.h"
#include "private/OperationFrame.h"
#include "private/RowSink.h"
#include "private/Transaction.h"

namespace {

const Operation kWriteRow = {L"Inside CMysqlDatabaseInterface::WriteRow()",
                             L"Returning from CMysqlDatabaseInterface::WriteRow()",
                             L"bool CMysqlDatabaseInterface::WriteRow", false};
const Operation kInsertRow = {L"Inside CMysqlDatabaseInterface::InsertRow()",
                              L"Returning from CMysqlDatabaseInterface::InsertRow()",
                              L"bool CMysqlDatabaseInterface::InsertRow", false};

// How often an insert with a generated key is tried before it gives up, and
// after how many taken keys the MAXID mark is raised past the table's keys.
const int kInsertAttempts = 8;
const int kAttemptsBeforeResync = 2;

// "name" in backquotes, a backquote inside doubled.
std::string Backquoted(const std::string& name) {
    std::string quoted = "`";
    for (char c : name) {
        if (c == '`') quoted += '`';
        quoted += c;
    }
    return quoted + "`";
}

// A DATETIME value as the server sends it; fraction and zone stay 0.
TimeStamp TimeFromText(const std::string& text) {
    TimeStamp stamp(0);
    std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d", &stamp.year, &stamp.month, &stamp.day, &stamp.hour, &stamp.minute,
                &stamp.second);
    return stamp;
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

void ClearKey(void* key, PARAM_TYPE_NV keyType) {
    if (keyType == PARAM_INT)
        *static_cast<int32_t*>(key) = -1;
    else
        static_cast<wchar_t*>(key)[0] = 0;
}

// The value of a column as bound: blob texts are plain texts there.
PARAM_TYPE_NV BoundType(PARAM_TYPE_NV type) { return type == PARAM_BLOB ? PARAM_WSTRING : type; }

}  // namespace

std::string SafeDialect::Name(const std::string& name) const {
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

Statement SafeDialect::NewStatement() const {
    Statement statement;
    statement.bound = true;
    return statement;
}

void SafeDialect::Value(Statement& statement, PARAM_TYPE_NV type, const void* value) const {
    statement.text += "?";
    statement.values.push_back(BindValue(type, value));
}

void SafeDialect::Text(Statement& statement, const std::string& utf8) const {
    statement.text += "?";
    BoundValue value;
    value.kind = BoundValue::Kind::Text;
    value.text = utf8;
    statement.values.push_back(std::move(value));
}

void SafeDialect::ReadCell(sql::ResultSet& rows, unsigned int index, int columnType, RowSink& block) const {
    if (rows.isNull(index)) {
        block.None();  // not set
        return;
    }
    if (columnType == sql::DataType::TIMESTAMP)
        block.Time(TimeFromText(rows.getString(index)));
    else
        ReadPlainCell(rows, index, columnType, block);
}

void SafeDialect::ReadValue(sql::ResultSet& rows, const char* column, void* value, PARAM_TYPE_NV type) const {
    if (rows.isNull(column)) {
        ClearValue(value, type);
        return;
    }
    if (type == PARAM_TIMESTAMP)
        *static_cast<TimeStamp*>(value) = TimeFromText(rows.getString(column));
    else
        ReadTyped(rows, column, value, type);
}

// Every write of this profile answers here: the one place that decides
// whether a change counts as done. A change whose answer was lost is read
// back, never sent again.
bool SafeDialect::Answer(const Outcome& outcome, bool needsRow, const wchar_t* what,
                         const std::function<WriteCheck()>& lost) {
    if (lost && outcome.kind == ServerError::Lost)
        return ReadBackLostWrite([this](Statement& probe) { return Run(probe); }, m_context.logger, lost());
    if (outcome.error != 0) {
        m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface::%ls : the server refused the statement (error %d)",
                              what, outcome.error);
        return false;
    }
    if (needsRow && outcome.matched == 0) {
        m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface::%ls : no row has the key", what);
        return false;
    }
    return true;
}

WriteCheck SafeDialect::RowWritten(const std::string& table, const std::string& keyColumn, const Columns& columns,
                                   const void* key, PARAM_TYPE_NV keyType) const {
    WriteCheck check{RowCheck(table, keyColumn, key, keyType), true};
    for (const auto& column : columns)
        MatchColumn(check.probe, column.first, BoundType(column.second->type), column.second->value);
    return check;
}

bool SafeDialect::NoRow(const wchar_t* what) const {
    m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface::%ls : no row has the key", what);
    return false;
}

Statement SafeDialect::ClearColumn(const std::string& table, const std::string& keyColumn, const char* column,
                                   const void* key, PARAM_TYPE_NV keyType) const {
    Statement statement = NewStatement();
    statement.text = "UPDATE " + Name(table) + " SET " + Name(column) + " = NULL";
    WhereKey(statement, keyColumn, key, keyType);
    return statement;
}

bool SafeDialect::NamedColumns(const dl_ColumnValue* columns, std::size_t count, const std::string& skip,
                               Columns& out) const {
    for (std::size_t i = 0; i < count; ++i) {
        const char* name = ColumnPart(columns[i].column);
        if (name == nullptr) return false;
        if (skip != name) out.emplace_back(name, &columns[i]);
    }
    return true;
}

Statement SafeDialect::RowUpdate(const std::string& table, const std::string& keyColumn, const Columns& columns,
                                 const void* key, PARAM_TYPE_NV keyType) const {
    Statement statement = NewStatement();
    statement.text = "UPDATE " + Name(table) + " SET ";
    for (std::size_t i = 0; i < columns.size(); ++i) {
        statement.text += (i ? ", " : "") + Name(columns[i].first) + " = ";
        Value(statement, BoundType(columns[i].second->type), columns[i].second->value);
    }
    WhereKey(statement, keyColumn, key, keyType);
    return statement;
}

Statement SafeDialect::RowInsert(const std::string& table, const std::string& keyColumn, const Columns& columns,
                                 const void* key, PARAM_TYPE_NV keyType, bool replace) const {
    Statement statement = NewStatement();
    std::string& text = statement.text;
    text = "INSERT INTO " + Name(table) + " (" + Name(keyColumn);
    for (const auto& column : columns) text += ", " + Name(column.first);
    text += ") VALUES (";
    Value(statement, keyType, key);
    for (const auto& column : columns) {
        text += ", ";
        Value(statement, BoundType(column.second->type), column.second->value);
    }
    text += ")";
    if (replace) {
        text += " ON DUPLICATE KEY UPDATE ";
        if (columns.empty()) text += Name(keyColumn) + " = " + Name(keyColumn);
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::string name = Name(columns[i].first);
            text += (i ? ", " : "") + name + " = VALUES(" + name + ")";
        }
    }
    return statement;
}

bool SafeDialect::WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                           const dl_ColumnValue* columns, std::size_t count, bool ok) {
    if (count == 0) return ok;
    bool result = false;
    CMysqlDatabaseInterface& store = *m_context.store;
    RunFrame(m_context.logger, StatementLock(), kWriteRow, [&](const wchar_t*&) {
        Columns named;
        if (!NamedColumns(columns, count, "", named)) return;
        const std::string tableName = store.GetTicketType(table), keyColumn = store.GetPrimaryKey(table);
        Statement update = RowUpdate(tableName, keyColumn, named, key, keyType);
        result = Answer(Run(update), true, L"WriteRow()",
                        [&] { return RowWritten(tableName, keyColumn, named, key, keyType); });
    });
    return result;
}

bool SafeDialect::InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool replace,
                            const dl_ColumnValue* columns, std::size_t count) {
    bool result = false;
    // An insert with a new key is identifier generation: one critical
    // section per table, its connection pinned first.
    ConnectionPin pin(m_context.connection);
    RunFrame(m_context.logger, generate ? IdLock(table) : StatementLock(), kInsertRow, [&](const wchar_t*&) {
        result = InsertOneStatement(table, key, keyType, generate, replace, columns, count);
    });
    return result;
}

void SafeDialect::GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) {
    ReserveID(table, out, keyType);
}

bool SafeDialect::ReserveID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) {
    if (keyType != PARAM_INT && keyType != PARAM_WSTRING) {
        m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface::GenerateNewQID() : Unknown Type to generate id");
        return false;
    }
    CMysqlDatabaseInterface& store = *m_context.store;
    const std::string mark = Name(store.GetTicketType(table));  // MAXID's column is named after the table
    const std::string marks = Name(store.GetTicketType(TICKET_MAXID));
    int64_t id = -1;
    if (!m_context.lowestFree) {
        // One atomic step raises the mark and remembers the new value for
        // this connection alone, so no two processes get the same number.
        ConnectionPin pin(m_context.connection);
        // A mark below 0 counts as 0.
        Statement raise = NewStatement();
        raise.text = "UPDATE " + marks + " SET " + mark + " = LAST_INSERT_ID(GREATEST(" + mark + ", 0) + 1)";
        if (!Answer(Run(raise), true, L"GenerateNewID()")) return false;
        Statement read = NewStatement();
        read.text = "SELECT LAST_INSERT_ID()";
        std::unique_ptr<sql::ResultSet> rows = Rows(read);
        if (rows && rows->next()) id = rows->getInt64(1);
    } else {
        // Lowest free number: a candidate only; the row insert decides, and
        // another process that took it makes the insert try again.
        const int readMark = store.GetMaxId(table);
        Statement scan = NewStatement();
        scan.text = "SELECT " + Name(store.GetPrimaryKey(table)) + " FROM " + Name(store.GetTicketType(table));
        std::unique_ptr<sql::ResultSet> keys = Rows(scan);
        if (!keys) return false;
        std::vector<int> values;
        while (keys->next())
            values.push_back(keyType == PARAM_WSTRING ? LeadingNumber(keys->getString(1)) : keys->getInt(1));
        const NextId next = ChooseNextId(values, readMark, true);
        id = next.id;
        if (next.result == NextId::Result::Ok && next.mark != readMark) {
            Statement raise = NewStatement();
            raise.text = "UPDATE " + marks + " SET " + mark + " = GREATEST(" + mark + ", ";
            Value(raise, PARAM_INT, &next.id);
            raise.text += ")";
            Answer(Run(raise), false, L"GenerateNewID()");
        }
    }
    if (id < 1 || id > INT_MAX) {
        m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface::GenerateNewID() : no identifier could be reserved");
        return false;
    }
    if (keyType == PARAM_WSTRING)
        std::swprintf(static_cast<wchar_t*>(out), 32, L"%d", static_cast<int>(id));
    else
        *static_cast<int32_t*>(out) = static_cast<int32_t>(id);
    return true;
}

void SafeDialect::RaiseMarkToKeys(TICKET_TYPE_NV table) {
    CMysqlDatabaseInterface& store = *m_context.store;
    Statement top = NewStatement();
    top.text = "SELECT MAX(CAST(" + Name(store.GetPrimaryKey(table)) + " AS SIGNED)) FROM " +
               Name(store.GetTicketType(table));
    std::unique_ptr<sql::ResultSet> rows = Rows(top);
    if (!rows || !rows->next() || rows->isNull(1)) return;
    const int highest = static_cast<int>(std::min<int64_t>(rows->getInt64(1), INT_MAX));
    const std::string mark = Name(store.GetTicketType(table));
    Statement raise = NewStatement();
    raise.text = "UPDATE " + Name(store.GetTicketType(TICKET_MAXID)) + " SET " + mark + " = GREATEST(" + mark + ", ";
    Value(raise, PARAM_INT, &highest);
    raise.text += ")";
    Answer(Run(raise), false, L"GenerateNewID()");
}

bool SafeDialect::InsertOneStatement(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate,
                                     bool replace, const dl_ColumnValue* columns, std::size_t count) {
    CMysqlDatabaseInterface& store = *m_context.store;
    const std::string tableName = store.GetTicketType(table);
    const std::string keyColumn = store.GetPrimaryKey(table);
    // The key column is written from the key; a column naming it again is left out.
    Columns named;
    if (!NamedColumns(columns, count, keyColumn, named)) return false;
    // Lowest-free numbers come from a scan, so two processes scanning at once
    // would pick the same one: then the scan and the insert run in one
    // transaction that holds MAXID's row, and the processes take turns.
    const bool turns = generate && m_context.lowestFree;
    for (int attempt = 1; attempt <= kInsertAttempts; ++attempt) {
        std::unique_ptr<Transaction> turn;
        if (turns) {
            Statement hold = NewStatement();
            hold.text = "SELECT 1 FROM " + Name(store.GetTicketType(TICKET_MAXID)) + " FOR UPDATE";
            turn.reset(new Transaction(*this, std::move(hold)));
            if (!turn->Begun()) break;
        }
        const bool reserved = !generate || ReserveID(table, key, keyType);
        if (!reserved) break;  // the transaction, if any, rolls back
        Statement insert = RowInsert(tableName, keyColumn, named, key, keyType, replace);
        Outcome outcome = Run(insert);
        if (turn) outcome = turn->End(std::move(outcome));
        if (generate && (outcome.kind == ServerError::Duplicate || outcome.kind == ServerError::Conflict)) {
            // Another process (or a row written past the mark) has this key,
            // or a cluster node took the turn first.
            m_context.logger->log(kStoreLevel, L"CMysqlDatabaseInterface::InsertRow() : the key is taken, trying another");
            if (attempt == kAttemptsBeforeResync) RaiseMarkToKeys(table);
            continue;
        }
        if (Answer(outcome, false, L"InsertRow()",
                   [&] { return RowWritten(tableName, keyColumn, named, key, keyType); }))
            return true;
        break;
    }
    if (generate) ClearKey(key, keyType);
    return false;
}
