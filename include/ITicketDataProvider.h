#ifndef NORVA_ITICKETDATAPROVIDER_H
#define NORVA_ITICKETDATAPROVIDER_H

#include <list>
#include <string>

#include "TicketTableRecord.h"

class ITicketDataProvider {
public:
    ITicketDataProvider() {}
    virtual bool AddTicket(CTicketRecord* rec) = 0;
    virtual bool GetTicketRecord(const std::wstring& qentryId, CTicketRecord* rec) = 0;
    virtual bool RemoveTicket(const std::wstring& qentryId) = 0;
    virtual bool UpdateTicketRecord(const std::wstring& qentryId, const TicketTableRecord& rec) = 0;
    virtual bool GetJDF(const std::wstring& qentryId, std::wstring& jdf) = 0;
    virtual bool UpdateJDF(const std::wstring& qentryId, const std::wstring& jdf) = 0;
    virtual bool GetHoldDeviceID(const std::wstring& qentryId, std::wstring& devId) = 0;
    virtual bool GetSenderID(const std::wstring& qentryId, std::wstring& senderId) = 0;
    virtual bool GetTicketStatus(const std::wstring& qentryId, int& status) = 0;
    virtual bool UpdateTicketStatus(const std::wstring& qentryId, int status) = 0;
    virtual bool GetTicketStatusMsg(const std::wstring& qentryId, std::wstring& msg) = 0;
    virtual bool UpdateTicketStatusMsg(const std::wstring& qentryId, const std::wstring& msg) = 0;
    virtual bool GetQentryID(const std::wstring& jobId, const std::wstring& senderId, std::wstring& jobPartId,
                             std::wstring& qentryId) = 0;
    virtual std::list<std::wstring> GetAllQueueEntryIds(std::wstring holdDevId) = 0;
    virtual std::list<std::wstring> GetAllQueueEntryIDs() = 0;
    virtual std::list<std::wstring> GetTicketRecords(std::wstring holdDevId, int state) = 0;
    virtual bool RestoreState(std::wstring qentryId) = 0;
    virtual bool SetJDFState(std::wstring qentryId, int state) = 0;
    virtual bool GetJDFState(std::wstring qentryId, int& state) = 0;
    virtual bool IsJobPresent(const std::wstring& jobId, const std::wstring& jobPartId, const std::wstring& senderId,
                              std::wstring& qentryId) = 0;
    virtual bool GetRecords(std::list<std::wstring>& qentryIds, int sendStatus) = 0;
    virtual bool Update_JDFSendStatus(std::wstring& qentryId, int sendStatus) = 0;
    virtual ~ITicketDataProvider() {}
};

#endif
