#include "private/ProviderSupport.h"

#include <cstring>
#include <stdexcept>

#include "private/QueryRows.h"

namespace provider {

void RunQuery(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const wchar_t* before,
              const wchar_t* after) {
    logger->log(kLogLevel, L"%ls", before);
    QueryRows::UseBlocks(query);  // the providers read rows from result blocks, not the public list
    db->ExecuteQuery(&query);
    logger->log(kLogLevel, L"%ls", after);
}

void Select(dl_MultiValue& query, TICKET_TYPE_NV table, const char* column) {
    query.InsertTickettype(1, table);
    query.InsertKeys(1, column);
}

void AddToken(dl_MultiValue& query, COND_ELEMENT kind, const char* text) { query.m_conditions.push_back(kind, text); }

void AddValue(dl_MultiValue& query, const char* column, PARAM_TYPE_NV type, const void* value) {
    TupElement element;
    element.InsertTupValue(type, column, value);
    query.m_conditions.push_back(COND_VALUE, &element);
}

void AddEquals(dl_MultiValue& query, const char* column, PARAM_TYPE_NV type, const void* value) {
    AddToken(query, COND_BRACKET, "(");
    AddToken(query, COND_COLUMN, column);
    AddOperator(query, "=");
    AddValue(query, column, type, value);
    AddToken(query, COND_BRACKET, ")");
}

void AddEquals(dl_MultiValue& query, const char* column, const std::wstring& value) {
    AddEquals(query, column, PARAM_WSTRING, value.c_str());
}

void AddEquals(dl_MultiValue& query, const char* column, int value) { AddEquals(query, column, PARAM_INT, &value); }

RowPlaces::RowPlaces(Tuplist& r) : row(r), count(0) {
    if (row.m_elements.size() > sizeof at / sizeof at[0]) return;
    for (TupElement* element : row.m_elements) at[count++] = element;
}

const TupElement* FindColumn(RowPlaces& places, const char* column, size_t& hint) {
    const char* dot = std::strchr(column, '.');
    if (dot != nullptr) {
        const auto names = [&](size_t place) {
            return places.at[place]->name != nullptr && std::strcmp(places.at[place]->name, dot + 1) == 0;
        };
        if (hint < places.count && names(hint)) return places.at[hint];
        for (size_t place = 0; place < places.count; ++place) {
            if (names(place)) {
                hint = place;
                return places.at[place];
            }
        }
    }
    return places.row[column];  // not found (or not by place): the same answer and log line as always
}

bool FetchRecord(dl_MultiValue& query, int index, Tuplist& row) { return query.GetRecord(index, row.m_elements); }

bool HasValue(const TupElement* element) { return element != nullptr && element->value != nullptr; }

static bool IsText(PARAM_TYPE_NV type) {
    return type == PARAM_WSTRING || type == PARAM_WSTRING_7 || type == PARAM_BLOB;
}

std::wstring TextOr(const TupElement* element, const std::wstring& fallback) {
    if (!HasValue(element) || !IsText(element->type)) return fallback;
    return static_cast<const wchar_t*>(element->value);
}

int IntOr(const TupElement* element, int fallback) {
    if (!HasValue(element)) return fallback;
    switch (element->type) {
        case PARAM_INT:
        case PARAM_INT_2:
        case PARAM_INT_5: return *static_cast<const int*>(element->value);
        case PARAM_LONG: return static_cast<int>(*static_cast<const int64_t*>(element->value));
        default: return fallback;
    }
}

TimeStamp TimeOr(const TupElement* element, const TimeStamp& fallback) {
    if (!HasValue(element) || element->type != PARAM_TIMESTAMP) return fallback;
    return *static_cast<const TimeStamp*>(element->value);
}

std::wstring TextAsIs(const TupElement* element) {
    // A column that came back NULL (it has a name, but no value) is empty text.
    if (element != nullptr && element->name != nullptr && element->value == nullptr) return std::wstring();
    if (!HasValue(element) || !IsText(element->type))
        throw std::logic_error("basic_string: construction from null is not valid");
    return static_cast<const wchar_t*>(element->value);
}

void RunQuery(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const Trace& trace) {
    RunQuery(db, logger, query, trace.before, trace.after);
}

int RunForCount(dl_MainInterface* db, Logger* logger, dl_MultiValue& query, const Trace& trace) {
    RunQuery(db, logger, query, trace);
    return query.GetRecordCount();
}

}  // namespace provider
