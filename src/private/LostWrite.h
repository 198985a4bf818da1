#ifndef NORVA_PRIVATE_LOSTWRITE_H
#define NORVA_PRIVATE_LOSTWRITE_H

#include <functional>

#include "private/ConnectionAccess.h"

class Logger;

// A write whose connection broke after the statement was sent may or may not
// have taken effect: the server can have committed it and lost only its
// answer. The store then asks the server, on the connection the next
// statement gets (a new one, or one to the next host), and answers by what it
// finds. The write itself is never sent again.
struct WriteCheck {
    Statement probe;       // a SELECT that finds a row when the written row is there (or, for a delete, still there)
    bool rowMeansApplied;  // true for an insert or update; false for a delete
};

// Runs the check through `run` (the store's own way to run a statement, trace
// lines included) and answers whether the write took effect; false too when
// the server could not be asked. On a cluster the probe waits until its node
// has applied every write committed before it, so a write committed through
// another node is seen. One log line says what was found.
bool ReadBackLostWrite(const std::function<Outcome(Statement&)>& run, Logger* logger, WriteCheck check);

#endif
