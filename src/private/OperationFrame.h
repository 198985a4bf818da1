#ifndef NORVA_PRIVATE_OPERATIONFRAME_H
#define NORVA_PRIVATE_OPERATIONFRAME_H

#include <Logger.h>
#include <cppconn/exception.h>

#include <exception>
#include <optional>

#include "mutex.h"
#include "private/MutexLock.h"

// Every line of the store is written at this level.
const LOG_CONST kStoreLevel = LOG_LEVEL_5;

// The texts of one store operation: its entry and exit lines, the signature
// reported with a caught exception, and whether a standard exception other
// than a SQL one counts as "known" (logged without the unknown line).
struct Operation {
    const wchar_t* entry;
    const wchar_t* exit;
    const wchar_t* signature;
    bool standardKnown;
};

inline void LogException(Logger* logger, const wchar_t* signature, bool unknown) {
    // %s with a wide signature: one character shows (docs/kept-behaviours.md, S9).
    logger->log(kStoreLevel, L"*****Exception at %s*****", signature);
    if (unknown) logger->log(kStoreLevel, L"%ls", L"Unknown Exception occur");
}

// The frame every store operation runs in: entry line, the lock (when one is
// given), the body under a handler for every exception, unlock, exit line.
// The body may replace the exit line, or drop it by setting it to null.
template <class Body>
void RunFrame(Logger* logger, mutex* lock, const Operation& op, Body body) {
    if (op.entry) logger->log(kStoreLevel, op.entry);
    const wchar_t* exitLine = op.exit;
    {
        std::optional<MutexLock> guard;
        if (lock) guard.emplace(*lock);
        try {
            body(exitLine);
        } catch (const sql::SQLException&) {
            LogException(logger, op.signature, false);
        } catch (const std::exception&) {
            LogException(logger, op.signature, !op.standardKnown);
        } catch (...) {
            LogException(logger, op.signature, true);
        }
    }
    if (exitLine) logger->log(kStoreLevel, exitLine);
}

#endif
