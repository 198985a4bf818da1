#include "CJobSenderData.h"

#include <cwchar>

// URL first, then query id; both exact wide-character comparisons, so two
// entries are equivalent only when both fields are equal.
bool cmpp::operator()(const CJobSenderData* a, const CJobSenderData* b) const {
    const int byUrl = wcscmp(a->url.c_str(), b->url.c_str());
    if (byUrl != 0) return byUrl < 0;
    return wcscmp(a->queryId.c_str(), b->queryId.c_str()) < 0;
}
