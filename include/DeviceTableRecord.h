#ifndef NORVA_DEVICETABLERECORD_H
#define NORVA_DEVICETABLERECORD_H

#include <string>

#include "TimeStamp.h"

/// One output device (table DEVICE). reservedInt and reservedText are
/// carried for callers and never stored.
struct DeviceTableRecord {
    int serverId = -1;  ///< SERVERID: the server the device belongs to
    std::wstring deviceId;  ///< DEVICEID: the key, chosen by the caller
    int reservedInt = -1;  ///< not stored
    std::wstring devCaps;  ///< DEVCAPS: the device capabilities (long text)
    std::wstring subUrl;  ///< SUBURL: subscription URL of the device
    int devIndex = -1;  ///< DEVINDEX: index of the device at its server
    std::wstring interName;  ///< INTERNAME: internal name
    std::wstring displayName;  ///< DISPLAYNAME: name shown to people
    int status = -1;  ///< STATUS: status number
    std::wstring statusMsg;  ///< STATUSMSG: status message
    std::wstring devCondition;  ///< DEVCONDITION: condition text
    int conditionCode = -1;  ///< CONDITION: condition number; negative values are never written
    int deviceOpMode = -1;  ///< DEVICEOPMODE: operation mode; negative values are never written
    TimeStamp lastUpdateTime{0};  ///< LASTUPDATETIME (exact profile: neither written nor read)
    std::wstring reservedText;  ///< not stored
};
/// The name older hosts use.
typedef DeviceTableRecord CDeviceRecord;

#endif
