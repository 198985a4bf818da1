#ifndef NORVA_PRIVATE_ROWSINK_H
#define NORVA_PRIVATE_ROWSINK_H

#include <cstddef>
#include <cstdint>

#include "TimeStamp.h"

// Where the rows of a query result go, cell by cell: the cells of a row in
// column order, row after row.
class RowSink {
public:
    virtual ~RowSink() = default;
    virtual void None() = 0;                                  // a cell without a value (tag 10)
    virtual void Int(int32_t value) = 0;                      // tag PARAM_INT
    virtual void Text(const char* utf8, std::size_t bytes) = 0;  // tag PARAM_WSTRING, from UTF-8
    virtual void Time(const TimeStamp& value) = 0;            // tag PARAM_TIMESTAMP
};

#endif
