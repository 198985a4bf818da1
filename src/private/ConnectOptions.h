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

// Sets up a new session (a new connection, or one the connector opened again
// by itself) before statements run on it. The safe profile pins sql_mode and
// the character set, so that its statements mean what it intends whatever
// the server's global settings; the exact profile leaves the session as the
// server made it. Throws the connector's exception when the server refuses.
void PrepareSession(sql::Connection& connection, const StoreSettings& settings);

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

#endif
