#include "TupElement.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

#include "../platform/src/Utf8.h"
#include "TimeStamp.h"

static char* CopyName(const char* name) {
    if (name == nullptr) return nullptr;
    const size_t length = std::strlen(name);
    char* copy = new char[length + 1];
    std::memcpy(copy, name, length + 1);
    return copy;
}

TupElement::TupElement() : type(PARAM_NO_VALUE), value(nullptr), name(nullptr), m_owns(true) {}

TupElement::TupElement(PARAM_TYPE_NV cellType, const char* columnName, void* cellValue)
    : type(cellType), value(cellValue), name(const_cast<char*>(columnName)), m_owns(false) {}

TupElement::TupElement(const TupElement& other)
    : type(other.type), value(nullptr), name(CopyName(other.name)), m_owns(true) {
    AllocateValue(type, other.value, value);
}

TupElement& TupElement::operator=(TupElement& other) {
    if (this == &other) return *this;
    if (m_owns) delete[] name;
    name = CopyName(other.name);
    type = other.type;
    if (m_owns) DeletVoidPtr(type, value);  // by the new tag, as callers keep tags alike
    m_owns = true;
    value = nullptr;
    AllocateValue(type, other.value, value);
    return *this;
}

TupElement::~TupElement() {
    if (!m_owns) return;
    delete[] name;
    DeletVoidPtr(type, value);
}

void TupElement::InsertTupValue(PARAM_TYPE_NV newType, const char* newName, const void* newValue) {
    type = newType;
    name = CopyName(newName);  // a previous name is not freed: callers insert once
    m_owns = true;
    AllocateValue(newType, newValue, value);
}

void TupElement::AllocateValue(PARAM_TYPE_NV type, const void* source, void*& target) {
    target = nullptr;
    if (source == nullptr) return;
    switch (type) {
        case PARAM_INT:
        case PARAM_INT_2: target = new int32_t(*static_cast<const int32_t*>(source)); break;
        case PARAM_INT_5: {
            // Released with the string tags as an array, so allocated as one.
            int32_t* array = new int32_t[1];
            array[0] = *static_cast<const int32_t*>(source);
            target = array;
            break;
        }
        case PARAM_LONG: target = new int64_t(*static_cast<const int64_t*>(source)); break;
        case PARAM_DOUBLE: target = new double(*static_cast<const double*>(source)); break;
        case PARAM_WSTRING:
        case PARAM_WSTRING_7:
        case PARAM_BLOB: {
            const wchar_t* text = static_cast<const wchar_t*>(source);
            const size_t length = std::wcslen(text);
            wchar_t* copy = new wchar_t[length + 1];
            std::wmemcpy(copy, text, length + 1);
            target = copy;
            break;
        }
        case PARAM_TIMESTAMP: {
            TimeStamp* stamp = new TimeStamp(0);
            *stamp = *static_cast<const TimeStamp*>(source);
            target = stamp;
            break;
        }
        default: break;
    }
}

void TupElement::DeletVoidPtr(PARAM_TYPE_NV type, void* value) {
    if (value == nullptr) return;
    switch (type) {
        case PARAM_INT:
        case PARAM_INT_2: delete static_cast<int32_t*>(value); break;
        case PARAM_LONG: delete static_cast<int64_t*>(value); break;
        case PARAM_DOUBLE: delete static_cast<double*>(value); break;
        case PARAM_INT_5: delete[] static_cast<int32_t*>(value); break;
        case PARAM_WSTRING:
        case PARAM_WSTRING_7:
        case PARAM_BLOB: delete[] static_cast<wchar_t*>(value); break;
        case PARAM_TIMESTAMP: delete static_cast<TimeStamp*>(value); break;
        default: break;
    }
}

wchar_t* TupElement::AllocateText(const char* utf8, std::size_t bytes) {
    // Never more characters than bytes.
    wchar_t* text = new wchar_t[bytes + 1];
    DecodeText(utf8, bytes, text);
    return text;
}

wchar_t* TupElement::DecodeText(const char* utf8, std::size_t bytes, wchar_t* out) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8);
    const unsigned char* const end = p + bytes;
    while (p < end) {
        // ASCII, the common case, eight bytes at a time.
        std::uint64_t block;
        if (end - p >= 8 && (std::memcpy(&block, p, 8), (block & 0x8080808080808080ULL) == 0)) {
            for (int k = 0; k < 8; ++k) out[k] = static_cast<wchar_t>(p[k]);
            out += 8;
            p += 8;
            continue;
        }
        if (*p < 0x80) {
            *out++ = static_cast<wchar_t>(*p++);
            continue;
        }
        char32_t cp;
        p += norva_utf8::Decode(p, static_cast<std::size_t>(end - p), cp);
        *out++ = static_cast<wchar_t>(cp);
    }
    *out = L'\0';
    return out;
}
