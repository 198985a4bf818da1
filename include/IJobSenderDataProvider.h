#ifndef NORVA_IJOBSENDERDATAPROVIDER_H
#define NORVA_IJOBSENDERDATAPROVIDER_H

#include <string>

#include "CJobSenderData.h"

class IJobSenderDataProvider {
public:
    IJobSenderDataProvider() {}
    virtual void AddRecord(CJobSenderData& data) = 0;
    virtual bool DeleteRecord(CJobSenderData& data) = 0;
    virtual bool GetRecord(std::wstring url, CJobSenderData& out) = 0;
    virtual bool GetRecordByQueryId(std::wstring queryId, CJobSenderData& out) = 0;
    virtual ~IJobSenderDataProvider() {}
};

#endif
