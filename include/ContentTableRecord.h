#ifndef NORVA_CONTENTTABLERECORD_H
#define NORVA_CONTENTTABLERECORD_H

#include <string>

#include "TimeStamp.h"

// One content file of a queue entry (table CONTENT).
struct ContentTableRecord {
    int contentId = -1;
    std::wstring runId;
    std::wstring qentryId;
    std::wstring remoteUrl;
    std::wstring cacFilePath;
    int cacheStat = -1;
    std::wstring displayName;
    int nPages = 0;
    std::wstring fileType;
    TimeStamp cacheDate{0};
    TimeStamp lastModDate{0};
    std::wstring previewRemoteUrl;
    std::wstring previewCacFilePath;
};
typedef ContentTableRecord CContentRecord;

#endif
