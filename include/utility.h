#ifndef NORVA_UTILITY_H
#define NORVA_UTILITY_H

#include <Logger.h>

/// @file
/// Helpers shared by the store and the providers.

/// Helpers shared by the store and the providers.
namespace utility {

/// Traces one SQL text: widens it and logs it with "%ls" at the given level.
void LogCSqlQuery(LOG_CONST level, Logger* logger, const char* text);

/// Returns the text unchanged: column names are already upper case, and
/// lookups are deliberately case-sensitive.
const char* StringLowerToUpper(const char* text);
/// The same for writable text.
char* StringLowerToUpper(char* text);

}  // namespace utility

#endif
