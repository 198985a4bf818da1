#ifndef NORVA_CDEVICEDATAPROVIDER_H
#define NORVA_CDEVICEDATAPROVIDER_H

#include "IDeviceDataProvider.h"

class dl_MainInterface;
class Logger;

/// Output devices (table DEVICE).
class CDeviceDataProvider : public IDeviceDataProvider {
public:
    /// Takes the generic store (creating it, and its connection, on first use)
    /// and the logger.
    CDeviceDataProvider();
    /// Releases nothing: the store outlives the provider.
    ~CDeviceDataProvider() override;

    bool AddDevice(CDeviceRecord* rec) override;
    bool DeleteDevice(const std::wstring& devId) override;
    bool UpdateDeviceRecord(const std::wstring& devId, const DeviceTableRecord& rec) override;
    bool IsDeviceIDValid(const std::wstring& devId, bool* valid) override;
    bool GetDeviceRecord(const std::wstring& devId, CDeviceRecord* rec) override;
    bool GetDeviceRecordsConnectedToServer(int serverId, std::vector<DeviceTableRecord>& out) override;
    bool UpdateDeviceRecord(const std::wstring& devId, CDeviceRecord* rec) override;
    bool GetDeviceID(int serverId, int devIndex, std::wstring& devId) override;
    int GetServerId(std::wstring& devId) override;
    bool GetDevCaps(const std::wstring& devId, std::wstring& caps) override;
    std::list<std::wstring> GetAllDeviceIds() override;

    /// `true` when at least one device refers to the server (used by
    /// IServerDataProvider::DeleteServer); `false` for -1 or a failed statement.
    bool IsDevicePresentForServer(int serverId);

private:
    dl_MainInterface* m_pDatabase;
    Logger* m_pLogger;
};

#endif
