#ifndef NORVA_TUPLIST_H
#define NORVA_TUPLIST_H

#include <list>

#include "TupElement.h"

class Logger;

/// Provider-side view of one record: its elements (borrowed) and lookup by
/// "TABLE.COLUMN" name.
class Tuplist {
public:
    /// An empty view.
    Tuplist();
    /// Frees nothing of the borrowed elements.
    ~Tuplist();

    /// The element named like the column part, or the list's own empty
    /// element (tag 10, never null) with one log line.
    TupElement* operator[](const char* column);

    std::list<TupElement*> m_elements;  ///< the record's elements, borrowed from the query
    TupElement m_empty;  ///< handed out for a column the record lacks
    Logger* m_pLogger;  ///< the process logger
};

#endif
