#ifndef NORVA_CSTATUSSUBDATAPROVIDER_H
#define NORVA_CSTATUSSUBDATAPROVIDER_H

#include "DataLayerTypes.h"
#include "IStatusSubDataProvider.h"

class dl_MainInterface;
class Logger;

/// JMF status subscriptions (table STATSSUBS).
class CStatusSubDataProvider : public IStatusSubDataProvider {
public:
    /// Takes the generic store (creating it, and its connection, on first use)
    /// and the logger.
    CStatusSubDataProvider();
    /// Releases nothing: the store outlives the provider.
    ~CStatusSubDataProvider() override;

    bool AddRecord(StatusSubTableRecord* rec) override;
    bool DeleteRecord(int id) override;
    bool GetRecords(const std::wstring& qentryId, const std::wstring& senderId, const std::wstring& jobId,
                    const std::wstring& jobPartId, bool matchAll, std::vector<StatusSubTableRecord>& out) override;
    bool GetRecords(std::vector<StatusSubTableRecord>& out) override;
    bool GetRecords(bool sendStatus, std::vector<StatusSubTableRecord>& out) override;
    bool UpdateRecord(int id, const StatusSubTableRecord& rec) override;
    bool UpdateLastStatusSignal(int id, const std::wstring& signal) override;
    bool UpdateLastSigSendStatus(int id, bool sent) override;
    bool UpdateResponse(int id, const std::wstring& response) override;
    bool NeedStatusSubscription(StatusSubTableRecord& rec, int mode) override;
    bool RemoveRecords(const StatusSubTableRecord& pattern) override;
    bool GetRecordsCount(int& count) override;
    bool GetGlobalSubscriptionRecords(std::wstring deviceId, std::wstring qentryId,
                                      std::vector<StatusSubTableRecord>& out, bool withoutJobDetail,
                                      std::wstring senderId) override;
    bool GetRecord(StatusSubTableRecord& out, std::wstring deviceId, std::wstring senderId) override;

    /// `true` when no subscription of the sender exists for this queue entry
    /// and job (and job part, when not empty); `false` for an empty job or
    /// sender id. Mode 0 of the overload taking a record.
    virtual bool NeedStatusSubscription(const std::wstring& qentryId, const std::wstring& jobId,
                                        const std::wstring& jobPartId, const std::wstring& senderId);
    /// A device's subscriptions, narrowed by queue entry when not empty.
    virtual bool GetRecords(std::wstring deviceId, std::wstring qentryId, std::vector<StatusSubTableRecord>& out);

private:
    dl_MainInterface* m_pDatabase;
    TICKET_TYPE_NV m_tableType;
    Logger* m_pLogger;
};

#endif
