#ifndef NORVA_TUPELEMENT_H
#define NORVA_TUPELEMENT_H

#include <cstddef>

#include "DataLayerTypes.h"

/// One named, typed value: a column of a result record or the value side of
/// a condition. Owns deep copies of its name and value, except a result
/// cell, whose name and value its query's result block keeps.
class TupElement {
public:
    /// An element holding no value (tag PARAM_NO_VALUE, no name).
    TupElement();
    /// A result cell: refers to `columnName` and `value`, which must outlive
    /// it. Assigned to, it owns what it is given.
    TupElement(PARAM_TYPE_NV type, const char* columnName, void* value);
    /// Deep copy of name and value.
    TupElement(const TupElement& other);
    /// Releases the old value by the tag copied from the source, as callers
    /// only assign between elements of one tag or onto empty elements.
    TupElement& operator=(TupElement& other);
    /// Frees the name and value it owns.
    ~TupElement();

    /// Replaces name and value by copies of `name` and `value` of `type`.
    void InsertTupValue(PARAM_TYPE_NV type, const char* name, const void* value);

    /// Copies a value of `type` from `source` into a new allocation in `target`.
    static void AllocateValue(PARAM_TYPE_NV type, const void* source, void*& target);
    /// Frees a value of `type` allocated by AllocateValue.
    static void DeletVoidPtr(PARAM_TYPE_NV type, void* value);
    /// A value for the text tags decoded from `bytes` bytes of UTF-8.
    static wchar_t* AllocateText(const char* utf8, std::size_t bytes);
    /// Decodes `bytes` bytes of UTF-8 into out (room for bytes + 1
    /// characters); returns the position of the terminating NUL.
    static wchar_t* DecodeText(const char* utf8, std::size_t bytes, wchar_t* out);

    PARAM_TYPE_NV type;  ///< what value points to
    void* value;  ///< the value; null without one
    char* name;  ///< bare column name; may be null

private:
    bool m_owns;  // name and value
};

#endif
