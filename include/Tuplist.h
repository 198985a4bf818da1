#ifndef NORVA_TUPLIST_H
#define NORVA_TUPLIST_H

#include <list>

#include "TupElement.h"

class Logger;

// Provider-side view of one record: its elements (borrowed) and lookup by
// "TABLE.COLUMN" name.
class Tuplist {
public:
    Tuplist();
    ~Tuplist();

    // The element named like the column part, or the list's own empty
    // element (tag 10, never null) with one log line.
    TupElement* operator[](const char* column);

    std::list<TupElement*> m_elements;
    TupElement m_empty;
    Logger* m_pLogger;
};

#endif
