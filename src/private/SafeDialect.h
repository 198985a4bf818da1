#ifndef NORVA_PRIVATE_SAFEDIALECT_H
#define NORVA_PRIVATE_SAFEDIALECT_H

#include <utility>
#include <vector>

#include "private/StoreDialect.h"

// The safe profile, for hosts that face untrusted input or share the
// database: every value and key is bound to a server-side prepared
// statement (never part of a statement's text), names go in backquotes,
// NULL and time stamps read as what they are, a write answers what the
// server did, a row is one statement, and identifiers are reserved in the
// database so that they are unique across processes.
class SafeDialect : public StoreDialect {
public:
    explicit SafeDialect(const StoreContext& context) : StoreDialect(context) {}

    const char* Profile() const override { return "safe"; }
    std::string Name(const std::string& name) const override;
    Statement NewStatement() const override;
    void Value(Statement& statement, PARAM_TYPE_NV type, const void* value) const override;
    void Text(Statement& statement, const std::string& utf8) const override;
    void ReadCell(sql::ResultSet& rows, unsigned int index, int columnType, RowSink& block) const override;
    void ReadValue(sql::ResultSet& rows, const char* column, void* value, PARAM_TYPE_NV type) const override;
    bool Answer(const Outcome& outcome, bool needsRow, const wchar_t* what,
                const std::function<WriteCheck()>& lost = nullptr) override;
    bool NotRun() const override { return false; }
    bool NoRow(const wchar_t* what) const override;
    Statement ClearColumn(const std::string& table, const std::string& keyColumn, const char* column,
                          const void* key, PARAM_TYPE_NV keyType) const override;
    bool WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType, const dl_ColumnValue* columns,
                  std::size_t count, bool ok) override;
    bool InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool replace,
                   const dl_ColumnValue* columns, std::size_t count) override;
    void GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) override;

    // The named columns (column part, value) of one row.
    using Columns = std::vector<std::pair<std::string, const dl_ColumnValue*>>;
    // UPDATE T SET C1 = ?, C2 = ? WHERE K = ?
    Statement RowUpdate(const std::string& table, const std::string& keyColumn, const Columns& columns,
                        const void* key, PARAM_TYPE_NV keyType) const;
    // The check of a row written with `columns`: the row of `key` holds their values.
    WriteCheck RowWritten(const std::string& table, const std::string& keyColumn, const Columns& columns,
                          const void* key, PARAM_TYPE_NV keyType) const;
    // INSERT INTO T (K, C1, ...) VALUES (?, ?, ...), with `replace` updating a row that has the key.
    Statement RowInsert(const std::string& table, const std::string& keyColumn, const Columns& columns,
                        const void* key, PARAM_TYPE_NV keyType, bool replace) const;

protected:
    int ConflictRetries() const override { return 16; }

private:
    // An identifier for `table`: reserved in MAXID (sequential) or the lowest
    // free key (the row insert then decides); false when none.
    bool ReserveID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType);
    // Raises the table's MAXID mark to at least the largest numeric key.
    void RaiseMarkToKeys(TICKET_TYPE_NV table);
    bool InsertOneStatement(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool replace,
                            const dl_ColumnValue* columns, std::size_t count);
    // The column part of each of `columns` (false, logged, for a name without
    // one); `skip` names a column left out.
    bool NamedColumns(const dl_ColumnValue* columns, std::size_t count, const std::string& skip, Columns& out) const;
};

#endif
