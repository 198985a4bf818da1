#ifndef NORVA_CJOBSENDERDATA_H
#define NORVA_CJOBSENDERDATA_H

#include <string>

/// A query id and the URL of the sender its answers go to.
class CJobSenderData {
public:
    /// An empty pair.
    CJobSenderData() {}
    /// The pair of a query id and a URL.
    CJobSenderData(const std::wstring& queryId_, const std::wstring& url_) : queryId(queryId_), url(url_) {}

    std::wstring queryId;  ///< id of the query whose answers go to url
    std::wstring url;  ///< URL of the sender
};

/// Orders pairs by url, then by query id (exact wide-character comparison).
struct cmpp {
    /// `true` when `a` sorts before `b`.
    bool operator()(const CJobSenderData* a, const CJobSenderData* b) const;
};

#endif
