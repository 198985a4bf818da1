#ifndef NORVA_DEVICETABLERECORD_H
#define NORVA_DEVICETABLERECORD_H

#include <string>

#include "TimeStamp.h"

// One output device (table DEVICE). reservedInt and reservedText are
// carried for callers and never stored.
struct DeviceTableRecord {
    int serverId = -1;
    std::wstring deviceId;
    int reservedInt = -1;
    std::wstring devCaps;
    std::wstring subUrl;
    int devIndex = -1;
    std::wstring interName;
    std::wstring displayName;
    int status = -1;
    std::wstring statusMsg;
    std::wstring devCondition;
    int conditionCode = -1;
    int deviceOpMode = -1;
    TimeStamp lastUpdateTime{0};
    std::wstring reservedText;
};
typedef DeviceTableRecord CDeviceRecord;

#endif
