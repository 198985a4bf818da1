#ifndef NORVA_PRIVATE_RESULTBLOCK_H
#define NORVA_PRIVATE_RESULTBLOCK_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "TimeStamp.h"
#include "TupElement.h"
#include "private/RowSink.h"

// The rows of one query result in one block. Each cell is a record element
// made in place: its value is kept in the block and its name is the
// column's, so reading a result allocates per block, not per cell.
class ResultBlock : public RowSink {
public:
    // The result's column names in order, and the number of rows expected.
    ResultBlock(std::vector<std::string> names, std::size_t rows);

    // The next cell, row by row and column by column: no value, an int, a
    // text of `bytes` bytes of UTF-8, a time stamp.
    void None() override;
    void Int(int32_t value) override;
    void Text(const char* utf8, std::size_t bytes) override;
    void Time(const TimeStamp& value) override;

    std::size_t Rows() const;
    // Sets out to row `row`'s elements, one per distinct column name, ordered by name.
    void Record(std::size_t row, std::list<TupElement*>& out);
    // Row `row`'s element of the column named `name`; null when none is.
    TupElement* Element(std::size_t row, const char* name);

    ResultBlock(const ResultBlock&) = delete;
    ResultBlock& operator=(const ResultBlock&) = delete;

private:
    void Add(PARAM_TYPE_NV type, void* value);

    std::vector<std::string> m_names;
    std::vector<std::size_t> m_order;  // the first column of each name, by name
    std::vector<TupElement> m_cells;   // row after row
    std::deque<int32_t> m_ints;        // deques: values stay where they are as more are added
    std::deque<TimeStamp> m_times;
    std::vector<std::unique_ptr<wchar_t[]>> m_textChunks;
    std::size_t m_textUsed = 0;
    std::size_t m_textRoom = 0;
};

#endif
