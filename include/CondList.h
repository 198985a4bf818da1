#ifndef NORVA_CONDLIST_H
#define NORVA_CONDLIST_H

#include <list>

#include "condition.h"

// Ordered WHERE-clause tokens. Copies carry nothing, deliberately.
class CondList {
public:
    CondList();
    CondList(CondList& other);
    CondList& operator=(CondList& other);
    ~CondList();

    // Deep-copies the token at once; the caller keeps what it passed.
    void push_back(COND_ELEMENT type, const void* value);

    std::list<condition*> m_conditions;
    std::list<condition*>::iterator m_cursor;
};

#endif
