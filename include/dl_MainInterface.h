#ifndef NORVA_DL_MAININTERFACE_H
#define NORVA_DL_MAININTERFACE_H

#include "DataLayerTypes.h"

class dl_MultiValue;

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
};

#endif
