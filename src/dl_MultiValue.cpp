#include "dl_MultiValue.h"

#include <cstdlib>
#include <cstring>

#include "utility.h"

bool MystrCmp::operator()(const char* a, const char* b) const { return std::strcmp(a, b) < 0; }

// The cursors are declared before their lists, so they are set in the body.
dl_MultiValue::dl_MultiValue() {
    m_recordCursor = m_records.end();
    m_keyCursor = m_keys.end();
    m_tableCursor = m_tableTypes.end();
}

dl_MultiValue::dl_MultiValue(const dl_MultiValue& other) : m_keys(other.m_keys), m_columnNames(other.m_columnNames) {
    for (const dl_Record& record : other.m_records) m_records.push_back(dl_Record(record.begin(), record.end()));
    m_recordCursor = m_records.end();
    m_keyCursor = m_keys.end();
    m_tableCursor = m_tableTypes.end();
}

dl_MultiValue::~dl_MultiValue() {
    while (!m_records.empty()) {
        dl_Record record;
        record.swap(m_records.front());
        m_records.pop_front();
        for (auto& entry : record) delete entry.second;  // the names are m_columnNames'
    }
}

const char* dl_MultiValue::ColumnName(const std::string& name) {
    m_columnNames->push_back(name);
    return m_columnNames->back().c_str();
}

void dl_MultiValue::InsertKeys(int count, const char* first, ...) {
    va_list rest;
    va_start(rest, first);
    InsertValuesInList<const char*>(count, m_keys, first, rest);
    va_end(rest);
}

void dl_MultiValue::InsertTickettype(int count, TICKET_TYPE_NV first, ...) {
    m_tableTypes.clear();
    m_tableTypes.push_back(first);
    if (count >= 2) __builtin_trap();  // one table only
}

int dl_MultiValue::GetRecordCount() { return static_cast<int>(m_records.size()); }

// The range test is `count < index`, so index == count reaches the end;
// nothing is read there, and a negative index is refused rather than
// stepping before the first record. The cursor steps from whichever of the
// first record, its current place or the end is nearest, so visiting every
// record costs one pass.
bool dl_MultiValue::StepTo(int index) {
    const int count = GetRecordCount();
    if (count < index || index < 0) return false;
    int from = 0;
    std::list<dl_Record>::iterator cursor = m_records.begin();
    if (m_recordCursor != m_records.end() && std::abs(m_recordCursorIndex - index) < index) {
        from = m_recordCursorIndex;
        cursor = m_recordCursor;
    }
    if (count - index < std::abs(from - index)) {
        from = count;
        cursor = m_records.end();
    }
    std::advance(cursor, index - from);
    m_recordCursor = cursor;
    m_recordCursorIndex = index;
    return true;
}

bool dl_MultiValue::GetRecord(int index, std::list<TupElement*>& out) {
    if (!StepTo(index)) return false;
    out.clear();
    if (m_recordCursor == m_records.end()) return true;
    for (auto& entry : *m_recordCursor) out.push_back(entry.second);
    return true;
}

bool dl_MultiValue::GetElement(int index, const char* column, TupElement* out) {
    if (!StepTo(index)) return false;
    const char* dot = column ? std::strchr(column, '.') : nullptr;
    if (dot == nullptr || m_recordCursor == m_records.end()) return true;  // no such column
    const char* bare = utility::StringLowerToUpper(dot + 1);
    for (m_elementCursor = m_recordCursor->begin(); m_elementCursor != m_recordCursor->end(); ++m_elementCursor) {
        if (std::strcmp(m_elementCursor->first, bare) == 0) {
            *out = *m_elementCursor->second;
            break;
        }
    }
    return true;
}
