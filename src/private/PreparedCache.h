#ifndef NORVA_PRIVATE_PREPAREDCACHE_H
#define NORVA_PRIVATE_PREPAREDCACHE_H

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace sql {
class Connection;
class PreparedStatement;
}  // namespace sql

// The server-side prepared statements of one connection, by text, at most
// `capacity` of them: when full, the one used longest ago is closed on the
// server before another is prepared, so a long-running host never exhausts
// the server's max_prepared_stmt_count. Not synchronised: the connection's
// lock covers it.
class PreparedCache {
public:
    explicit PreparedCache(std::size_t capacity);
    ~PreparedCache();

    // One prepared statement, and whether it gives rows (a SELECT) or
    // changes them (its answer is then the number of rows it matched).
    struct Prepared {
        std::unique_ptr<sql::PreparedStatement> statement;
        bool givesRows = false;
    };

    // The statement of `text`, prepared on `connection` when not kept yet
    // (the connector throws when the server refuses it).
    Prepared& Get(sql::Connection& connection, const std::string& text);
    // Closes every statement: before the connection is replaced, or when the
    // server no longer knows them (a reconnect).
    void Clear();
    // Gives up every statement without a word to the server, for a
    // connection whose server was lost: closing them could wait there for an
    // answer that never comes (a TLS connection that timed out). They are
    // moved to `left`, which keeps them, never closed.
    void Abandon(std::vector<std::unique_ptr<sql::PreparedStatement>>& left);
    std::size_t Size() const { return m_order.size(); }

    PreparedCache(const PreparedCache&) = delete;
    PreparedCache& operator=(const PreparedCache&) = delete;

private:
    using Entry = std::pair<std::string, Prepared>;
    static void Close(Entry& entry);

    const std::size_t m_capacity;
    std::list<Entry> m_order;  // most recently used first
    std::unordered_map<std::string, std::list<Entry>::iterator> m_index;
};

// How many prepared statements each connection keeps.
const std::size_t kPreparedPerConnection = 64;

#endif
