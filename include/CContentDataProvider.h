#ifndef NORVA_CCONTENTDATAPROVIDER_H
#define NORVA_CCONTENTDATAPROVIDER_H

#include "DataLayerTypes.h"
#include "IContentDataProvider.h"

class dl_MainInterface;
class Logger;

/// Content files of queue entries (table CONTENT).
class CContentDataProvider : public IContentDataProvider {
public:
    /// Takes the generic store (creating it, and its connection, on first use)
    /// and the logger.
    CContentDataProvider();
    /// Releases nothing: the store outlives the provider.
    ~CContentDataProvider() override;

    int GetContentId(const std::wstring& qentryId, const std::wstring& runId) override;
    bool AddRecord(CContentRecord* rec) override;
    bool DeleteRecord(int contentId) override;
    bool GetRecord(int contentId, CContentRecord* rec) override;
    bool GetRecords(const std::wstring& qentryId, std::vector<ContentTableRecord>& out) override;
    bool UpdateRecord(int contentId, const ContentTableRecord& rec) override;

private:
    dl_MainInterface* m_pDatabase;
    TICKET_TYPE_NV m_tableType;
    Logger* m_pLogger;
};

#endif
