#include "private/IdAllocation.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>

NextId ChooseNextId(std::vector<int> keys, int mark, bool lowestFree) {
    int64_t id;
    if (!lowestFree) {
        int64_t top = mark;
        if (!keys.empty()) top = std::max<int64_t>(*std::max_element(keys.begin(), keys.end()), top);
        id = top + 1;
    } else {
        std::sort(keys.begin(), keys.end());
        int64_t candidate = 1;
        for (int key : keys) {
            if (key == candidate || key == 0)
                ++candidate;
            else if (key > candidate)
                break;
        }
        id = candidate;
    }
    if (id > INT_MAX) return {NextId::Result::Exhausted, -1, mark, 0};
    // Keys and mark below 0 can make the next number 0 or less: no
    // identifier, and the mark stays where it was.
    if (id < 1) return {NextId::Result::NotPositive, -1, mark, id - 1};
    return {NextId::Result::Ok, static_cast<int>(id), std::max<int>(static_cast<int>(id), mark), 0};
}

int LeadingNumber(const std::string& text) {
    size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
    bool negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) negative = text[at++] == '-';
    int64_t value = 0;
    const int64_t limit = negative ? -static_cast<int64_t>(INT_MIN) : INT_MAX;
    bool digits = false;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        digits = true;
        value = std::min<int64_t>(value * 10 + (text[at] - '0'), limit + 1);
    }
    if (!digits) return 0;
    if (value > limit) return negative ? INT_MIN : INT_MAX;
    return static_cast<int>(negative ? -value : value);
}
