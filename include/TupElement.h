#ifndef NORVA_TUPELEMENT_H
#define NORVA_TUPELEMENT_H

#include <cstddef>

#include "DataLayerTypes.h"

// One named, typed value: a column of a result record or the value side of
// a condition. Owns deep copies of its name and value, except that a result
// cell refers to its column's name, which the query keeps.
class TupElement {
public:
    TupElement();
    // A result cell: takes `value` (allocated as AllocateValue allocates for
    // `type`) and refers to `columnName`, which must outlive the element.
    TupElement(PARAM_TYPE_NV type, const char* columnName, void* value);
    TupElement(const TupElement& other);
    // Releases the old value by the tag copied from the source, as callers
    // only assign between elements of one tag or onto empty elements.
    TupElement& operator=(TupElement& other);
    ~TupElement();

    void InsertTupValue(PARAM_TYPE_NV type, const char* name, const void* value);

    static void AllocateValue(PARAM_TYPE_NV type, const void* source, void*& target);
    static void DeletVoidPtr(PARAM_TYPE_NV type, void* value);
    // A value for the text tags decoded from `bytes` bytes of UTF-8.
    static wchar_t* AllocateText(const char* utf8, std::size_t bytes);

    PARAM_TYPE_NV type;
    void* value;
    char* name;

private:
    bool m_ownsName;
};

#endif
