#ifndef NORVA_PRIVATE_PROVIDERSUPPORT_H
#define NORVA_PRIVATE_PROVIDERSUPPORT_H

// What the store-based providers share: the traced query call, condition
// groups, element reads, and record column tables walked in each
// operation's own order.

#include <Logger.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TimeStamp.h"
#include "Tuplist.h"
#include "dl_MainInterface.h"
#include "dl_MultiValue.h"

// glibc's reporter behind assert(), declared here since NDEBUG hides it.
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line,
                              const char* function) noexcept __attribute__((__noreturn__));

// Stops the process as a failed assertion does, with the given text, in
// every build (NDEBUG does not turn it off): a caller broke the contract.
#define NORVA_ASSERT(condition, text) \
    ((condition) ? (void)0 : __assert_fail(text, __FILE__, __LINE__, __PRETTY_FUNCTION__))
#define NORVA_ASSERT_AT(condition, text, file, line, function) \
    ((condition) ? (void)0 : __assert_fail(text, file, line, function))

namespace provider {

// Every line of the data layer is written at this level.
const LOG_CONST kLogLevel = LOG_LEVEL_5;

// A field holding -1 is "not set"; the test is made on the unsigned value.
inline bool IsSetUnsigned(int value) { return static_cast<uint32_t>(value) < 4294967295u; }

// --- queries ---------------------------------------------------------------

// Runs the query between the operation's "Before ExecuteQuery() from ..."
// and "Returned from ExecuteQuery() ..." lines.
void RunQuery(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const wchar_t* before,
              const wchar_t* after);

// A query of `table` selecting one column ("TABLE.COLUMN" or "TABLE.*").
void Select(dl_MultiValue& query, TICKET_TYPE_NV table, const char* column);

void AddToken(dl_MultiValue& query, COND_ELEMENT kind, const char* text);     // "(", ")", a column
inline void AddOperator(dl_MultiValue& query, const char* op) { AddToken(query, COND_OPERATOR, op); }
// The value token: a TupElement of `type` named after `column`.
void AddValue(dl_MultiValue& query, const char* column, PARAM_TYPE_NV type, const void* value);
// The group "(" column "=" value ")".
void AddEquals(dl_MultiValue& query, const char* column, PARAM_TYPE_NV type, const void* value);
void AddEquals(dl_MultiValue& query, const char* column, const std::wstring& value);
void AddEquals(dl_MultiValue& query, const char* column, int value);

// Fetches record `index` into `row`; false when the index is out of range.
bool FetchRecord(dl_MultiValue& query, int index, Tuplist& row);

// --- element values -------------------------------------------------------

bool HasValue(const TupElement* element);
// No such column in the result (a column that came back NULL is not missing).
inline bool IsMissing(const TupElement* element) { return element == nullptr || element->name == nullptr; }
std::wstring TextOr(const TupElement* element, const std::wstring& fallback);
int IntOr(const TupElement* element, int fallback);
TimeStamp TimeOr(const TupElement* element, const TimeStamp& fallback);
// A text taken without a test for a missing value: a missing one raises the
// standard library's exception for a null text, as a string built from a
// null pointer does.
std::wstring TextAsIs(const TupElement* element);

// --- record column tables -------------------------------------------------

// When a field counts as set, so that writers write it.
enum class SetTest {
    NotEmpty,     // strings
    NotMinusOne,  // ints: unsigned value below 4294967295
    NonNegative,  // ints: zero or positive
    NotZero,      // ints: other than 0
    NotZeroTime   // time stamps: other than TimeStamp(0)
};

// One column of a record: its "TABLE.COLUMN" name, the store's value type,
// the field (exactly one of the three member pointers is set) and the set test.
template <class R>
struct Column {
    const char* name;
    PARAM_TYPE_NV type;
    std::wstring R::*text;
    int R::*number;
    TimeStamp R::*time;
    SetTest test;
};

template <class R>
constexpr Column<R> TextColumn(const char* name, std::wstring R::*field) {
    return {name, PARAM_WSTRING, field, nullptr, nullptr, SetTest::NotEmpty};
}
template <class R>
constexpr Column<R> BlobColumn(const char* name, std::wstring R::*field) {
    return {name, PARAM_BLOB, field, nullptr, nullptr, SetTest::NotEmpty};
}
template <class R>
constexpr Column<R> IntColumn(const char* name, int R::*field, SetTest test = SetTest::NotMinusOne) {
    return {name, PARAM_INT, nullptr, field, nullptr, test};
}
template <class R>
constexpr Column<R> TimeColumn(const char* name, TimeStamp R::*field) {
    return {name, PARAM_TIMESTAMP, nullptr, nullptr, field, SetTest::NotZeroTime};
}

template <class R>
bool IsSet(const R& rec, const Column<R>& column) {
    switch (column.test) {
        case SetTest::NotEmpty: return !(rec.*column.text).empty();
        case SetTest::NotMinusOne: return IsSetUnsigned(rec.*column.number);
        case SetTest::NonNegative: return rec.*column.number >= 0;
        case SetTest::NotZero: return rec.*column.number != 0;
        case SetTest::NotZeroTime: return rec.*column.time != TimeStamp(0);
    }
    return false;
}

// The row a provider writes: store, table and key.
struct Row {
    dl_MainInterface* db;
    TICKET_TYPE_NV table;
    const void* key;
    PARAM_TYPE_NV keyType;
};

// The value pointer handed to the store for a field: the wide C string of a
// text (blob texts too), the address of an int or of a TimeStamp.
template <class R>
const void* ValueOf(const R& rec, const Column<R>& column) {
    if (column.text) return (rec.*column.text).c_str();
    if (column.number) return &(rec.*column.number);
    return &(rec.*column.time);
}

enum class WriteMode {
    WhileOk,  // stop at the first failed write; `ok` carries in and out
    Every     // attempt every set column; the last write's result counts
};

// The set columns of `rec` listed in `order` (indexes into `table`), as the
// store's row writes take them.
template <class R, size_t N, size_t M>
std::vector<dl_ColumnValue> SetColumns(const R& rec, const Column<R> (&table)[N], const int (&order)[M],
                                       WriteMode mode) {
    std::vector<dl_ColumnValue> columns;
    for (int index : order) {
        const Column<R>& column = table[index];
        if (IsSet(rec, column))
            columns.push_back({column.name, ValueOf(rec, column), column.type, mode == WriteMode::WhileOk, false});
    }
    return columns;
}

// A column of a row write that goes out whatever the writes before it answered.
template <class R>
dl_ColumnValue Always(const R& rec, const Column<R>& column) {
    return {column.name, ValueOf(rec, column), column.type, false, false};
}

// Writes the set columns of `rec` listed in `order` to an existing row.
template <class R, size_t N, size_t M>
bool WriteColumns(const Row& row, const R& rec, const Column<R> (&table)[N], const int (&order)[M], WriteMode mode,
                  bool ok) {
    const std::vector<dl_ColumnValue> columns = SetColumns(rec, table, order, mode);
    return row.db->WriteRow(row.table, row.key, row.keyType, columns.data(), columns.size(), ok);
}

// Adds the row: `first` (written whatever the insert answered), then the set
// columns of `rec` listed in `order`, each only while the writes before it
// succeeded. With `generate` the store makes the key into row.key first.
template <class R, size_t N, size_t M>
bool InsertColumns(const Row& row, bool generate, bool replace, std::vector<dl_ColumnValue> first, const R& rec,
                   const Column<R> (&table)[N], const int (&order)[M]) {
    for (const dl_ColumnValue& column : SetColumns(rec, table, order, WriteMode::WhileOk)) first.push_back(column);
    return row.db->InsertRow(row.table, const_cast<void*>(row.key), row.keyType, generate, replace, first.data(),
                             first.size());
}

// How a reader treats a column that comes back without a value.
enum class ReadMode {
    OrDefault,      // the default: empty string, -1, TimeStamp(0)
    KeepIfMissing,  // leave the field as it was when the result has no such column
    AsIs            // no test: a missing text raises (see TextAsIs), a missing int reads -1
};

template <class R>
void ReadColumn(Tuplist& row, R& rec, const Column<R>& column, ReadMode mode = ReadMode::OrDefault) {
    const TupElement* element = row[column.name];
    if (mode == ReadMode::KeepIfMissing && IsMissing(element)) return;
    if (column.text)
        rec.*column.text = mode == ReadMode::AsIs ? TextAsIs(element) : TextOr(element, std::wstring());
    else if (column.number)
        rec.*column.number = IntOr(element, -1);
    else
        rec.*column.time = TimeOr(element, TimeStamp(0));
}

// Reads the columns listed in `order` (indexes into `table`) with the default rule.
template <class R, size_t N, size_t M>
void ReadColumns(Tuplist& row, R& rec, const Column<R> (&table)[N], const int (&order)[M]) {
    for (int index : order) ReadColumn(row, rec, table[index]);
}

}  // namespace provider

#endif
