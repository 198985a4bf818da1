#ifndef NORVA_PRIVATE_CONNECTOPTIONS_H
#define NORVA_PRIVATE_CONNECTOPTIONS_H

#include <cppconn/connection.h>
#include <cppconn/driver.h>

#include <string>
#include <vector>

#include "private/StoreSettings.h"

// The connector's options for one connection to `host`: every connection the
// library and the norva tool make is opened with these. With DBUser set, its
// account and password replace `user` and `password`.
sql::ConnectOptionsMap ConnectOptions(const StoreSettings& settings, const std::string& host,
                                      const std::string& user, const std::string& password);

// Checks that a connection just opened with ConnectOptions is encrypted when
// DBTLS asks for it, before any statement of the caller runs on it. Empty
// when it may be used; otherwise why not.
std::string CheckTransport(sql::Connection& connection, const StoreSettings& settings);

// Opens one connection to `host` with ConnectOptions and CheckTransport; the
// caller owns it. Throws sql::SQLException when it cannot be had: settings
// with problems (each named, nothing sent), the connector's own refusal (a
// TLS failure names DBTLS), or a session CheckTransport refuses (closed first).
sql::Connection* OpenConnection(sql::Driver& driver, const StoreSettings& settings, const std::string& host,
                                const std::string& user, const std::string& password);

// False when the connector may not reconnect a lost connection by itself
// (it would skip CheckTransport): the caller opens a new one instead.
bool ConnectorReconnects(const StoreSettings& settings);

// Lines to log once when connections are first made: settings that work but
// expose the traffic (the safe profile sending in clear text beyond this machine).
std::vector<std::string> ConnectionWarnings(const StoreSettings& settings);

// What the server behind a new or idle connection is.
enum class SessionNode {
    Plain,     // no cluster node (or not asked: one host in the exact profile)
    Synced,    // a cluster node that may take statements
    NotSynced  // a cluster node that is not ready, a donor, desynced or joining: not to be used
};

// Sets up the session of a connection after connect, and again on a
// connection that has been idle. Asks the server whether it is a Galera
// node and whether that node is synced (wsrep_ready ON, wsrep_local_state 4)
// when there are several hosts to choose from, or in the safe profile. In
// the safe profile, the session's sql_mode and character set are pinned, so
// that statements mean what the library intends whatever the server's global
// settings, and reads on a synced node wait until it has applied every
// write the cluster committed before them (wsrep_sync_wait), so a read sees
// the writes that came before it, made through any node. Also run on a
// connection the connector opened again by itself. Throws the connector's
// exception when the server does not answer.
SessionNode PrepareSession(sql::Connection& connection, const StoreSettings& settings, bool severalHosts);

#endif
