#include "private/ConnectOptions.h"

#include <cppconn/statement.h>

#include <memory>

namespace {
// The safe profile's session: strict, standard quoting (backslashes escape,
// "||" is OR, double quotes delimit strings) and UTF-8 both ways.
const char* const kSafeSession =
    "SET NAMES utf8mb4 COLLATE utf8mb4_general_ci, "
    "SESSION sql_mode = 'STRICT_TRANS_TABLES,ERROR_FOR_DIVISION_BY_ZERO,NO_ENGINE_SUBSTITUTION'";
}  // namespace

sql::ConnectOptionsMap ConnectOptions(const StoreSettings& settings, const std::string& host,
                                      const std::string& user, const std::string& password) {
    sql::ConnectOptionsMap options;
    options["hostName"] = sql::SQLString(host);
    options["userName"] = sql::SQLString(user);
    options["password"] = sql::SQLString(password);
    options["OPT_RECONNECT"] = true;
    options["schema"] = sql::SQLString("jdfdb");
    // Statements carry UTF-8 text; say so, whatever the client library's default.
    options["OPT_CHARSET_NAME"] = sql::SQLString("utf8mb4");
    // A change reports the rows it matched, not only those it altered.
    options["CLIENT_FOUND_ROWS"] = true;
    // A server that stops answering without closing its sockets must not
    // hold a call for ever: the connector gives up and reports the connection lost.
    options["OPT_CONNECT_TIMEOUT"] = settings.connectTimeout;
    options["OPT_READ_TIMEOUT"] = settings.readTimeout;
    options["OPT_WRITE_TIMEOUT"] = settings.writeTimeout;
    return options;
}

void PrepareSession(sql::Connection& connection, const StoreSettings& settings) {
    if (settings.profile != "safe") return;
    std::unique_ptr<sql::Statement> statement(connection.createStatement());
    statement->execute(kSafeSession);
}
