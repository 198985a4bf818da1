#include "mutex.h"

#include <wx/thread.h>

mutex::mutex() : m_pMutex(new wxMutex(wxMUTEX_DEFAULT)) {}

mutex::~mutex() {
    if (m_pMutex != nullptr) delete m_pMutex;
}

void mutex::lock() { m_pMutex->Lock(); }

void mutex::unlock() { m_pMutex->Unlock(); }
