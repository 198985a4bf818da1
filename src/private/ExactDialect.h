#ifndef NORVA_PRIVATE_EXACTDIALECT_H
#define NORVA_PRIVATE_EXACTDIALECT_H

#include <sstream>

#include "private/StoreDialect.h"

// The exact profile: every text, answer and log line as hosts written for
// this library expect them, odd ones included (docs/kept-behaviours.md).
// Values go into the statement text between quotes as they stand; names go
// in bare; writes answer true; a row is written column by column; an
// identifier is chosen from the keys under this process's lock.
class ExactDialect : public StoreDialect {
public:
    explicit ExactDialect(const StoreContext& context) : StoreDialect(context) {}

    const char* Profile() const override { return "exact"; }
    std::string Name(const std::string& name) const override { return name; }
    Statement NewStatement() const override { return Statement(); }
    void Value(Statement& statement, PARAM_TYPE_NV type, const void* value) const override;
    void Text(Statement& statement, const std::string& utf8) const override;
    void ReadCell(sql::ResultSet& rows, unsigned int index, int columnType, RowSink& block) const override;
    void ReadValue(sql::ResultSet& rows, const char* column, void* value, PARAM_TYPE_NV type) const override;
    bool Answer(const Outcome& outcome, bool needsRow, const wchar_t* what,
                const std::function<WriteCheck()>& lost = nullptr) override;
    bool NotRun() const override { return true; }
    bool NoRow(const wchar_t*) const override { return true; }
    Statement ClearColumn(const std::string& table, const std::string& keyColumn, const char* column,
                          const void* key, PARAM_TYPE_NV keyType) const override;
    bool WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType, const dl_ColumnValue* columns,
                  std::size_t count, bool ok) override;
    bool InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool replace,
                   const dl_ColumnValue* columns, std::size_t count) override;
    void GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) override;

protected:
    int ConflictRetries() const override { return 0; }
};

// SendValueToCursor's work: one typed value as SQL text, unquoted and not
// escaped, between its "Inside"/"Returning from" lines.
void WriteValueText(Logger* logger, PARAM_TYPE_NV type, std::ostringstream& out, const void* value);

#endif
