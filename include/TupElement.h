#ifndef NORVA_TUPELEMENT_H
#define NORVA_TUPELEMENT_H

#include "DataLayerTypes.h"

/// One named, typed value: a column of a result record or the value side of
/// a condition. Owns deep copies of its name and value.
class TupElement {
public:
    /// An element holding no value (tag PARAM_NO_VALUE, no name).
    TupElement();
    /// Deep copy of name and value.
    TupElement(const TupElement& other);
    /// Releases the old value by the tag copied from the source, as callers
    /// only assign between elements of one tag or onto empty elements.
    TupElement& operator=(TupElement& other);
    /// Frees name and value.
    ~TupElement();

    /// Replaces name and value by copies of `name` and `value` of `type`.
    void InsertTupValue(PARAM_TYPE_NV type, const char* name, const void* value);

    /// Copies a value of `type` from `source` into a new allocation in `target`.
    static void AllocateValue(PARAM_TYPE_NV type, const void* source, void*& target);
    /// Frees a value of `type` allocated by AllocateValue.
    static void DeletVoidPtr(PARAM_TYPE_NV type, void* value);

    PARAM_TYPE_NV type;  ///< what value points to
    void* value;  ///< the value, owned; null without one
    char* name;  ///< bare column name, owned; may be null
};

#endif
