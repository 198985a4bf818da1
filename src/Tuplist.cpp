#include "Tuplist.h"

#include <Logger.h>

#include <cstring>

#include "utility.h"

Tuplist::Tuplist() : m_pLogger(Logger::Initialise()) {}

Tuplist::~Tuplist() {}

TupElement* Tuplist::operator[](const char* column) {
    // A name without "." names no column.
    const char* dot = column ? std::strchr(column, '.') : nullptr;
    if (dot != nullptr) {
        const char* bare = utility::StringLowerToUpper(dot + 1);
        for (TupElement* element : m_elements)
            if (element->name != nullptr && std::strcmp(element->name, bare) == 0) return element;
    }
    m_pLogger->log(LOG_LEVEL_5, L"%ls", L"Tuplist::operator[] return NULL here");
    return &m_empty;
}
