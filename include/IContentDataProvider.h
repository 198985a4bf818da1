#ifndef NORVA_ICONTENTDATAPROVIDER_H
#define NORVA_ICONTENTDATAPROVIDER_H

#include <string>
#include <vector>

#include "ContentTableRecord.h"

/// @file
/// Content files of queue entries (table CONTENT).

/// Content files of queue entries (table CONTENT), keyed by an int id. Take
/// it from CDataAccessProvider::GetContentDataProvider().
///
/// `false` means an id of -1, an empty queue entry id, no single matching
/// row, or a failed statement (reason in the log, level 5).
class IContentDataProvider {
public:
    /// Nothing to set up.
    IContentDataProvider() {}
    /// The id of the content with this queue entry and run id. The process
    /// aborts (assertion "nRecCnt == 1") unless exactly one row matches, so
    /// only ask for content known to exist once (use GetRecords otherwise).
    virtual int GetContentId(const std::wstring& qentryId, const std::wstring& runId) = 0;
    /// Adds a content file: generates its id (configuration key IDPattern),
    /// stores it in `rec->contentId`, and writes the set fields until one
    /// write fails. Cache paths are stored with forward slashes; the
    /// caller's record keeps its own text.
    virtual bool AddRecord(CContentRecord* rec) = 0;
    /// Deletes one content row.
    virtual bool DeleteRecord(int contentId) = 0;
    /// Reads the whole row into `*rec`, which must not be null (a null
    /// pointer aborts the process).
    virtual bool GetRecord(int contentId, CContentRecord* rec) = 0;
    /// Appends the content rows of a queue entry; `false` for an empty id.
    virtual bool GetRecords(const std::wstring& qentryId, std::vector<ContentTableRecord>& out) = 0;
    /// Writes every set field (paths as they stand); the last write's result
    /// counts, `false` when nothing was set.
    virtual bool UpdateRecord(int contentId, const ContentTableRecord& rec) = 0;
    /// Nothing to release.
    virtual ~IContentDataProvider() {}
};

#endif
