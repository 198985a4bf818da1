#ifndef NORVA_CDATAACCESSPROVIDER_H
#define NORVA_CDATAACCESSPROVIDER_H

#include "IContentDataProvider.h"
#include "IDeviceDataProvider.h"
#include "IJobSenderDataProvider.h"
#include "IServerDataProvider.h"
#include "IStatusSubDataProvider.h"
#include "ITicketDataProvider.h"

// The facade: one instance, created on first use, owning the six providers.
// Make the first GetInstance call before sharing it between threads.
class CDataAccessProvider {
public:
    static CDataAccessProvider* GetInstance();

    CDataAccessProvider();
    ~CDataAccessProvider();
    CDataAccessProvider(const CDataAccessProvider&) = delete;
    CDataAccessProvider& operator=(const CDataAccessProvider&) = delete;

    ITicketDataProvider* GetTicketDataProvider();
    IDeviceDataProvider* GetDeviceDataProvider();
    IStatusSubDataProvider* GetStatusSubDataProvider();
    IContentDataProvider* GetContentDataProvider();
    IServerDataProvider* GetServerDataProvider();
    IJobSenderDataProvider* GetJobSenderDataProvider();

    static CDataAccessProvider* onlyObjectP;

private:
    ITicketDataProvider* m_pTicketDataProvider;
    IDeviceDataProvider* m_pDeviceDataProvider;
    IStatusSubDataProvider* m_pStatusSubDataProvider;
    IContentDataProvider* m_pContentDataProvider;
    IServerDataProvider* m_pServerDataProvider;
    IJobSenderDataProvider* m_pJobSenderDataProvider;
};

#endif
