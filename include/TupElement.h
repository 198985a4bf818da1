#ifndef NORVA_TUPELEMENT_H
#define NORVA_TUPELEMENT_H

#include "DataLayerTypes.h"

// One named, typed value: a column of a result record or the value side of
// a condition. Owns deep copies of its name and value.
class TupElement {
public:
    TupElement();
    TupElement(const TupElement& other);
    // Releases the old value by the tag copied from the source, as callers
    // only assign between elements of one tag or onto empty elements.
    TupElement& operator=(TupElement& other);
    ~TupElement();

    void InsertTupValue(PARAM_TYPE_NV type, const char* name, const void* value);

    static void AllocateValue(PARAM_TYPE_NV type, const void* source, void*& target);
    static void DeletVoidPtr(PARAM_TYPE_NV type, void* value);

    PARAM_TYPE_NV type;
    void* value;
    char* name;
};

#endif
