#ifndef NORVA_STATUSSUBTABLERECORD_H
#define NORVA_STATUSSUBTABLERECORD_H

#include <string>

#include "TimeStamp.h"

// One status subscription (table STATSSUBS).
struct StatusSubTableRecord {
    int ID = -1;
    std::wstring REFID;
    std::wstring URL;
    std::wstring STATSUBS;
    std::wstring LASTSIG;
    TimeStamp LASTUPDATE{0};
    std::wstring DEVDETLEVEL;
    std::wstring JOBDETAIL;
    int QUEUEINFO = -1;
    int EMPLOYEINFO = -1;
    std::wstring DEVICEID;
    std::wstring QENTRYID;
    std::wstring JOBID;
    std::wstring JOBPARTID;
    int REPEATSTEP = -1;
    int REPEATTIME = -1;
    std::wstring RESPONSE;
    std::wstring SENDERID;
};

#endif
