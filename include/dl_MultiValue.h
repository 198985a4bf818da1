#ifndef NORVA_DL_MULTIVALUE_H
#define NORVA_DL_MULTIVALUE_H

#include <cstdarg>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>
#include <type_traits>

#include "CondList.h"
#include "DataLayerTypes.h"
#include "TupElement.h"

// Orders record columns byte-wise by name.
struct MystrCmp {
    bool operator()(const char* a, const char* b) const;
};

// One result record: bare column name -> element; both owned by the query.
typedef std::map<const char*, TupElement*, MystrCmp> dl_Record;

class ResultBlock;

// One multi-record SELECT (columns, table, conditions) and, once run, its
// rows: the records of m_records, then the rows of each result block the
// store added (AddResult), whose elements live in the block.
class dl_MultiValue {
public:
    dl_MultiValue();
    // Shallow: shares the records' elements with the source (the result
    // blocks with them); tables, conditions and StartStatement start empty.
    dl_MultiValue(const dl_MultiValue& other);
    ~dl_MultiValue();
    dl_MultiValue& operator=(const dl_MultiValue&) = delete;

    // `count` columns in "TABLE.COLUMN" form; the texts are borrowed.
    void InsertKeys(int count, const char* first, ...);
    // Only one table is supported: a count of 2 or more traps.
    void InsertTickettype(int count, TICKET_TYPE_NV first, ...);
    template <class T>
    void InsertValuesInList(int count, std::list<T>& target, T first, va_list rest);

    // Appends the rows of one result, as many as it holds whole at any time.
    void AddResult(std::shared_ptr<ResultBlock> result);

    int GetRecordCount();
    bool GetRecord(int index, std::list<TupElement*>& out);
    bool GetElement(int index, const char* column, TupElement* out);

    std::list<dl_Record>::iterator m_recordCursor;
    dl_Record::iterator m_elementCursor;
    std::list<const char*> m_keys;
    std::list<const char*>::iterator m_keyCursor;
    CondList m_conditions;
    std::list<TICKET_TYPE_NV> m_tableTypes;
    std::list<TICKET_TYPE_NV>::iterator m_tableCursor;
    std::list<dl_Record> m_records;
    struct {
        std::string text;
        bool set = false;
    } StartStatement;

private:
    // Moves the record cursor to `index` (the range test is `count < index`);
    // false when the index is refused.
    bool StepTo(int index);
    int m_recordCursorIndex = -1;  // position of m_recordCursor while it is not at the end
    // The result block holding record `index` past m_records, and its row there.
    ResultBlock* Locate(int index, size_t& row);
    std::vector<std::shared_ptr<ResultBlock>> m_results;
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
