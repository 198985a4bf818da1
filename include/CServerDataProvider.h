#ifndef NORVA_CSERVERDATAPROVIDER_H
#define NORVA_CSERVERDATAPROVIDER_H

#include "DataLayerTypes.h"
#include "IServerDataProvider.h"

class dl_MainInterface;
class Logger;

/// Servers that devices belong to (table SERVER).
class CServerDataProvider : public IServerDataProvider {
public:
    /// Takes the generic store (creating it, and its connection, on first use)
    /// and the logger.
    CServerDataProvider();
    /// Releases nothing: the store outlives the provider.
    ~CServerDataProvider() override;

    bool AddServer(CServerRecord* rec) override;
    bool DeleteServer(int serverId) override;
    bool UpdateServerRecord(int serverId, const ServerTableRecord& rec) override;
    bool GetLoginInfo(int serverId, std::wstring& loginName, std::wstring& password) override;
    bool UpdateServerState(int serverId, int state) override;
    bool GetServerRecord(int serverId, CServerRecord* out) override;
    int IsServerAndServerTypeExists(std::wstring compName, int serverType, int& serverId) override;
    bool GetServerRecords(std::vector<ServerTableRecord>& out) override;

    /// Number of servers (0 when the statement failed).
    int GetRecordCount();

private:
    dl_MainInterface* m_pDatabase;
    TICKET_TYPE_NV m_tableType;
    Logger* m_pLogger;
};

#endif
