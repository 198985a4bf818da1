#ifndef NORVA_TICKETTABLERECORD_H
#define NORVA_TICKETTABLERECORD_H

#include <string>

#include "TimeStamp.h"

// One queue entry (table JDFTICKET). Unset fields: empty string, -1, TimeStamp(0).
struct TicketTableRecord {
    std::wstring previewCachedFilePath;
    std::wstring previewRemoteUrl;
    std::wstring qentryId;
    std::wstring jdf;
    std::wstring holdDevId;
    std::wstring jmfRetUrl;
    std::wstring uploadUrl;
    std::wstring senderId;
    TimeStamp subTime{0};
    TimeStamp lastUpdateTime{0};
    std::wstring qsubsParams;
    std::wstring statusMsg;
    int status = -1;
    int state = -1;
    std::wstring jobId;
    std::wstring jobPartId;
};
typedef TicketTableRecord CTicketRecord;

#endif
