#include "private/LostWrite.h"

#include <Logger.h>
#include <cppconn/resultset.h>

#include <memory>

#include "private/ServerErrors.h"

namespace {
const LOG_CONST kLevel = LOG_LEVEL_5;
// A lost connection is re-made by the first statement after it, which may be
// spent noticing the loss (docs/kept-behaviours.md, C1): one try more.
const int kTries = 2;
}  // namespace

bool AnswerMayBeLost(int error) { return ClassifyServerError(error) == ServerError::Lost; }

bool ReadBackLostWrite(const std::function<CDatabaseConnection::Outcome(std::string&)>& run, Logger* logger,
                       const WriteCheck& check) {
    for (int attempt = 0; attempt < kTries; ++attempt) {
        std::string text = "SET STATEMENT wsrep_sync_wait = 1 FOR " + check.probe;
        const CDatabaseConnection::Outcome outcome = run(text);
        std::unique_ptr<sql::ResultSet> rows(outcome.rows);
        if (outcome.error == 0 && rows) {
            const bool applied = rows->next() == check.rowMeansApplied;
            logger->log(kLevel, applied ? L"CMysqlDatabaseInterface : the answer to a write was lost; it took effect"
                                        : L"CMysqlDatabaseInterface : the answer to a write was lost; it did not take effect");
            return applied;
        }
        if (outcome.error != -1 && !AnswerMayBeLost(outcome.error)) break;
    }
    logger->log(kLevel, L"CMysqlDatabaseInterface : the answer to a write was lost and the server cannot say whether it took effect");
    return false;
}
