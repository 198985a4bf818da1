#ifndef NORVA_IJOBSENDERDATAPROVIDER_H
#define NORVA_IJOBSENDERDATAPROVIDER_H

#include <string>

#include "CJobSenderData.h"

/// @file
/// Query id / sender URL pairs.

/// Query id / sender URL pairs. They live in memory and in the ticket file
/// `./QueryURL` of the working directory (not in the database), read once
/// when the facade is created and rewritten on every change. Take it from
/// CDataAccessProvider::GetJobSenderDataProvider(); it has a lock of its own.
class IJobSenderDataProvider {
public:
    /// Nothing to set up.
    IJobSenderDataProvider() {}
    /// Adds a pair and appends it to the file; an equal pair already kept
    /// writes nothing.
    virtual void AddRecord(CJobSenderData& data) = 0;
    /// Removes the pair with this URL from memory, and from the file the
    /// entry with `data.queryId`. `false` when no pair has the URL.
    virtual bool DeleteRecord(CJobSenderData& data) = 0;
    /// The pair with this URL; `false` when there is none.
    virtual bool GetRecord(std::wstring url, CJobSenderData& out) = 0;
    /// The pair with this query id; `false` when there is none.
    virtual bool GetRecordByQueryId(std::wstring queryId, CJobSenderData& out) = 0;
    /// Nothing to release.
    virtual ~IJobSenderDataProvider() {}
};

#endif
