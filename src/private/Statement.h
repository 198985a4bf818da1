#ifndef NORVA_PRIVATE_STATEMENT_H
#define NORVA_PRIVATE_STATEMENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "DataLayerTypes.h"

// One value sent apart from a statement's text, for one placeholder.
struct BoundValue {
    enum class Kind { Null, Int, Long, Double, Text };
    Kind kind = Kind::Null;
    int64_t number = 0;
    double real = 0;
    std::string text;  // UTF-8
};

// One statement as it goes to the server. Without `bound` the text is run as
// it stands; with it the text is prepared on the server (its values are the
// placeholders' "?", in order) and the values travel beside it.
struct Statement {
    std::string text;
    std::vector<BoundValue> values;
    bool bound = false;
};

// The bound value of a typed value (PARAM_BLOB: a wide text); `value` may be
// null for a time stamp that is not set. A tag without a value gives NULL.
BoundValue BindValue(PARAM_TYPE_NV type, const void* value);

// How a statement's values show in the trace: "values: 3, 'Q12', NULL".
std::wstring TraceValues(const Statement& statement);

#endif
