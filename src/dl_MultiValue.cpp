#include "dl_MultiValue.h"

#include <cstdlib>
#include <cstring>

#include "private/ResultBlock.h"
#include "utility.h"

bool MystrCmp::operator()(const char* a, const char* b) const { return std::strcmp(a, b) < 0; }

// The cursors are declared before their lists, so they are set in the body.
dl_MultiValue::dl_MultiValue() {
    m_recordCursor = m_records.end();
    m_keyCursor = m_keys.end();
    m_tableCursor = m_tableTypes.end();
}

dl_MultiValue::dl_MultiValue(const dl_MultiValue& other)
    : m_keys(other.m_keys), m_results(other.m_results), m_useBlocks(other.m_useBlocks) {
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
        for (auto& entry : record) {
            delete entry.second;
            delete[] const_cast<char*>(entry.first);
        }
    }
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

void dl_MultiValue::AddResult(std::shared_ptr<ResultBlock> result) {
    if (result) m_results.push_back(std::move(result));
}

int dl_MultiValue::GetRecordCount() {
    size_t count = m_records.size();
    for (const auto& result : m_results) count += result->Rows();
    return static_cast<int>(count);
}

ResultBlock* dl_MultiValue::Locate(int index, size_t& row) {
    if (index < 0 || static_cast<size_t>(index) < m_records.size()) return nullptr;
    row = static_cast<size_t>(index) - m_records.size();
    for (const auto& result : m_results) {
        if (row < result->Rows()) return result.get();
        row -= result->Rows();
    }
    return nullptr;
}

// The range test is `count < index`, so index == count reaches the end;
// nothing is read there, and a negative index is refused rather than
// stepping before the first record. The cursor steps from whichever of the
// first record, its current place or the end is nearest, so visiting every
// record costs one pass.
bool dl_MultiValue::StepTo(int index) {
    if (GetRecordCount() < index || index < 0) return false;
    const int count = static_cast<int>(m_records.size());
    if (index >= count) {  // the end, or a row of a result block
        m_recordCursor = m_records.end();
        return true;
    }
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
    size_t row = 0;
    if (ResultBlock* result = Locate(index, row)) {
        result->Record(row, out);
        return true;
    }
    if (!StepTo(index)) return false;
    out.clear();
    if (m_recordCursor == m_records.end()) return true;
    for (auto& entry : *m_recordCursor) out.push_back(entry.second);
    return true;
}

bool dl_MultiValue::GetElement(int index, const char* column, TupElement* out) {
    size_t row = 0;
    if (ResultBlock* result = Locate(index, row)) {
        const char* dot = column ? std::strchr(column, '.') : nullptr;
        TupElement* element = dot ? result->Element(row, utility::StringLowerToUpper(dot + 1)) : nullptr;
        if (element) *out = *element;
        return true;  // no such column: unchanged
    }
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
