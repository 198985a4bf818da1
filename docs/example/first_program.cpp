// A first host program: registers a device, reads it back, lists the queue
// entries it holds and removes it again. The database host comes from
// ./norva.conf (DBIPAddr), like every setting of the library.
#include <norvadatalayer.h>

#include <cstdio>

int main() {
    IDeviceDataProvider* devices = CDataAccessProvider::GetInstance()->GetDeviceDataProvider();
    DeviceTableRecord device;                 // every field starts "not set"
    device.deviceId = L"first-press";
    device.displayName = L"First press";
    if (!devices->AddDevice(&device)) {
        std::puts("cannot add the device (see the log)");
        return 1;
    }

    DeviceTableRecord back;
    devices->GetDeviceRecord(L"first-press", &back);
    std::printf("%ls is called %ls\n", back.deviceId.c_str(), back.displayName.c_str());
    ITicketDataProvider* tickets = CDataAccessProvider::GetInstance()->GetTicketDataProvider();
    std::printf("it holds %zu queue entries\n", tickets->GetAllQueueEntryIds(L"first-press").size());
    return devices->DeleteDevice(L"first-press") ? 0 : 1;
}
