#ifndef NORVA_DL_MAININTERFACE_H
#define NORVA_DL_MAININTERFACE_H

#include <cstddef>

#include "DataLayerTypes.h"

class dl_MultiValue;

/// One column of a row write (WriteRow, InsertRow).
struct dl_ColumnValue {
    const char* column;  ///< "TABLE.COLUMN"
    const void* value;  ///< the value, as AddParameter takes it
    PARAM_TYPE_NV type;  ///< the value's type tag
    bool whileOk;  ///< written only while the writes before it succeeded
    /// A blob value that the one-statement-per-column writer (exact profile)
    /// hands to AddParameter as the address of a _BLOB record, not its text.
    bool blobRecord;
};

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
    /// UPDATE with the value quoted, or for PARAM_BLOB the wide text `value` in
    /// one statement. PARAM_TIMESTAMP values are not written in the `exact`
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

    /// Writes `count` columns of the row with `key`. `ok` is the result so far;
    /// the result is that of the last write made (`ok` when none is). The
    /// `exact` profile sends one statement per column, the `safe` one a single
    /// UPDATE whose answer is the result.
    virtual bool WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                          const dl_ColumnValue* columns, size_t count, bool ok) = 0;
    /// Adds a row with `count` columns. With `generate`, a new identifier is
    /// made first and written to `key` (a 32-character wide buffer for text
    /// keys, an int otherwise); without one nothing is written and the result
    /// is false. With `replace`, a row that already has the key is updated.
    /// The `safe` profile sends one INSERT and, with `generate`, tries another
    /// identifier when another process took this one.
    virtual bool InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool replace,
                           const dl_ColumnValue* columns, size_t count) = 0;
};

#endif
