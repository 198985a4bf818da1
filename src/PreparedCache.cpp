#include "private/PreparedCache.h"

#include <cppconn/connection.h>
#include <cppconn/exception.h>
#include <cppconn/prepared_statement.h>
#include <cppconn/resultset_metadata.h>

PreparedCache::PreparedCache(std::size_t capacity) : m_capacity(capacity < 1 ? 1 : capacity) {}

PreparedCache::~PreparedCache() { Clear(); }

void PreparedCache::Close(Entry& entry) {
    try {
        entry.second.statement->close();
    } catch (...) {
        // A connection that is gone took its statements with it.
    }
    entry.second.statement.reset();
}

PreparedCache::Prepared& PreparedCache::Get(sql::Connection& connection, const std::string& text) {
    auto found = m_index.find(text);
    if (found != m_index.end()) {
        m_order.splice(m_order.begin(), m_order, found->second);
        return found->second->second;
    }
    if (m_order.size() >= m_capacity) {
        Close(m_order.back());
        m_index.erase(m_order.back().first);
        m_order.pop_back();
    }
    Prepared prepared;
    prepared.statement.reset(connection.prepareStatement(text));
    // The server says at prepare time whether the statement has result columns.
    sql::ResultSetMetaData* columns = prepared.statement->getMetaData();
    prepared.givesRows = columns != nullptr && columns->getColumnCount() > 0;
    m_order.emplace_front(text, std::move(prepared));
    m_index[text] = m_order.begin();
    return m_order.front().second;
}

void PreparedCache::Abandon(std::vector<std::unique_ptr<sql::PreparedStatement>>& left) {
    for (Entry& entry : m_order) left.push_back(std::move(entry.second.statement));
    m_order.clear();
    m_index.clear();
}

void PreparedCache::Clear() {
    for (Entry& entry : m_order) Close(entry);
    m_order.clear();
    m_index.clear();
}
