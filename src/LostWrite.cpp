#include "private/LostWrite.h"

#include <Logger.h>

namespace {
const LOG_CONST kLevel = LOG_LEVEL_5;
// A lost connection is re-made by the first statement after it, which may be
// spent noticing the loss (docs/kept-behaviours.md, C1): one try more.
const int kTries = 2;
}  // namespace

bool ReadBackLostWrite(const std::function<Outcome(Statement&)>& run, Logger* logger, WriteCheck check) {
    check.probe.text = "SET STATEMENT wsrep_sync_wait = 1 FOR " + check.probe.text;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        const Outcome outcome = run(check.probe);
        if (outcome.error == 0 && outcome.rows) {
            const bool applied = outcome.rows->next() == check.rowMeansApplied;
            logger->log(kLevel, applied ? L"CMysqlDatabaseInterface : the answer to a write was lost; it took effect"
                                        : L"CMysqlDatabaseInterface : the answer to a write was lost; it did not take effect");
            return applied;
        }
        if (outcome.kind != ServerError::Lost) break;
    }
    logger->log(kLevel, L"CMysqlDatabaseInterface : the answer to a write was lost and the server cannot say whether it took effect");
    return false;
}
