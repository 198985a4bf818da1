#ifndef NORVA_PRIVATE_CONNECTOPTIONS_H
#define NORVA_PRIVATE_CONNECTOPTIONS_H

#include <cppconn/connection.h>

#include <string>

#include "private/StoreSettings.h"

// The connector's options for one connection to `host`: every connection the
// library and the norva tool make is opened with these.
sql::ConnectOptionsMap ConnectOptions(const StoreSettings& settings, const std::string& host,
                                      const std::string& user, const std::string& password);

#endif
