#ifndef NORVA_PRIVATE_SERVERERRORS_H
#define NORVA_PRIVATE_SERVERERRORS_H

// What a server or client error number means for the store.
enum class ServerError {
    None,       // 0: the statement ran
    Conflict,   // a deadlock or a cluster's failed certification: rolled back whole, may run again
    Duplicate,  // the key is taken
    Lost,       // the server cannot be reached or was lost, a timeout included: try the next host
    Refused,    // the server will not let this account in (login, rights, TLS): no other host helps
    Other       // anything else: the statement's own fault
};

inline ServerError ClassifyServerError(int error) {
    switch (error) {
        case 0: return ServerError::None;
        case 1213: return ServerError::Conflict;
        case 1062: return ServerError::Duplicate;
        case 1047:  // a cluster node not ready for statements
        case 2002:  // cannot connect (socket)
        case 2003:  // cannot connect (TCP)
        case 2006:  // server gone away
        case 2013:  // lost during a statement (a read timeout too)
        case 2055: return ServerError::Lost;
        case 1044:  // no access to the schema
        case 1045:  // wrong account or password
        case 1698:  // account refused
        case 2026: return ServerError::Refused;  // TLS could not be set up
        default: return ServerError::Other;
    }
}

// The error of a statement on a connection that was open: a TLS error there
// means the encrypted stream broke (its server went away), which is what
// 2013 says of a plain connection.
inline int StatementError(int error) { return error == 2026 ? 2013 : error; }

#endif
