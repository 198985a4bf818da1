#ifndef NORVA_IDEVICEDATAPROVIDER_H
#define NORVA_IDEVICEDATAPROVIDER_H

#include <list>
#include <string>
#include <vector>

#include "DeviceTableRecord.h"

class IDeviceDataProvider {
public:
    IDeviceDataProvider() {}
    virtual bool AddDevice(CDeviceRecord* rec) = 0;
    virtual bool DeleteDevice(const std::wstring& devId) = 0;
    virtual bool UpdateDeviceRecord(const std::wstring& devId, const DeviceTableRecord& rec) = 0;
    virtual bool IsDeviceIDValid(const std::wstring& devId, bool* valid) = 0;
    virtual bool GetDeviceRecord(const std::wstring& devId, CDeviceRecord* rec) = 0;
    virtual bool GetDeviceRecordsConnectedToServer(int serverId, std::vector<DeviceTableRecord>& out) = 0;
    virtual bool UpdateDeviceRecord(const std::wstring& devId, CDeviceRecord* rec) = 0;
    virtual bool GetDeviceID(int serverId, int devIndex, std::wstring& devId) = 0;
    virtual int GetServerId(std::wstring& devId) = 0;
    virtual bool GetDevCaps(const std::wstring& devId, std::wstring& caps) = 0;
    virtual std::list<std::wstring> GetAllDeviceIds() = 0;
    virtual ~IDeviceDataProvider() {}
};

#endif
