#ifndef NORVA_DL_MULTIVALUE_H
#define NORVA_DL_MULTIVALUE_H

#include <cstdarg>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "CondList.h"
#include "DataLayerTypes.h"
#include "TupElement.h"

/// @file
/// Multi-record queries of the generic store.

/// Orders record columns byte-wise by name.
struct MystrCmp {
    /// `true` when `a` sorts before `b` (strcmp).
    bool operator()(const char* a, const char* b) const;
};

/// One result record: bare column name -> element; both owned by the query.
typedef std::map<const char*, TupElement*, MystrCmp> dl_Record;

class ResultBlock;
struct QueryRows;

/// One multi-record SELECT (columns, table, conditions) and, once run, its
/// rows: ExecuteQuery appends one record per row to m_records.
class dl_MultiValue {
public:
    /// An empty query.
    dl_MultiValue();
    /// Shallow: the copy's records hold the source's element pointers, so
    /// only one of the two may be destroyed with its records; tables,
    /// conditions and StartStatement start empty.
    dl_MultiValue(const dl_MultiValue& other);
    /// Frees the records and their elements.
    ~dl_MultiValue();
    /// Not assignable.
    dl_MultiValue& operator=(const dl_MultiValue&) = delete;

    /// `count` columns in "TABLE.COLUMN" form; the texts are borrowed.
    void InsertKeys(int count, const char* first, ...);
    /// Only one table is supported: a count of 2 or more traps.
    void InsertTickettype(int count, TICKET_TYPE_NV first, ...);
    /// Replaces `target` by `first` and the `count` - 1 further values of
    /// `rest` (enums travel as int).
    template <class T>
    void InsertValuesInList(int count, std::list<T>& target, T first, va_list rest);

    /// Number of records read.
    int GetRecordCount();
    /// The elements of record `index` (from 0), borrowed from the query;
    /// `false` for an index below 0 or above the count (the count itself gives
    /// `true` and an empty list).
    bool GetRecord(int index, std::list<TupElement*>& out);
    /// Copies the element named like the column part of `column` in record
    /// `index` into `*out`; `out` is left as it was when the record lacks the
    /// column, and the answer is still `true`. `false` only for an index out of
    /// range.
    bool GetElement(int index, const char* column, TupElement* out);

    std::list<dl_Record>::iterator m_recordCursor;  ///< record read last
    dl_Record::iterator m_elementCursor;  ///< element read last
    std::list<const char*> m_keys;  ///< the columns to select, "TABLE.COLUMN", borrowed
    std::list<const char*>::iterator m_keyCursor;  ///< reading position of the store in m_keys
    CondList m_conditions;  ///< the WHERE clause, token by token; empty: no WHERE
    std::list<TICKET_TYPE_NV> m_tableTypes;  ///< the table (one only)
    std::list<TICKET_TYPE_NV>::iterator m_tableCursor;  ///< reading position of the store in m_tableTypes
    std::list<dl_Record> m_records;  ///< the records read, in result order
    /// The opening of the statement, used instead of "SELECT " when `set`.
    struct {
        std::string text;  ///< the opening text
        bool set = false;  ///< whether text is used
    } StartStatement;

private:
    friend struct QueryRows;
    /// Appends the rows of one result block, as many as it holds whole at any time.
    void AddResult(std::shared_ptr<ResultBlock> result);
    /// Moves the record cursor to `index` (the range test is `count < index`);
    /// false when the index is refused.
    bool StepTo(int index);
    int m_recordCursorIndex = -1;  ///< position of m_recordCursor while it is not at the end
    /// The result block holding record `index` past m_records, and its row there.
    ResultBlock* Locate(int index, size_t& row);
    /// The rows of the library's own queries, block by block, after m_records
    /// (a host's queries have none).
    std::vector<std::shared_ptr<ResultBlock>> m_results;
    bool m_useBlocks = false;  ///< rows go into m_results instead of m_records
};

template <class T>
void dl_MultiValue::InsertValuesInList(int count, std::list<T>& target, T first, va_list rest) {
    target.clear();
    target.push_back(first);
    for (int i = 1; i < count; ++i) {
        if constexpr (std::is_enum<T>::value)
            target.push_back(static_cast<T>(va_arg(rest, int)));
        else
            target.push_back(va_arg(rest, T));
    }
}

#endif
