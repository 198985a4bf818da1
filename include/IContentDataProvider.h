#ifndef NORVA_ICONTENTDATAPROVIDER_H
#define NORVA_ICONTENTDATAPROVIDER_H

#include <string>
#include <vector>

#include "ContentTableRecord.h"

class IContentDataProvider {
public:
    IContentDataProvider() {}
    virtual int GetContentId(const std::wstring& qentryId, const std::wstring& runId) = 0;
    virtual bool AddRecord(CContentRecord* rec) = 0;
    virtual bool DeleteRecord(int contentId) = 0;
    virtual bool GetRecord(int contentId, CContentRecord* rec) = 0;
    virtual bool GetRecords(const std::wstring& qentryId, std::vector<ContentTableRecord>& out) = 0;
    virtual bool UpdateRecord(int contentId, const ContentTableRecord& rec) = 0;
    virtual ~IContentDataProvider() {}
};

#endif
