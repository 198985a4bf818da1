#ifndef NORVA_CDATABASEFACTORY_H
#define NORVA_CDATABASEFACTORY_H

#include "CMysqlDatabaseInterface.h"

/// Hands out the generic store singleton.
class CDatabaseFactory {
public:
    /// CMysqlDatabaseInterface::GetInstance(), as the generic interface.
    static dl_MainInterface* GetDatabaseInterface() { return CMysqlDatabaseInterface::GetInstance(); }
};

#endif
