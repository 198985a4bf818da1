#ifndef NORVA_ISERVERDATAPROVIDER_H
#define NORVA_ISERVERDATAPROVIDER_H

#include <string>
#include <vector>

#include "ServerTableRecord.h"

/// @file
/// Servers that devices belong to (table SERVER).

/// Servers that output devices belong to (table SERVER), keyed by an int id.
/// Take it from CDataAccessProvider::GetServerDataProvider().
///
/// `false` means an id of -1, no single matching row, or a failed statement
/// (reason in the log, level 5). In the `exact` profile single-column writes
/// report `true` even for an unknown id.
class IServerDataProvider {
public:
    /// Nothing to set up.
    IServerDataProvider() {}
    /// Adds a server: generates its id (configuration key IDPattern), stores
    /// it in `rec->SERVERID`, inserts the row and writes the set fields until
    /// one write fails.
    virtual bool AddServer(CServerRecord* rec) = 0;
    /// Deletes a server unless devices still refer to it. A server that stays
    /// because of its devices also gives `true`: check with GetServerRecord.
    virtual bool DeleteServer(int serverId) = 0;
    /// Writes every set field; the last write's result counts (`false` when
    /// nothing was set).
    virtual bool UpdateServerRecord(int serverId, const ServerTableRecord& rec) = 0;
    /// Reads the login name and password of the server (stored in plain text).
    virtual bool GetLoginInfo(int serverId, std::wstring& loginName, std::wstring& password) = 0;
    /// Writes the state.
    virtual bool UpdateServerState(int serverId, int state) = 0;
    /// Reads the whole row into `*out` (which must not be null).
    virtual bool GetServerRecord(int serverId, CServerRecord* out) = 0;
    /// The id of the server with this computer name and type, also stored in
    /// `serverId`; -1 when there is none. Of several, the last result row wins.
    virtual int IsServerAndServerTypeExists(std::wstring compName, int serverType, int& serverId) = 0;
    /// Appends every server, in reverse result order.
    virtual bool GetServerRecords(std::vector<ServerTableRecord>& out) = 0;
    /// Nothing to release.
    virtual ~IServerDataProvider() {}
};

#endif
