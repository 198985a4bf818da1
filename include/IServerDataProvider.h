#ifndef NORVA_ISERVERDATAPROVIDER_H
#define NORVA_ISERVERDATAPROVIDER_H

#include <string>
#include <vector>

#include "ServerTableRecord.h"

class IServerDataProvider {
public:
    IServerDataProvider() {}
    virtual bool AddServer(CServerRecord* rec) = 0;
    virtual bool DeleteServer(int serverId) = 0;
    virtual bool UpdateServerRecord(int serverId, const ServerTableRecord& rec) = 0;
    virtual bool GetLoginInfo(int serverId, std::wstring& loginName, std::wstring& password) = 0;
    virtual bool UpdateServerState(int serverId, int state) = 0;
    virtual bool GetServerRecord(int serverId, CServerRecord* out) = 0;
    virtual int IsServerAndServerTypeExists(std::wstring compName, int serverType, int& serverId) = 0;
    virtual bool GetServerRecords(std::vector<ServerTableRecord>& out) = 0;
    virtual ~IServerDataProvider() {}
};

#endif
