#ifndef NORVA_SERVERTABLERECORD_H
#define NORVA_SERVERTABLERECORD_H

#include <string>

// One server that devices belong to (table SERVER).
struct ServerTableRecord {
    int SERVERID = -1;
    std::wstring COMPNAME;
    std::wstring STATMSG;
    int STATE = -1;
    std::wstring LOGINPWD;
    std::wstring LOGINSERNAME;
    std::wstring SERIALNO;
    std::wstring VERSION;
    int STYPE = -1;
};
typedef ServerTableRecord CServerRecord;

#endif
