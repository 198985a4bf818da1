#include "private/Transaction.h"

#include "private/StoreDialect.h"

namespace {
thread_local int t_depth = 0;
}  // namespace

Transaction::Transaction(StoreDialect& dialect, Statement hold) : m_dialect(dialect), m_open(false) {
    Statement begin = dialect.NewStatement();
    begin.text = "START TRANSACTION";
    if (dialect.Run(begin).error != 0) return;
    m_open = true;
    ++t_depth;
    dialect.Run(hold);
}

Transaction::~Transaction() {
    if (m_open) Finish("ROLLBACK");
}

void Transaction::Finish(const char* verb) {
    Statement end = m_dialect.NewStatement();
    end.text = verb;
    m_ended = m_dialect.Run(end);  // still inside: a refused COMMIT is not run again alone
    m_open = false;
    --t_depth;
}

Outcome Transaction::End(Outcome outcome) {
    if (!m_open) return outcome;
    const bool commit = outcome.error == 0;
    Finish(commit ? "COMMIT" : "ROLLBACK");
    if (commit && m_ended.error != 0) {
        outcome.rows.reset();
        outcome.error = m_ended.error;
        outcome.kind = m_ended.kind;
    }
    return outcome;
}

bool Transaction::Active() { return t_depth > 0; }
