#ifndef NORVA_DATALAYERTYPES_H
#define NORVA_DATALAYERTYPES_H

/// @file
/// Tags of tables, values and WHERE-clause tokens used by the generic store.

/// Which table an operation addresses.
enum TICKET_TYPE_NV {
    TICKET_UNKNOWN = 0,  ///< no table: operations on it fail
    TICKET_JDFTICKET = 1,  ///< JDFTICKET: queue entries
    TICKET_CONTENT = 2,  ///< CONTENT: content files
    TICKET_DEVICEJOB = 3,  ///< DEVICEJOB: device jobs (key only)
    TICKET_STATSSUBS = 4,  ///< STATSSUBS: status subscriptions
    TICKET_SERVER = 5,  ///< SERVER: servers
    TICKET_DEVICE = 6,  ///< DEVICE: output devices
    TICKET_LOG = 7,  ///< LOG: log entries (key only)
    TICKET_MAXID = 8  ///< MAXID: the high-water marks of the ids
};

/// Type tag of every untyped key, value or condition value pointer.
enum PARAM_TYPE_NV {
    PARAM_NONE = 0,  ///< no value
    PARAM_INT = 1,        ///< 32-bit signed int
    PARAM_INT_2 = 2,      ///< 32-bit signed int
    PARAM_LONG = 3,       ///< 64-bit signed int
    PARAM_DOUBLE = 4,     ///< double
    PARAM_INT_5 = 5,      ///< 32-bit signed int
    PARAM_WSTRING = 6,    ///< NUL-terminated wide string
    PARAM_WSTRING_7 = 7,  ///< NUL-terminated wide string
    PARAM_BLOB = 8,       ///< _BLOB record (a plain wide string inside a TupElement)
    PARAM_TIMESTAMP = 9   ///< TimeStamp
};

/// The tag of an element that holds no value (a default TupElement).
const PARAM_TYPE_NV PARAM_NO_VALUE = static_cast<PARAM_TYPE_NV>(10);

/// Kind of a WHERE-clause token.
enum COND_ELEMENT {
    COND_BRACKET = 0,  ///< "(" or ")"
    COND_COLUMN = 1,  ///< a column as "TABLE.COLUMN", or a bare SQL word such as CURRENT_TIMESTAMP
    COND_OPERATOR = 2,  ///< "=", "AND", "IS NOT NULL", ...
    COND_VALUE = 3,  ///< a typed value (a TupElement), quoted in the statement
    COND_NONE = 4  ///< an empty token
};

#endif
