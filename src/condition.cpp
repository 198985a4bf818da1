#include "condition.h"

#include <cstring>

#include "TupElement.h"

condition::condition() : type(COND_NONE), value(nullptr) {}

condition::condition(COND_ELEMENT kind, const void* source) : type(kind), value(nullptr) {
    AllocateValue(kind, source, value);
}

condition::condition(const condition& other) : type(other.type), value(nullptr) {
    AllocateValue(type, other.value, value);
}

condition& condition::operator=(const condition& other) {
    if (this == &other) return *this;
    type = other.type;
    DeletVoidPtr(type, value);
    value = nullptr;
    AllocateValue(type, other.value, value);
    return *this;
}

condition::~condition() { DeletVoidPtr(type, value); }

void condition::AllocateValue(COND_ELEMENT kind, const void* source, void*& target) {
    target = nullptr;
    if (source == nullptr) return;
    if (kind == COND_VALUE) {
        TupElement* element = new TupElement();
        *element = *const_cast<TupElement*>(static_cast<const TupElement*>(source));
        target = element;
        value = element;
        return;
    }
    const char* text = static_cast<const char*>(source);
    const size_t length = std::strlen(text);
    char* copy = new char[length + 1];
    std::memcpy(copy, text, length + 1);
    target = copy;
}

void condition::DeletVoidPtr(COND_ELEMENT kind, void* value) {
    if (value == nullptr) return;
    switch (kind) {
        case COND_BRACKET:
        case COND_COLUMN:
        case COND_OPERATOR: delete[] static_cast<char*>(value); break;
        case COND_VALUE: delete static_cast<TupElement*>(value); break;
        default: break;
    }
}
