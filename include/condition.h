#ifndef NORVA_CONDITION_H
#define NORVA_CONDITION_H

#include "DataLayerTypes.h"

// One token of a WHERE clause. Text tokens hold a narrow string copy, a
// COND_VALUE token holds its own TupElement.
class condition {
public:
    condition();
    condition(COND_ELEMENT type, const void* value);
    condition(const condition& other);
    condition& operator=(const condition& other);
    ~condition();

    void AllocateValue(COND_ELEMENT type, const void* source, void*& target);
    static void DeletVoidPtr(COND_ELEMENT type, void* value);

    COND_ELEMENT type;
    void* value;
};

#endif
