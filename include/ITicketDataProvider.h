#ifndef NORVA_ITICKETDATAPROVIDER_H
#define NORVA_ITICKETDATAPROVIDER_H

#include <list>
#include <string>

#include "TicketTableRecord.h"

/// @file
/// Queue entries and their JDF tickets (table JDFTICKET).

/// Queue entries and their JDF tickets (table JDFTICKET), keyed by the
/// queue entry id. Take it from CDataAccessProvider::GetTicketDataProvider().
///
/// Results: `false` means the statement failed, the key was empty or no
/// single row matched; the reason is only in the log (level 5, see Logger).
/// In the `exact` profile (configuration key Profile) a write of a single
/// column reports `true` even when no row has the key or the server refused
/// it; the `safe` profile reports what the server did. Multi-record reads log
/// "Before ExecuteQuery() from CTicketDataProvider::<operation>" and
/// "Returned from ExecuteQuery() Inside CTicketDataProvider::<operation>".
/// Safe to call from several threads once the facade exists.
class ITicketDataProvider {
public:
    /// Nothing to set up.
    ITicketDataProvider() {}
    /// Adds a queue entry. The key is generated here (sequential or lowest
    /// free number, configuration key IDPattern) and written into
    /// `rec->qentryId`; a record that brings its own key is refused (`false`,
    /// nothing written). The row is inserted, then the JDF, then every other
    /// set field in turn, stopping at the first failed write (what was written
    /// stays). In the `exact` profile a status of -2 is written (only -1
    /// means "not set") and time stamps are not written.
    virtual bool AddTicket(CTicketRecord* rec) = 0;
    /// Reads the whole row into `*rec` (which must not be null). `false` for
    /// an empty key or when not exactly one row has it. `lastUpdateTime` is
    /// filled from SUBTIME, not LASTUPDATETIME; in the `exact` profile both
    /// time stamps stay "not set".
    virtual bool GetTicketRecord(const std::wstring& qentryId, CTicketRecord* rec) = 0;
    /// Deletes the row (logs "Inside CTicketDataProvider::RemoveTicket").
    /// Content and subscription rows of the entry are not touched.
    virtual bool RemoveTicket(const std::wstring& qentryId) = 0;
    /// Writes every set field of `rec` to the row `qentryId`, one statement
    /// per column; the result is that of the last write (`false` when nothing
    /// was set). In the `exact` profile the JDF and subscription parameter
    /// fields store the bytes of an internal record instead of their text, as
    /// they always have: replace the ticket with UpdateJDF.
    virtual bool UpdateTicketRecord(const std::wstring& qentryId, const TicketTableRecord& rec) = 0;
    /// Reads the JDF ticket into `jdf`, which is left as it was when the
    /// column is NULL. `true` also for an unknown key in the `exact` profile.
    virtual bool GetJDF(const std::wstring& qentryId, std::wstring& jdf) = 0;
    /// Replaces the JDF ticket in one statement; `false` for an empty text.
    /// Tickets near 16 MB need the server's max_allowed_packet raised.
    virtual bool UpdateJDF(const std::wstring& qentryId, const std::wstring& jdf) = 0;
    /// Reads the id of the device holding the entry (at most 1023 characters).
    virtual bool GetHoldDeviceID(const std::wstring& qentryId, std::wstring& devId) = 0;
    /// Reads the sender id of the entry.
    virtual bool GetSenderID(const std::wstring& qentryId, std::wstring& senderId) = 0;
    /// Reads the status number; `status` is left as it was for an unknown key.
    virtual bool GetTicketStatus(const std::wstring& qentryId, int& status) = 0;
    /// Writes the status number.
    virtual bool UpdateTicketStatus(const std::wstring& qentryId, int status) = 0;
    /// Reads the status message.
    virtual bool GetTicketStatusMsg(const std::wstring& qentryId, std::wstring& msg) = 0;
    /// Writes the status message; `false` for an empty key.
    virtual bool UpdateTicketStatusMsg(const std::wstring& qentryId, const std::wstring& msg) = 0;
    /// Finds the entry of a job sent by a sender: `true` with its key and job
    /// part when exactly one row has this JOBID and SENDERID; `false` for an
    /// empty job or sender id, or no or several matches.
    virtual bool GetQentryID(const std::wstring& jobId, const std::wstring& senderId, std::wstring& jobPartId,
                             std::wstring& qentryId) = 0;
    /// Keys of the entries held by a device, last result row first.
    virtual std::list<std::wstring> GetAllQueueEntryIds(std::wstring holdDevId) = 0;
    /// Keys of all entries, last result row first; empty when the server
    /// cannot be reached.
    virtual std::list<std::wstring> GetAllQueueEntryIDs() = 0;
    /// Keys of the entries held by a device in one state, last row first.
    virtual std::list<std::wstring> GetTicketRecords(std::wstring holdDevId, int state) = 0;
    /// Moves the state saved by the last SetJDFState (PREVSTATE) back into STATE.
    virtual bool RestoreState(std::wstring qentryId) = 0;
    /// Sets the state, first saving the current one in PREVSTATE (one level
    /// of undo, see RestoreState). Three statements, not atomic: two threads
    /// changing one entry can interleave.
    virtual bool SetJDFState(std::wstring qentryId, int state) = 0;
    /// Reads the state; `state` is left as it was for an unknown key.
    virtual bool GetJDFState(std::wstring qentryId, int& state) = 0;
    /// `true` with the key when exactly one entry has this job (and job part,
    /// when not empty) from this sender.
    virtual bool IsJobPresent(const std::wstring& jobId, const std::wstring& jobPartId, const std::wstring& senderId,
                              std::wstring& qentryId) = 0;
    /// Appends the keys of the entries whose JDF send status is `sendStatus`,
    /// last row first (logs the GetTicketRecords lines).
    virtual bool GetRecords(std::list<std::wstring>& qentryIds, int sendStatus) = 0;
    /// Writes the JDF send status (whether the JDF has been sent on).
    virtual bool Update_JDFSendStatus(std::wstring& qentryId, int sendStatus) = 0;
    /// Nothing to release.
    virtual ~ITicketDataProvider() {}
};

#endif
