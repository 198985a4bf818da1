#ifndef NORVA_PRIVATE_CONNECTOPTIONS_H
#define NORVA_PRIVATE_CONNECTOPTIONS_H

#include <cppconn/connection.h>

#include <string>

#include "private/StoreSettings.h"

// The connector's options for one connection to `host`: every connection the
// library and the norva tool make is opened with these.
sql::ConnectOptionsMap ConnectOptions(const StoreSettings& settings, const std::string& host,
                                      const std::string& user, const std::string& password);

// Sets up a new session (a new connection, or one the connector opened again
// by itself) before statements run on it. The safe profile pins sql_mode and
// the character set, so that its statements mean what it intends whatever
// the server's global settings; the exact profile leaves the session as the
// server made it. Throws the connector's exception when the server refuses.
void PrepareSession(sql::Connection& connection, const StoreSettings& settings);

#endif
