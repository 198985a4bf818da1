#ifndef NORVA_CTICKETDATAPROVIDER_H
#define NORVA_CTICKETDATAPROVIDER_H

#include "ITicketDataProvider.h"

class dl_MainInterface;
class Logger;

/// Queue entries and their JDF tickets (table JDFTICKET).
class CTicketDataProvider : public ITicketDataProvider {
public:
    /// Takes the generic store (creating it, and its connection, on first use)
    /// and the logger.
    CTicketDataProvider();
    /// Releases nothing: the store outlives the provider.
    ~CTicketDataProvider() override;

    bool AddTicket(CTicketRecord* rec) override;
    bool GetTicketRecord(const std::wstring& qentryId, CTicketRecord* rec) override;
    bool RemoveTicket(const std::wstring& qentryId) override;
    bool UpdateTicketRecord(const std::wstring& qentryId, const TicketTableRecord& rec) override;
    bool GetJDF(const std::wstring& qentryId, std::wstring& jdf) override;
    bool UpdateJDF(const std::wstring& qentryId, const std::wstring& jdf) override;
    bool GetHoldDeviceID(const std::wstring& qentryId, std::wstring& devId) override;
    bool GetSenderID(const std::wstring& qentryId, std::wstring& senderId) override;
    bool GetTicketStatus(const std::wstring& qentryId, int& status) override;
    bool UpdateTicketStatus(const std::wstring& qentryId, int status) override;
    bool GetTicketStatusMsg(const std::wstring& qentryId, std::wstring& msg) override;
    bool UpdateTicketStatusMsg(const std::wstring& qentryId, const std::wstring& msg) override;
    bool GetQentryID(const std::wstring& jobId, const std::wstring& senderId, std::wstring& jobPartId,
                     std::wstring& qentryId) override;
    std::list<std::wstring> GetAllQueueEntryIds(std::wstring holdDevId) override;
    std::list<std::wstring> GetAllQueueEntryIDs() override;
    std::list<std::wstring> GetTicketRecords(std::wstring holdDevId, int state) override;
    bool RestoreState(std::wstring qentryId) override;
    bool SetJDFState(std::wstring qentryId, int state) override;
    bool GetJDFState(std::wstring qentryId, int& state) override;
    bool IsJobPresent(const std::wstring& jobId, const std::wstring& jobPartId, const std::wstring& senderId,
                      std::wstring& qentryId) override;
    bool GetRecords(std::list<std::wstring>& qentryIds, int sendStatus) override;
    bool Update_JDFSendStatus(std::wstring& qentryId, int sendStatus) override;

private:
    dl_MainInterface* m_pDatabase;
    Logger* m_pLogger;
};

#endif
