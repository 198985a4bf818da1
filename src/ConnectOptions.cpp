#include "private/ConnectOptions.h"

#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>

#include <memory>

namespace {
// The safe profile's session: strict, standard quoting (backslashes escape,
// "||" is OR, double quotes delimit strings) and UTF-8 both ways.
const char* const kSafeSession =
    "SET NAMES utf8mb4 COLLATE utf8mb4_general_ci, "
    "SESSION sql_mode = 'STRICT_TRANS_TABLES,ERROR_FOR_DIVISION_BY_ZERO,NO_ENGINE_SUBSTITUTION'";

// The connector is built on MariaDB's C library, whose TLS options do less
// than their names suggest (measured against a real server):
// - sslCA: the server's certificate must chain to it, checked during the
//   handshake; but a server that offers no TLS is used in clear text;
// - sslEnforce: TLS is asked for, nothing is checked, and a server without
//   TLS is again used in clear text;
// - sslVerify: the certificate must also name the host, and a server
//   without TLS is refused before the account is sent;
// - OPT_SSL_MODE is accepted and ignored.
// So required and verify-ca also check, after connecting, that the session
// is encrypted (CheckTransport), and the connector may not reconnect such a
// connection by itself, which would skip that check.
void AddTls(sql::ConnectOptionsMap& options, const StoreSettings& settings) {
    switch (settings.tls) {
        case TlsMode::Off: return;
        case TlsMode::Required: options["sslEnforce"] = true; break;
        case TlsMode::VerifyCA:
            options["sslCA"] = sql::SQLString(settings.tlsCA);
            options["sslEnforce"] = true;
            break;
        case TlsMode::VerifyIdentity:
            options["sslCA"] = sql::SQLString(settings.tlsCA);
            options["sslVerify"] = true;
            break;
    }
    if (!settings.tlsCert.empty()) {
        options["sslCert"] = sql::SQLString(settings.tlsCert);
        options["sslKey"] = sql::SQLString(settings.tlsKey);
    }
    if (!ConnectorReconnects(settings)) options["OPT_RECONNECT"] = false;
}

const char* const kTlsNames[] = {"off", "required", "verify-ca", "verify-identity"};

bool Loopback(std::string host) {
    if (host.compare(0, 7, "unix://") == 0) return true;
    if (host.compare(0, 6, "tcp://") == 0) host.erase(0, 6);
    if (!host.empty() && host[0] == '[') return host.compare(0, 5, "[::1]") == 0;
    host = host.substr(0, host.find(':'));
    return host == "localhost" || host.compare(0, 4, "127.") == 0;
}

}  // namespace

sql::ConnectOptionsMap ConnectOptions(const StoreSettings& settings, const std::string& host,
                                      const std::string& user, const std::string& password) {
    sql::ConnectOptionsMap options;
    const bool configured = !settings.user.empty();
    options["hostName"] = sql::SQLString(host);
    options["userName"] = sql::SQLString(configured ? settings.user : user);
    options["password"] = sql::SQLString(configured ? settings.password : password);
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
    AddTls(options, settings);
    return options;
}

std::string CheckTransport(sql::Connection& connection, const StoreSettings& settings) {
    if (settings.tls == TlsMode::Off) return std::string();
    std::unique_ptr<sql::Statement> statement(connection.createStatement());
    std::unique_ptr<sql::ResultSet> rows(statement->executeQuery("SHOW SESSION STATUS LIKE 'Ssl_cipher'"));
    if (rows->next() && rows->getString(2).length() > 0) return std::string();
    return "the server did not encrypt the connection";
}

bool ConnectorReconnects(const StoreSettings& settings) {
    return settings.tls == TlsMode::Off || settings.tls == TlsMode::VerifyIdentity;
}

sql::Connection* OpenConnection(sql::Driver& driver, const StoreSettings& settings, const std::string& host,
                                const std::string& user, const std::string& password) {
    if (!settings.Usable()) {
        std::string why = "the configuration is refused, nothing is sent:";
        for (const std::string& problem : settings.problems) why += " " + problem + ";";
        why.pop_back();
        throw sql::SQLException(why, "HY000", 0);
    }
    sql::ConnectOptionsMap options = ConnectOptions(settings, host, user, password);
    const std::string mode = std::string("DBTLS = ") + kTlsNames[static_cast<int>(settings.tls)];
    std::unique_ptr<sql::Connection> connection;
    try {
        connection.reset(driver.connect(options));
    } catch (sql::SQLException& e) {
        if (settings.tls == TlsMode::Off || e.getErrorCode() != 2026) throw;
        throw sql::SQLException(mode + ": " + e.what(), e.getSQLState(), e.getErrorCode());
    }
    const std::string refused = CheckTransport(*connection, settings);
    if (refused.empty()) return connection.release();
    connection->close();
    throw sql::SQLException(mode + ": " + refused, "08004", 2026);
}

std::vector<std::string> ConnectionWarnings(const StoreSettings& settings) {
    std::vector<std::string> lines;
    if (settings.profile != "safe" || settings.tls != TlsMode::Off) return lines;
    std::string::size_type start = 0;
    for (;;) {
        const std::string::size_type comma = settings.hosts.find(',', start);
        std::string host = settings.hosts.substr(start, comma - start);
        host.erase(0, host.find_first_not_of(" \t"));
        host.erase(host.find_last_not_of(" \t") + 1);
        if (!host.empty() && !Loopback(host))
            lines.push_back("warning: " + host + " is not on this machine and DBTLS is off: the account, every "
                            "statement and every JDF cross the network in clear text (set DBTLS to verify-identity)");
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return lines;
}

SessionNode PrepareSession(sql::Connection& connection, const StoreSettings& settings, bool severalHosts) {
    const bool safe = settings.profile == "safe";
    if (!severalHosts && !safe) return SessionNode::Plain;
    std::unique_ptr<sql::Statement> statement(connection.createStatement());
    if (safe) statement->execute(kSafeSession);
    // SHOW, unlike SELECT, never waits for the cluster (wsrep_sync_wait 1 covers reads only).
    std::unique_ptr<sql::ResultSet> status(statement->executeQuery(
        "SHOW GLOBAL STATUS WHERE Variable_name IN ('wsrep_provider_name', 'wsrep_ready', 'wsrep_local_state')"));
    std::string provider, ready, state;
    while (status->next()) {
        const std::string name = status->getString(1), value = status->getString(2);
        (name == "wsrep_provider_name" ? provider : name == "wsrep_ready" ? ready : state) = value;
    }
    if (provider.empty()) return SessionNode::Plain;
    const bool synced = ready == "ON" && state == "4";
    if (!synced && severalHosts) return SessionNode::NotSynced;
    if (safe) statement->execute("SET SESSION wsrep_sync_wait = 1");
    return synced ? SessionNode::Synced : SessionNode::NotSynced;
}
