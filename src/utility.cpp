#include "utility.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace utility {

void LogCSqlQuery(LOG_CONST level, Logger* logger, const char* text) {
    // mbstowcs follows the process locale: in the "C" locale the trace stops
    // at the first non-ASCII byte; the statement itself is not affected.
    const size_t length = std::strlen(text);
    std::vector<wchar_t> wide(length + 1, L'\0');
    std::mbstowcs(wide.data(), text, length);
    logger->log(level, L"%ls", wide.data());
}

const char* StringLowerToUpper(const char* text) { return text; }

char* StringLowerToUpper(char* text) { return text; }

}  // namespace utility
