#include "private/QueryRows.h"

#include <cstring>

#include "dl_MultiValue.h"
#include "private/ResultBlock.h"

namespace {

char* CopyName(const std::string& name) {
    char* copy = new char[name.size() + 1];
    std::memcpy(copy, name.c_str(), name.size() + 1);
    return copy;
}

// Appends one record per row to the query's record list: each cell an
// element owning its value and a copy of the column name, keyed by a second
// copy. A name the row already holds is not stored again (the first
// stays). A row left unfinished, when reading stopped half-way, is dropped.
class RecordRows : public RowSink {
public:
    RecordRows(dl_MultiValue& query, std::vector<std::string> names) : m_query(query), m_names(std::move(names)) {}
    ~RecordRows() override { Free(m_record); }

    void None() override { Add(PARAM_NO_VALUE, nullptr); }
    void Int(int32_t value) override { Add(PARAM_INT, new int32_t(value)); }
    void Text(const char* utf8, std::size_t bytes) override {
        Add(PARAM_WSTRING, TupElement::AllocateText(utf8, bytes));
    }
    void Time(const TimeStamp& value) override {
        TimeStamp* stamp = new TimeStamp(0);
        *stamp = value;
        Add(PARAM_TIMESTAMP, stamp);
    }

    RecordRows(const RecordRows&) = delete;
    RecordRows& operator=(const RecordRows&) = delete;

private:
    void Add(PARAM_TYPE_NV type, void* value) {
        const std::string& name = m_names[m_column];
        TupElement* element = new TupElement();
        element->type = type;
        element->value = value;
        element->name = CopyName(name);
        char* key = CopyName(name);
        if (!m_record.emplace(key, element).second) {
            delete element;
            delete[] key;
        }
        if (++m_column < m_names.size()) return;
        m_column = 0;
        if (!m_record.empty()) m_query.m_records.push_back(std::move(m_record));
        m_record.clear();
    }

    static void Free(dl_Record& record) {
        for (auto& entry : record) {
            delete entry.second;
            delete[] const_cast<char*>(entry.first);
        }
        record.clear();
    }

    dl_MultiValue& m_query;
    std::vector<std::string> m_names;
    std::size_t m_column = 0;
    dl_Record m_record;
};

}  // namespace

void QueryRows::UseBlocks(dl_MultiValue& query) { query.m_useBlocks = true; }

std::shared_ptr<RowSink> QueryRows::Open(dl_MultiValue& query, std::vector<std::string> names, std::size_t rows) {
    if (!query.m_useBlocks) return std::make_shared<RecordRows>(query, std::move(names));
    auto block = std::make_shared<ResultBlock>(std::move(names), rows);
    query.AddResult(block);
    return block;
}
