#ifndef NORVA_PRIVATE_QUERYROWS_H
#define NORVA_PRIVATE_QUERYROWS_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "private/RowSink.h"

class dl_MultiValue;

// How ExecuteQuery hands a result over to its query. A query a host runs
// receives its rows in the public record list: one map per row, owning a
// copy of each cell and of its column name. The providers' own queries keep
// their rows in result blocks instead, read through GetRecord and GetElement
// alike, without an allocation per cell.
struct QueryRows {
    // Marks one of the providers' queries: its rows go into result blocks.
    static void UseBlocks(dl_MultiValue& query);
    // Where the rows of a result with these columns go (about `rows` of
    // them); each row is the query's once its last cell has arrived.
    static std::shared_ptr<RowSink> Open(dl_MultiValue& query, std::vector<std::string> names, std::size_t rows);
};

#endif
