#ifndef NORVA_DATALAYERTYPES_H
#define NORVA_DATALAYERTYPES_H

// Which table an operation addresses.
enum TICKET_TYPE_NV {
    TICKET_UNKNOWN = 0,
    TICKET_JDFTICKET = 1,
    TICKET_CONTENT = 2,
    TICKET_DEVICEJOB = 3,
    TICKET_STATSSUBS = 4,
    TICKET_SERVER = 5,
    TICKET_DEVICE = 6,
    TICKET_LOG = 7,
    TICKET_MAXID = 8
};

// Type tag of every untyped key, value or condition value pointer.
enum PARAM_TYPE_NV {
    PARAM_NONE = 0,
    PARAM_INT = 1,        // 32-bit signed int
    PARAM_INT_2 = 2,      // 32-bit signed int
    PARAM_LONG = 3,       // 64-bit signed int
    PARAM_DOUBLE = 4,     // double
    PARAM_INT_5 = 5,      // 32-bit signed int
    PARAM_WSTRING = 6,    // NUL-terminated wide string
    PARAM_WSTRING_7 = 7,  // NUL-terminated wide string
    PARAM_BLOB = 8,       // _BLOB record (a plain wide string inside a TupElement)
    PARAM_TIMESTAMP = 9   // TimeStamp
};

// The tag of an element that holds no value (a default TupElement).
const PARAM_TYPE_NV PARAM_NO_VALUE = static_cast<PARAM_TYPE_NV>(10);

// Kind of a WHERE-clause token.
enum COND_ELEMENT {
    COND_BRACKET = 0,
    COND_COLUMN = 1,
    COND_OPERATOR = 2,
    COND_VALUE = 3,
    COND_NONE = 4
};

#endif
