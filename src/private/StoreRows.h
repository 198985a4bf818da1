#ifndef NORVA_PRIVATE_STOREROWS_H
#define NORVA_PRIVATE_STOREROWS_H

#include <cstddef>

#include "DataLayerTypes.h"

class dl_MainInterface;

// One column of a row write.
struct dl_ColumnValue {
    const char* column;  // "TABLE.COLUMN"
    const void* value;   // the value, as AddParameter takes it
    PARAM_TYPE_NV type;  // the value's type tag
    bool whileOk;        // written only while the writes before it succeeded
    // A blob value that the one-statement-per-column writer hands to
    // AddParameter as the address of a _BLOB record, not its text.
    bool blobRecord;
};

// The providers' row writes, through the store of `db`.
//
// WriteRow writes `count` columns of the row with `key`. `ok` is the result
// so far; the result is that of the last write made (`ok` when none is).
bool WriteRow(dl_MainInterface* db, TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
              const dl_ColumnValue* columns, std::size_t count, bool ok);
// InsertRow adds a row with `count` columns. With `generate`, a new
// identifier is made first and written to `key` (a 32-character wide buffer
// for text keys, an int otherwise); without one nothing is written and the
// result is false. With `replace`, a row that already has the key is updated.
bool InsertRow(dl_MainInterface* db, TICKET_TYPE_NV table, void* key, PARAM_TYPE_NV keyType, bool generate,
               bool replace, const dl_ColumnValue* columns, std::size_t count);

#endif
