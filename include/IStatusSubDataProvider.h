#ifndef NORVA_ISTATUSSUBDATAPROVIDER_H
#define NORVA_ISTATUSSUBDATAPROVIDER_H

#include <string>
#include <vector>

#include "StatusSubTableRecord.h"

// Note the slot order: GetRecord is declared after the destructor.
class IStatusSubDataProvider {
public:
    IStatusSubDataProvider() {}
    virtual bool AddRecord(StatusSubTableRecord* rec) = 0;
    virtual bool DeleteRecord(int id) = 0;
    virtual bool GetRecords(const std::wstring& qentryId, const std::wstring& senderId, const std::wstring& jobId,
                            const std::wstring& jobPartId, bool matchAll, std::vector<StatusSubTableRecord>& out) = 0;
    virtual bool GetRecords(std::vector<StatusSubTableRecord>& out) = 0;
    virtual bool GetRecords(bool sendStatus, std::vector<StatusSubTableRecord>& out) = 0;
    virtual bool UpdateRecord(int id, const StatusSubTableRecord& rec) = 0;
    virtual bool UpdateLastStatusSignal(int id, const std::wstring& signal) = 0;
    virtual bool UpdateLastSigSendStatus(int id, bool sent) = 0;
    virtual bool UpdateResponse(int id, const std::wstring& response) = 0;
    virtual bool NeedStatusSubscription(StatusSubTableRecord& rec, int mode) = 0;
    virtual bool RemoveRecords(const StatusSubTableRecord& pattern) = 0;
    virtual bool GetRecordsCount(int& count) = 0;
    virtual bool GetGlobalSubscriptionRecords(std::wstring deviceId, std::wstring qentryId,
                                              std::vector<StatusSubTableRecord>& out, bool withoutJobDetail,
                                              std::wstring senderId) = 0;
    virtual ~IStatusSubDataProvider() {}
    virtual bool GetRecord(StatusSubTableRecord& out, std::wstring deviceId, std::wstring senderId) = 0;
};

#endif
