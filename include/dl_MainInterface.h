#ifndef NORVA_DL_MAININTERFACE_H
#define NORVA_DL_MAININTERFACE_H

#include <cstddef>

#include "DataLayerTypes.h"

class dl_MultiValue;

// One column of a row write: its "TABLE.COLUMN" name, value and type tag.
// `whileOk`: written only while the writes before it succeeded.
// `blobRecord`: a blob value that the one-statement-per-column writer hands
// to AddParameter as the address of a _BLOB record rather than as its text.
struct dl_ColumnValue {
    const char* column;
    const void* value;
    PARAM_TYPE_NV type;
    bool whileOk;
    bool blobRecord;
};

// The generic table store: any row by table type and key, any column by its
// "TABLE.COLUMN" name. Keys and values travel as untyped pointers with a tag.
class dl_MainInterface {
public:
    virtual ~dl_MainInterface() {}
    virtual void GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) = 0;
    virtual bool AddNewTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) = 0;
    virtual bool DeleteParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                                 const char* column, PARAM_TYPE_NV valueType) = 0;
    virtual bool AddParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                              const char* column, const void* value, PARAM_TYPE_NV valueType) = 0;
    virtual bool GetParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                              const char* column, void* value, PARAM_TYPE_NV valueType) = 0;
    virtual bool DeleteTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) = 0;
    // Runs the query the object describes and appends one record per row to it.
    virtual void ExecuteQuery(dl_MultiValue* query) = 0;

    // Writes `count` columns of the row with `key`. `ok` is the result so far;
    // the result is that of the last write made (`ok` when none is).
    virtual bool WriteRow(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                          const dl_ColumnValue* columns, size_t count, bool ok) = 0;
    // Adds a row with `count` columns. With `generate`, a new identifier is
    // made first and written to `key` (a 32-character wide buffer for text
    // keys, an int otherwise); without one nothing is written and the result
    // is false. With `replace`, a row that already has the key is updated.
    virtual bool InsertRow(TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate, bool replace,
                           const dl_ColumnValue* columns, size_t count) = 0;
};

#endif
