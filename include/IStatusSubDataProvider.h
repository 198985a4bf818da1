#ifndef NORVA_ISTATUSSUBDATAPROVIDER_H
#define NORVA_ISTATUSSUBDATAPROVIDER_H

#include <string>
#include <vector>

#include "StatusSubTableRecord.h"

/// @file
/// JMF status subscriptions (table STATSSUBS).

/// JMF status subscriptions (table STATSSUBS), keyed by an int id. Take it
/// from CDataAccessProvider::GetStatusSubDataProvider().
///
/// `false` means an invalid id (-1), an empty required text, or a failed
/// statement (reason in the log, level 5). The readers append to `out` and
/// answer `true` even when the statement failed (then nothing is appended);
/// they log "Before ExecuteQuery() from CStatusSubDataProvider::GetRecords"
/// and "Returned from ExecuteQuery() Inside CStatusSubDataProvider::GetRecords".
/// In the `exact` profile LASTUPDATE is neither written nor read; the schema
/// gives a new row the insertion time.
/// Note the slot order: GetRecord is declared after the destructor.
class IStatusSubDataProvider {
public:
    /// Nothing to set up.
    IStatusSubDataProvider() {}
    /// Adds a subscription: generates its id (configuration key IDPattern),
    /// stores it in `rec->ID`, inserts the row and writes the set fields
    /// until one write fails.
    virtual bool AddRecord(StatusSubTableRecord* rec) = 0;
    /// Deletes one subscription.
    virtual bool DeleteRecord(int id) = 0;
    /// Subscriptions matching the non-empty ones of queue entry, sender, job
    /// and job part, all of them (`matchAll`) or any; with all four empty,
    /// every subscription.
    virtual bool GetRecords(const std::wstring& qentryId, const std::wstring& senderId, const std::wstring& jobId,
                            const std::wstring& jobPartId, bool matchAll, std::vector<StatusSubTableRecord>& out) = 0;
    /// The time-driven subscriptions that are due: REPEATTIME set and
    /// LASTUPDATE not in the future (server time).
    virtual bool GetRecords(std::vector<StatusSubTableRecord>& out) = 0;
    /// Subscriptions whose last signal was sent (`true`) or not (`false`).
    virtual bool GetRecords(bool sendStatus, std::vector<StatusSubTableRecord>& out) = 0;
    /// Writes every set field; the last write's result counts, and SENDERID is
    /// written only while the writes before it succeeded.
    virtual bool UpdateRecord(int id, const StatusSubTableRecord& rec) = 0;
    /// Stores the last status signal sent; `false` for an empty signal.
    virtual bool UpdateLastStatusSignal(int id, const std::wstring& signal) = 0;
    /// Records whether the last signal reached the subscriber.
    virtual bool UpdateLastSigSendStatus(int id, bool sent) = 0;
    /// Stores the subscriber's response; `false` for an empty text.
    virtual bool UpdateResponse(int id, const std::wstring& response) = 0;
    /// `true` when the sender still needs a subscription. Mode 0: none exists
    /// for the record's queue entry and job (and job part when set); needs a
    /// job and sender id. Mode 1: no global subscription (queue entry "-1")
    /// of the sender at the device without job detail; other modes: with job
    /// detail. A global match found gives its id to `rec.ID`.
    virtual bool NeedStatusSubscription(StatusSubTableRecord& rec, int mode) = 0;
    /// Deletes the subscriptions to `pattern.URL` that also match every other
    /// identifying field the pattern sets (ref id, device, job, job part,
    /// queue entry, sender); `false` without a URL.
    virtual bool RemoveRecords(const StatusSubTableRecord& pattern) = 0;
    /// Number of subscriptions (0 when the statement failed).
    virtual bool GetRecordsCount(int& count) = 0;
    /// A device's subscriptions, narrowed by queue entry and sender when not
    /// empty, keeping those without job detail (`withoutJobDetail`) or those
    /// with it. Without a device id but with another value the statement is
    /// malformed and nothing is returned.
    virtual bool GetGlobalSubscriptionRecords(std::wstring deviceId, std::wstring qentryId,
                                              std::vector<StatusSubTableRecord>& out, bool withoutJobDetail,
                                              std::wstring senderId) = 0;
    /// Nothing to release.
    virtual ~IStatusSubDataProvider() {}
    /// The one subscription of a sender at a device; `false` unless exactly
    /// one row matches.
    virtual bool GetRecord(StatusSubTableRecord& out, std::wstring deviceId, std::wstring senderId) = 0;
};

#endif
