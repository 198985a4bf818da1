#ifndef NORVA_CONDLIST_H
#define NORVA_CONDLIST_H

#include <list>

#include "condition.h"

/// Ordered WHERE-clause tokens. Copies carry nothing, deliberately.
class CondList {
public:
    /// No tokens.
    CondList();
    /// An empty list: copies carry no tokens.
    CondList(CondList& other);
    /// Leaves this list as it is.
    CondList& operator=(CondList& other);
    /// Frees the tokens.
    ~CondList();

    /// Deep-copies the token at once; the caller keeps what it passed.
    void push_back(COND_ELEMENT type, const void* value);

    std::list<condition*> m_conditions;  ///< the tokens in clause order, owned
    std::list<condition*>::iterator m_cursor;  ///< reading position of the store
};

#endif
