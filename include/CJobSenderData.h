#ifndef NORVA_CJOBSENDERDATA_H
#define NORVA_CJOBSENDERDATA_H

#include <string>

// A query id and the URL of the sender its answers go to.
class CJobSenderData {
public:
    CJobSenderData() {}
    CJobSenderData(const std::wstring& queryId_, const std::wstring& url_) : queryId(queryId_), url(url_) {}

    std::wstring queryId;
    std::wstring url;
};

// Orders pairs by url, then by query id (exact wide-character comparison).
struct cmpp {
    bool operator()(const CJobSenderData* a, const CJobSenderData* b) const;
};

#endif
