#include "_BLOB.h"

#include <cwchar>

static wchar_t* CopyText(const wchar_t* text) {
    if (text == nullptr) return nullptr;
    const size_t length = std::wcslen(text);
    wchar_t* copy = new wchar_t[length + 1]();
    std::wmemcpy(copy, text, length);
    return copy;
}

_BLOB::_BLOB() : data(nullptr) {}

_BLOB::_BLOB(const wchar_t* text) : data(CopyText(text)) {}

_BLOB::_BLOB(const _BLOB& other) : data(CopyText(other.data)) {}

_BLOB& _BLOB::operator=(const _BLOB& other) {
    if (this != &other) {
        wchar_t* copy = CopyText(other.data);
        delete[] data;
        data = copy;
    }
    return *this;
}

_BLOB::~_BLOB() { delete[] data; }
