#ifndef NORVA_PRIVATE_TRANSACTION_H
#define NORVA_PRIVATE_TRANSACTION_H

#include "private/ConnectionAccess.h"
#include "private/Statement.h"

class StoreDialect;

// A transaction on the calling thread's connection (pin it first), begun
// when made. End commits or rolls back; leaving the scope any other way
// (an early return, an exception) rolls back, so a connection never goes
// back to the pool inside a transaction or with a row still locked.
class Transaction {
public:
    // START TRANSACTION, then `hold` (a locking read that makes writers take turns).
    Transaction(StoreDialect& dialect, Statement hold);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // Whether START TRANSACTION was taken.
    bool Begun() const { return m_open; }
    // COMMIT when `outcome` succeeded, else ROLLBACK. Answers `outcome`, or
    // the commit's own failure when the server refused it (a cluster's
    // conflict undoes the whole transaction).
    Outcome End(Outcome outcome);

    // Whether the calling thread is inside a transaction: a statement
    // refused as a conflict then is not run again on its own.
    static bool Active();

private:
    void Finish(const char* verb);

    StoreDialect& m_dialect;
    bool m_open;
    Outcome m_ended;  // what the COMMIT or ROLLBACK gave
};

#endif
