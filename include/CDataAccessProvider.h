#ifndef NORVA_CDATAACCESSPROVIDER_H
#define NORVA_CDATAACCESSPROVIDER_H

#include "IContentDataProvider.h"
#include "IDeviceDataProvider.h"
#include "IJobSenderDataProvider.h"
#include "IServerDataProvider.h"
#include "IStatusSubDataProvider.h"
#include "ITicketDataProvider.h"

/// The facade: one instance, created on first use, owning the six providers.
/// Make the first GetInstance call before sharing it between threads.
class CDataAccessProvider {
public:
    /// The facade of the process, created on the first call with its six
    /// providers, which create the store and its connection (configuration is
    /// read then: DBIPAddr, IDPattern, Profile, Connections; the job-sender
    /// provider reads ./QueryURL). A server that cannot be reached is not an
    /// error here: it is logged, and the providers' operations fail. Never null.
    static CDataAccessProvider* GetInstance();

    /// Builds the six providers; use GetInstance() instead.
    CDataAccessProvider();
    /// Deletes the providers; onlyObjectP is left as it is.
    ~CDataAccessProvider();
    /// Not copyable.
    CDataAccessProvider(const CDataAccessProvider&) = delete;
    CDataAccessProvider& operator=(const CDataAccessProvider&) = delete;

    /// Queue entries and JDF tickets; owned by the facade, never null.
    ITicketDataProvider* GetTicketDataProvider();
    /// Output devices; owned by the facade, never null.
    IDeviceDataProvider* GetDeviceDataProvider();
    /// Status subscriptions; owned by the facade, never null.
    IStatusSubDataProvider* GetStatusSubDataProvider();
    /// Content files; owned by the facade, never null.
    IContentDataProvider* GetContentDataProvider();
    /// Servers of the devices; owned by the facade, never null.
    IServerDataProvider* GetServerDataProvider();
    /// Query-id/URL pairs of ./QueryURL; owned by the facade, never null.
    IJobSenderDataProvider* GetJobSenderDataProvider();

    /// The instance GetInstance() hands out; null before the first call.
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
