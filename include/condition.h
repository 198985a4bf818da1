#ifndef NORVA_CONDITION_H
#define NORVA_CONDITION_H

#include "DataLayerTypes.h"

/// One token of a WHERE clause. Text tokens hold a narrow string copy, a
/// COND_VALUE token holds its own TupElement.
class condition {
public:
    /// An empty token (COND_NONE, no value).
    condition();
    /// A token of `type` holding a copy of `value`: a narrow text for
    /// brackets, columns and operators, a TupElement for COND_VALUE.
    condition(COND_ELEMENT type, const void* value);
    /// Deep copy.
    condition(const condition& other);
    /// Deep copy.
    condition& operator=(const condition& other);
    /// Frees the value.
    ~condition();

    /// Copies `source` as a value of a token of `type` into `target`.
    void AllocateValue(COND_ELEMENT type, const void* source, void*& target);
    /// Frees a value held by a token of `type`.
    static void DeletVoidPtr(COND_ELEMENT type, void* value);

    COND_ELEMENT type;  ///< what the token is
    void* value;  ///< char* text, or TupElement* for COND_VALUE; owned
};

#endif
