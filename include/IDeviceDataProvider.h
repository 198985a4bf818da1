#ifndef NORVA_IDEVICEDATAPROVIDER_H
#define NORVA_IDEVICEDATAPROVIDER_H

#include <list>
#include <string>
#include <vector>

#include "DeviceTableRecord.h"

/// @file
/// Output devices (table DEVICE).

/// Output devices (table DEVICE), keyed by the caller's device id text. Take
/// it from CDataAccessProvider::GetDeviceDataProvider().
///
/// `false` means an empty device id, no single matching row, or a failed
/// statement (reason in the log, level 5). In the `exact` profile
/// single-column writes and reads report `true` even for an unknown device.
class IDeviceDataProvider {
public:
    /// Nothing to set up.
    IDeviceDataProvider() {}
    /// Adds a device under `rec->deviceId` (which must be set; no id is
    /// generated) and writes the set fields until one write fails; what was
    /// written stays. In the `exact` profile a number of -2 is written, while
    /// negative condition codes and operation modes are skipped, and
    /// `lastUpdateTime` is not written.
    virtual bool AddDevice(CDeviceRecord* rec) = 0;
    /// Deletes the device row.
    virtual bool DeleteDevice(const std::wstring& devId) = 0;
    /// Writes every set field; the last write's result counts (`true` when
    /// nothing was set).
    virtual bool UpdateDeviceRecord(const std::wstring& devId, const DeviceTableRecord& rec) = 0;
    /// Sets `*valid` to `true` when the device has a server id; never sets it
    /// to `false`, so initialise it. The result is that of the read.
    virtual bool IsDeviceIDValid(const std::wstring& devId, bool* valid) = 0;
    /// Reads the whole row into `*rec`, which must not be null (a null
    /// pointer aborts the process). `reservedInt` and `reservedText` are left
    /// as they were.
    virtual bool GetDeviceRecord(const std::wstring& devId, CDeviceRecord* rec) = 0;
    /// Appends the devices of a server in result order; `false` for -1.
    virtual bool GetDeviceRecordsConnectedToServer(int serverId, std::vector<DeviceTableRecord>& out) = 0;
    /// Does nothing and gives `false`; use the overload taking a const reference.
    virtual bool UpdateDeviceRecord(const std::wstring& devId, CDeviceRecord* rec) = 0;
    /// The id of the device with this server and index (both 1 or more),
    /// cleared first. The two numbers are compared as one-character texts
    /// whose character code is the number, so ordinary rows never match; and
    /// the process aborts (assertion "nRecCnt == 1") unless exactly one row
    /// does. Prefer GetDeviceRecordsConnectedToServer.
    virtual bool GetDeviceID(int serverId, int devIndex, std::wstring& devId) = 0;
    /// The device's server id, -1 for an unknown device.
    virtual int GetServerId(std::wstring& devId) = 0;
    /// Reads the device's capabilities (a long text), left as it was when NULL.
    virtual bool GetDevCaps(const std::wstring& devId, std::wstring& caps) = 0;
    /// Every device id, in reverse result order; empty when the server cannot
    /// be reached.
    virtual std::list<std::wstring> GetAllDeviceIds() = 0;
    /// Nothing to release.
    virtual ~IDeviceDataProvider() {}
};

#endif
