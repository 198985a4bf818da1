#ifndef NORVA_CJOBSENDERDATAPROVIDER_H
#define NORVA_CJOBSENDERDATAPROVIDER_H

#include <set>
#include <string>

#include "IJobSenderDataProvider.h"
#include "mutex.h"

class Logger;

/// Query id / sender URL pairs, kept in memory under a lock of their own and
/// written through to the ticket file "./QueryURL".
class CJobSenderDataProvider : public IJobSenderDataProvider {
public:
    /// Reads the pairs of ./QueryURL (logs "Initializing Sender Data Set" and
    /// "Got %d Records"); a missing file means none.
    CJobSenderDataProvider();
    /// Frees the pairs kept in memory.
    ~CJobSenderDataProvider() override;

    void AddRecord(CJobSenderData& data) override;
    bool DeleteRecord(CJobSenderData& data) override;
    bool GetRecord(std::wstring url, CJobSenderData& out) override;
    bool GetRecordByQueryId(std::wstring queryId, CJobSenderData& out) override;

    /// Adds the pairs of the file to those in memory; of duplicate pairs the
    /// later one is kept. `false` when the file cannot be read or lacks one of
    /// its two lists.
    bool InitializeSenderDataSet();
    /// Appends a pair to the file, or removes the entry with `queryId`
    /// (`remove`); `false` when the file cannot be written. Must be called
    /// with the lock held.
    bool SaveSenderDataSet(std::wstring queryId, std::wstring url, bool remove);

private:
    std::string m_path;
    std::set<CJobSenderData*, cmpp> m_dataSet;
    mutex m_mutex;
    Logger* m_pLogger;
};

#endif
