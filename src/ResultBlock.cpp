#include "private/ResultBlock.h"

#include <algorithm>
#include <cstring>

namespace {
// Texts are kept in chunks of this many characters (longer ones get their own).
const std::size_t kTextChunk = 16384;
}  // namespace

ResultBlock::ResultBlock(std::vector<std::string> names, std::size_t rows) : m_names(std::move(names)) {
    // One element per name: a later column of an earlier name is left out,
    // as a record keeps the first.
    for (std::size_t i = 0; i < m_names.size(); ++i) m_order.push_back(i);
    std::stable_sort(m_order.begin(), m_order.end(), [this](std::size_t a, std::size_t b) {
        return std::strcmp(m_names[a].c_str(), m_names[b].c_str()) < 0;
    });
    m_order.erase(std::unique(m_order.begin(), m_order.end(),
                              [this](std::size_t a, std::size_t b) { return m_names[a] == m_names[b]; }),
                  m_order.end());
    m_cells.reserve(rows * m_names.size());
}

void ResultBlock::Add(PARAM_TYPE_NV type, void* value) {
    m_cells.emplace_back(type, m_names[m_cells.size() % m_names.size()].c_str(), value);
}

void ResultBlock::None() { Add(PARAM_NO_VALUE, nullptr); }

void ResultBlock::Int(int32_t value) {
    m_ints.push_back(value);
    Add(PARAM_INT, &m_ints.back());
}

void ResultBlock::Text(const char* utf8, std::size_t bytes) {
    // Never more characters than bytes, and the NUL.
    if (m_textRoom - m_textUsed < bytes + 1) {
        m_textRoom = std::max(kTextChunk, bytes + 1);
        m_textChunks.emplace_back(new wchar_t[m_textRoom]);
        m_textUsed = 0;
    }
    wchar_t* text = m_textChunks.back().get() + m_textUsed;
    m_textUsed = TupElement::DecodeText(utf8, bytes, text) + 1 - m_textChunks.back().get();
    Add(PARAM_WSTRING, text);
}

void ResultBlock::Time(const TimeStamp& value) {
    m_times.push_back(value);
    Add(PARAM_TIMESTAMP, &m_times.back());
}

std::size_t ResultBlock::Rows() const { return m_names.empty() ? 0 : m_cells.size() / m_names.size(); }

void ResultBlock::Record(std::size_t row, std::list<TupElement*>& out) {
    // The list's nodes are reused: a caller walking the records with one
    // list allocates for the first record only.
    TupElement* first = &m_cells[row * m_names.size()];
    std::list<TupElement*>::iterator at = out.begin();
    for (std::size_t column : m_order) {
        if (at == out.end())
            out.push_back(first + column);
        else
            *at++ = first + column;
    }
    out.erase(at, out.end());
}

TupElement* ResultBlock::Element(std::size_t row, const char* name) {
    for (std::size_t column : m_order)
        if (m_names[column] == name) return &m_cells[row * m_names.size() + column];
    return nullptr;
}
