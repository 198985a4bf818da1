#include "CDataAccessProvider.h"

#include "CContentDataProvider.h"
#include "CDeviceDataProvider.h"
#include "CJobSenderDataProvider.h"
#include "CServerDataProvider.h"
#include "CStatusSubDataProvider.h"
#include "CTicketDataProvider.h"

CDataAccessProvider* CDataAccessProvider::onlyObjectP = nullptr;

// Not synchronised: the first call must happen before the facade is shared
// between threads. A constructor that throws leaves onlyObjectP null (the
// new-expression frees the memory).
CDataAccessProvider* CDataAccessProvider::GetInstance() {
    if (onlyObjectP == nullptr) onlyObjectP = new CDataAccessProvider();
    return onlyObjectP;
}

// Each pointer is stored as soon as its provider is built. A provider whose
// constructor throws is freed by its new-expression and the exception
// propagates; those built before it are not released.
CDataAccessProvider::CDataAccessProvider()
    : m_pTicketDataProvider(nullptr),
      m_pDeviceDataProvider(nullptr),
      m_pStatusSubDataProvider(nullptr),
      m_pContentDataProvider(nullptr),
      m_pServerDataProvider(nullptr),
      m_pJobSenderDataProvider(nullptr) {
    m_pTicketDataProvider = new CTicketDataProvider();
    m_pDeviceDataProvider = new CDeviceDataProvider();
    m_pStatusSubDataProvider = new CStatusSubDataProvider();
    m_pContentDataProvider = new CContentDataProvider();
    m_pServerDataProvider = new CServerDataProvider();
    m_pJobSenderDataProvider = new CJobSenderDataProvider();
}

// Same order as construction. Neither the pointers nor onlyObjectP are reset.
CDataAccessProvider::~CDataAccessProvider() {
    if (m_pTicketDataProvider) delete m_pTicketDataProvider;
    if (m_pDeviceDataProvider) delete m_pDeviceDataProvider;
    if (m_pStatusSubDataProvider) delete m_pStatusSubDataProvider;
    if (m_pContentDataProvider) delete m_pContentDataProvider;
    if (m_pServerDataProvider) delete m_pServerDataProvider;
    if (m_pJobSenderDataProvider) delete m_pJobSenderDataProvider;
}

ITicketDataProvider* CDataAccessProvider::GetTicketDataProvider() { return m_pTicketDataProvider; }
IDeviceDataProvider* CDataAccessProvider::GetDeviceDataProvider() { return m_pDeviceDataProvider; }
IStatusSubDataProvider* CDataAccessProvider::GetStatusSubDataProvider() { return m_pStatusSubDataProvider; }
IContentDataProvider* CDataAccessProvider::GetContentDataProvider() { return m_pContentDataProvider; }
IServerDataProvider* CDataAccessProvider::GetServerDataProvider() { return m_pServerDataProvider; }
IJobSenderDataProvider* CDataAccessProvider::GetJobSenderDataProvider() { return m_pJobSenderDataProvider; }
