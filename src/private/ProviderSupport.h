#ifndef NORVA_PRIVATE_PROVIDERSUPPORT_H
#define NORVA_PRIVATE_PROVIDERSUPPORT_H

// What the store-based providers share: the traced query call, condition
// groups, element reads, and record column tables walked in each
// operation's own order.

#include <Logger.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "TimeStamp.h"
#include "Tuplist.h"
#include "dl_MainInterface.h"
#include "dl_MultiValue.h"
#include "private/StoreRows.h"

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
    return ::WriteRow(row.db, row.table, row.key, row.keyType, columns.data(), columns.size(), ok);
}

// Adds the row: `first` (written whatever the insert answered), then the set
// columns of `rec` listed in `order`, each only while the writes before it
// succeeded. With `generate` the store makes the key into row.key first.
template <class R, size_t N, size_t M>
bool InsertColumns(const Row& row, bool generate, bool replace, std::vector<dl_ColumnValue> first, const R& rec,
                   const Column<R> (&table)[N], const int (&order)[M]) {
    for (const dl_ColumnValue& column : SetColumns(rec, table, order, WriteMode::WhileOk)) first.push_back(column);
    return ::InsertRow(row.db, row.table, const_cast<void*>(row.key), row.keyType, generate, replace, first.data(),
                             first.size());
}

// How a reader treats a column that comes back without a value.
enum class ReadMode {
    OrDefault,      // the default: empty string, -1, TimeStamp(0)
    KeepIfMissing,  // leave the field as it was when the result has no such column
    AsIs            // no test: a missing text raises (see TextAsIs), a missing int reads -1
};

// A row's elements by place, for reading several columns of it.
struct RowPlaces {
    explicit RowPlaces(Tuplist& row);
    Tuplist& row;
    TupElement* at[64];
    size_t count;  // 0 for a row of more than 64 elements: searched by name
};

// The element of the row for `column` ("TABLE.COLUMN"), as row[column] finds
// it (a missing one logged the same way). The rows of one result hold their
// columns in the same places, so the place `hint` names is tried first and
// then set to where the column was: reading a result is then one name
// comparison per column, not a search.
const TupElement* FindColumn(RowPlaces& places, const char* column, size_t& hint);

// A field from its element.
template <class R>
void ReadElement(const TupElement* element, R& rec, const Column<R>& column, ReadMode mode) {
    if (mode == ReadMode::KeepIfMissing && IsMissing(element)) return;
    if (column.text)
        rec.*column.text = mode == ReadMode::AsIs ? TextAsIs(element) : TextOr(element, std::wstring());
    else if (column.number)
        rec.*column.number = IntOr(element, -1);
    else
        rec.*column.time = TimeOr(element, TimeStamp(0));
}

template <class R>
void ReadColumn(Tuplist& row, R& rec, const Column<R>& column, ReadMode mode = ReadMode::OrDefault) {
    ReadElement(row[column.name], rec, column, mode);
}

// Reads the columns listed in `order` (indexes into `table`) with the default
// rule; each column's place is remembered, per thread, for the next row.
template <class R, size_t N, size_t M>
void ReadColumns(Tuplist& row, R& rec, const Column<R> (&table)[N], const int (&order)[M]) {
    thread_local size_t hints[N] = {};
    RowPlaces places(row);
    for (int index : order)
        ReadElement(FindColumn(places, table[index].name, hints[index]), rec, table[index], ReadMode::OrDefault);
}

// --- walking a query's result ---------------------------------------------

// The two lines a query runs between: "Before ExecuteQuery() from ..." and
// "Returned from ExecuteQuery() ...".
struct Trace {
    const wchar_t* before;
    const wchar_t* after;
};

void RunQuery(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const Trace& trace);

// Runs the query and answers how many records it gave.
int RunForCount(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const Trace& trace);

enum class Walk { FirstToLast, LastToFirst };

// Runs the query and, when exactly one record comes back, hands it to
// `read` and answers true.
template <class Read>
bool ReadOne(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const Trace& trace, Read read) {
    RunQuery(db, logger, query, trace);
    Tuplist row;
    if (query.GetRecordCount() != 1 || !FetchRecord(query, 0, row)) return false;
    read(row);
    return true;
}

// Runs the query and hands each record, in `walk` order and in a fresh row,
// to `each`. `each` returns nothing, or a bool that is false to end the walk
// there. False when a record could not be fetched (the walk ends there).
template <class Each>
bool WalkQuery(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const Trace& trace, Walk walk,
               Each each) {
    RunQuery(db, logger, query, trace);
    const int count = query.GetRecordCount();
    Tuplist row;  // one for every record: its list nodes are reused
    for (int n = 0; n < count; ++n) {
        if (!FetchRecord(query, walk == Walk::FirstToLast ? n : count - 1 - n, row)) return false;
        if constexpr (std::is_same_v<decltype(each(row)), bool>) {
            if (!each(row)) break;
        } else {
            each(row);
        }
    }
    return true;
}

// Selects every column (`all`, "TABLE.*") of the rows of `table` whose
// `column` equals `key`; when exactly one row comes back, hands it to
// `read` and answers true.
template <class Key, class Read>
bool ReadOneByKey(dl_MainInterface* db, Logger* logger, TICKET_TYPE_NV table, const char* all, const char* column,
                  const Key& key, const Trace& trace, Read read) {
    dl_MultiValue query;
    Select(query, table, all);
    AddEquals(query, column, key);
    return ReadOne(db, logger, query, trace, read);
}

// Runs the query and appends each record, its columns read in `order`, to `out`.
template <class R, size_t N, size_t M>
void AppendRecords(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const Trace& trace, Walk walk,
                   const Column<R> (&table)[N], const int (&order)[M], std::vector<R>& out) {
    WalkQuery(db, logger, query, trace, walk, [&](Tuplist& row) {
        R rec;
        ReadColumns(row, rec, table, order);
        out.push_back(std::move(rec));
    });
}

// Reads every column of `table`, in table order, with the default rule.
template <class R, size_t N>
void ReadAllColumns(Tuplist& row, R& rec, const Column<R> (&table)[N]) {
    thread_local size_t hints[N] = {};
    RowPlaces places(row);
    for (size_t i = 0; i < N; ++i) ReadElement(FindColumn(places, table[i].name, hints[i]), rec, table[i], ReadMode::OrDefault);
}

// --- column orders by name ------------------------------------------------

// True when `name` ("TABLE.COLUMN") names `column` (given without its table).
constexpr bool NamesColumn(const char* name, const char* column) {
    while (*name != 0 && *name != '.') ++name;
    if (*name == '.') ++name;
    while (*name != 0 && *name == *column) ++name, ++column;
    return *name == 0 && *column == 0;
}

// The index in `table` of `column` (given without its table), so that an
// operation's column order is written as names. Used in a constant
// expression, a name the table lacks does not compile.
template <class R, size_t N>
constexpr int IndexOf(const Column<R> (&table)[N], const char* column) {
    for (size_t i = 0; i < N; ++i)
        if (NamesColumn(table[i].name, column)) return static_cast<int>(i);
    throw "no such column in the table";
}

}  // namespace provider

#endif
