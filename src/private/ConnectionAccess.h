#ifndef NORVA_PRIVATE_CONNECTIONACCESS_H
#define NORVA_PRIVATE_CONNECTIONACCESS_H

#include <cppconn/resultset.h>

#include <memory>

#include "DatabaseConnection.h"
#include "private/ServerErrors.h"
#include "private/Statement.h"

// What one statement gave.
struct Outcome {
    std::unique_ptr<sql::ResultSet> rows;  // null without a result set or on failure
    int error = -1;                        // the server's error number; 0: none; -1: no connection could be had
    ServerError kind = ServerError::Other; // the error number classified, once, where the statement ran
    long long matched = 0;                 // for a change: the rows it matched
};

// The store's way into CDatabaseConnection beyond its public operations.
struct ConnectionAccess {
    // Runs one statement on the connection the calling thread uses, with the
    // trace lines of ExecuteSqlQuery. A bound statement is prepared once per
    // connection and kept (see PreparedCache).
    static Outcome Run(CDatabaseConnection& connection, const Statement& statement);
    // How many connections statements are spread over.
    static int Size(const CDatabaseConnection& connection);
};

// While a pin lives, the statements its thread runs through the connection
// object share one connection, which no other thread uses meanwhile (for
// work that spans statements: LAST_INSERT_ID(), a transaction). Pins of one
// thread nest. With a single connection it has nothing to do. Take a pin
// before any lock of the store, never while holding one.
class ConnectionPin {
public:
    explicit ConnectionPin(CDatabaseConnection* connection);
    ~ConnectionPin();
    ConnectionPin(const ConnectionPin&) = delete;
    ConnectionPin& operator=(const ConnectionPin&) = delete;

private:
    CDatabaseConnection* m_pConnection;
};

#endif
