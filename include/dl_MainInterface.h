#ifndef NORVA_DL_MAININTERFACE_H
#define NORVA_DL_MAININTERFACE_H

#include "DataLayerTypes.h"

class dl_MultiValue;

/// The generic table store: any row by table type and key, any column by its
/// "TABLE.COLUMN" name. Keys and values travel as untyped pointers with a tag.
class dl_MainInterface {
public:
    /// Nothing to release.
    virtual ~dl_MainInterface() {}
    /// Hands out a new identifier for `table`: the largest key or the MAXID
    /// high-water mark plus one, or the lowest free number with IDPattern = true;
    /// MAXID is raised when passed. `keyType` PARAM_INT writes an int to `out`,
    /// PARAM_WSTRING its decimal text into the wchar_t buffer `out` (32
    /// characters suffice); nothing is written when the MAXID row is missing or
    /// the statement fails. In the `exact` profile the id is not reserved:
    /// insert the row next. In the `safe` profile a sequential id is reserved
    /// in MAXID in one statement (no key is read), unique across processes.
    virtual void GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) = 0;
    /// Inserts a row holding only the key. In the `exact` profile always `true`,
    /// even when the key exists or the statement failed (see the log).
    virtual bool AddNewTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) = 0;
    /// Meant to clear one column. In the `exact` profile the statement it
    /// sends is refused by the server and only logged, and the answer is
    /// always `true`; the `safe` profile sets the column to NULL.
    virtual bool DeleteParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                 const char* column, PARAM_TYPE_NV valueType) = 0;
    /// Writes one column (`column` as "TABLE.COLUMN") of the row `key`: an
    /// UPDATE with the value quoted (`exact`) or bound to a prepared statement
    /// (`safe`), or for PARAM_BLOB the wide text `value` in one statement. PARAM_TIMESTAMP values are not written in the `exact`
    /// profile. In the `exact` profile always `true`; `safe` reports the outcome.
    virtual bool AddParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                              const char* column, const void* value, PARAM_TYPE_NV valueType) = 0;
    /// Reads one column of the row `key` into `value`: an int, int64, double,
    /// a wide text copied whole into the caller's buffer (make it 1024
    /// characters for the short text columns), or for PARAM_BLOB a _BLOB whose
    /// `data` is allocated here. `false` only when `column` has no "TABLE."
    /// part or a blob read failed; a missing row leaves `value` as it was and
    /// gives `true` (`false` in the `safe` profile, where NULL reads as not set).
    virtual bool GetParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                              const char* column, void* value, PARAM_TYPE_NV valueType) = 0;
    /// Deletes the row `key`. In the `exact` profile always `true`.
    virtual bool DeleteTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) = 0;
    /// Runs the query the object describes and appends one record per row to it.
    virtual void ExecuteQuery(dl_MultiValue* query) = 0;
};

#endif
