#ifndef NORVA_PRIVATE_STOREDIALECT_H
#define NORVA_PRIVATE_STOREDIALECT_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "DataLayerTypes.h"
#include "mutex.h"
#include "private/ConnectionAccess.h"
#include "private/Statement.h"
#include "private/StoreRows.h"

class CMysqlDatabaseInterface;
class CDatabaseConnection;
struct WriteCheck;
class Logger;
class RowSink;
class dl_MultiValue;
namespace sql {
class ResultSet;
}

// What a dialect works with, given by the store when it is created.
struct StoreContext {
    CMysqlDatabaseInterface* store;   // its public operations; null where only texts are built
    CDatabaseConnection* connection;  // null when there is none
    Logger* logger;
    mutex* storeLock;                 // the store's lock (m_mutex)
    bool lowestFree;                  // IDPattern: lowest free identifiers instead of sequential ones
};

// Everything in which the store's two profiles differ, behind one interface
// chosen once when the store is created: how names and values go into a
// statement, how a cell is read, what a write answers, how a column is
// cleared, how a row is written and how an identifier is reserved. The
// statement shapes every operation shares are built here too, from those
// parts, so that the operations themselves never ask which profile runs.
class StoreDialect {
public:
    explicit StoreDialect(const StoreContext& context) : m_context(context) {}
    virtual ~StoreDialect() = default;
    StoreDialect(const StoreDialect&) = delete;
    StoreDialect& operator=(const StoreDialect&) = delete;

    // "exact" or "safe".
    virtual const char* Profile() const = 0;

    // --- names and values in statements ---
    // A table or column name, "TABLE.COLUMN" too, as it goes into a statement.
    virtual std::string Name(const std::string& name) const = 0;
    // An empty statement: run as text, or prepared with its values bound.
    virtual Statement NewStatement() const = 0;
    // A typed value at the end of the statement.
    virtual void Value(Statement& statement, PARAM_TYPE_NV type, const void* value) const = 0;
    // A text value (UTF-8) at the end of the statement.
    virtual void Text(Statement& statement, const std::string& utf8) const = 0;

    // --- reading a cell ---
    // One cell of a result row into the block, by the column's type.
    virtual void ReadCell(sql::ResultSet& rows, unsigned int index, int columnType, RowSink& row) const = 0;
    // The column of the current row into a caller's buffer of `type`.
    virtual void ReadValue(sql::ResultSet& rows, const char* column, void* value, PARAM_TYPE_NV type) const = 0;

    // --- what a write answers ---
    // The answer of a change, from what the server said; `needsRow`: a change
    // that matched no row failed. `what` names the operation in the log.
    // `lost` gives the check that finds out whether the change took effect
    // when the connection broke before its answer came (see LostWrite.h).
    virtual bool Answer(const Outcome& outcome, bool needsRow, const wchar_t* what,
                        const std::function<WriteCheck()>& lost = nullptr) = 0;
    // What an operation answers when its statement could not be made or run.
    virtual bool NotRun() const = 0;
    // What a single-column read answers when the key has no row.
    virtual bool NoRow(const wchar_t* what) const = 0;

    // --- clearing a column ---
    virtual Statement ClearColumn(const std::string& table, const std::string& keyColumn, const char* column,
                                  const void* key, PARAM_TYPE_NV keyType) const = 0;

    // --- writing a row (see StoreRows.h) ---
    virtual bool WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                          const dl_ColumnValue* columns, std::size_t count, bool ok) = 0;
    virtual bool InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool replace,
                           const dl_ColumnValue* columns, std::size_t count) = 0;

    // --- reserving an identifier (GenerateNewID's work, under its lock) ---
    virtual void GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) = 0;

    // --- the statements every profile sends, built from the parts above ---
    // INSERT INTO T(K) VALUES(key)
    Statement InsertKey(const std::string& table, const std::string& keyColumn, const void* key,
                        PARAM_TYPE_NV keyType) const;
    // DELETE FROM T WHERE K=key
    Statement DeleteRow(const std::string& table, const std::string& keyColumn, const void* key,
                        PARAM_TYPE_NV keyType) const;
    // UPDATE T SET C = value WHERE K = key
    Statement SetColumn(const std::string& table, const std::string& keyColumn, const char* column,
                        const void* value, PARAM_TYPE_NV valueType, const void* key, PARAM_TYPE_NV keyType) const;
    // UPDATE T SET C='text' WHERE K = 'key text'
    Statement SetText(const std::string& table, const std::string& keyColumn, const char* column,
                      const std::string& text, const std::string& keyText) const;
    // <verb> C FROM T WHERE K = key
    Statement Keyed(const char* verb, const char* column, const std::string& table, const std::string& keyColumn,
                    const void* key, PARAM_TYPE_NV keyType) const;
    // The SELECT of a query object (its keys and tables read with its own
    // cursors); `tableName` names a table type.
    Statement Query(dl_MultiValue& query, const std::function<std::string(TICKET_TYPE_NV)>& tableName) const;

    // SELECT 1 FROM T WHERE K = key: the check of a write to one row, to
    // which MatchColumn adds " AND C <=> value" for each value written.
    Statement RowCheck(const std::string& table, const std::string& keyColumn, const void* key,
                       PARAM_TYPE_NV keyType) const;
    void MatchColumn(Statement& check, const std::string& column, PARAM_TYPE_NV type, const void* value) const;

    // The part of "TABLE.COLUMN" after the first "."; null (logged) without one.
    const char* ColumnPart(const char* column) const;

    // --- locks ---
    // The lock a store operation takes: with one connection the store's lock,
    // as statements share that connection; with more, none (statements run
    // side by side on their own connections).
    mutex* StatementLock() const;
    // The lock of identifier generation for `table`: the store's lock with
    // one connection, else one critical section per table.
    mutex* IdLock(TICKET_TYPE_NV table) const;

    // --- running statements ---
    // Traces and runs one statement; runs it again after a conflict, as
    // often as the profile allows (not inside a transaction, which is gone
    // whole: its owner starts it again).
    Outcome Run(Statement& statement);
    // Run for a statement whose rows are wanted: null without them.
    std::unique_ptr<sql::ResultSet> Rows(Statement& statement);

protected:
    // How often a statement refused as a conflict (1213) runs again.
    virtual int ConflictRetries() const = 0;
    // One cell as the connector reads it: INT as an int, the text types as
    // text, any other type as a cell without a value.
    static void ReadPlainCell(sql::ResultSet& rows, unsigned int index, int columnType, RowSink& row);
    // The column of the current row into a caller's int, int64 (a 32-bit
    // read, sign-extended), double or wide text buffer, as the connector
    // reads it; other types are not read.
    static void ReadTyped(sql::ResultSet& rows, const char* column, void* value, PARAM_TYPE_NV type);
    // " WHERE K = key": how the single-row statements end.
    void WhereKey(Statement& statement, const std::string& keyColumn, const void* key, PARAM_TYPE_NV keyType) const;

    const StoreContext m_context;
};

// The dialect of a profile ("exact" or "safe", lower case); null for any other name.
std::unique_ptr<StoreDialect> MakeDialect(const std::string& profile, const StoreContext& context);

#endif
