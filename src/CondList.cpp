#include "CondList.h"

CondList::CondList() : m_cursor(m_conditions.end()) {}

// Copies carry no conditions (docs/kept-behaviours.md, Q2).
CondList::CondList(CondList&) : m_cursor(m_conditions.end()) {}

CondList& CondList::operator=(CondList&) { return *this; }

CondList::~CondList() {
    while (!m_conditions.empty()) {
        delete m_conditions.front();
        m_conditions.pop_front();
    }
}

void CondList::push_back(COND_ELEMENT type, const void* value) { m_conditions.push_back(new condition(type, value)); }
