#ifndef NORVA_BENCH_RAWSTORE_H
#define NORVA_BENCH_RAWSTORE_H

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "StatusSubTableRecord.h"
#include "TicketTableRecord.h"

namespace sql {
class Connection;
class ResultSet;
}  // namespace sql

// A connection opened with the library's own connect options.
sql::Connection* ConnectLikeLibrary(const std::string& host);

// The benchmarked provider operations written directly against the
// connector. Each sends exactly the statement texts the library sends, in
// the same order, and runs every one as the library does: liveness check,
// a statement object per text, execute, take the result set, free the
// statement. Results land in the same output types as the providers'.
class RawStore {
public:
    explicit RawStore(const std::string& host);
    ~RawStore();

    bool GetTicketStatus(const std::wstring& qentryId, int& status);
    bool UpdateTicketStatus(const std::wstring& qentryId, int status);
    bool GetTicketRecord(const std::wstring& qentryId, TicketTableRecord* rec);
    bool GetJDF(const std::wstring& qentryId, std::wstring& jdf);
    bool AddTicket(TicketTableRecord* rec);
    std::list<std::wstring> GetAllQueueEntryIDs();
    bool GetStatusSubRecords(bool sendStatus, std::vector<StatusSubTableRecord>& out);
    // Every queue entry, whole, in the order the server returns them.
    bool GetAllTicketRecords(std::vector<TicketTableRecord>& out);

    // The field of a ticket record that a column of "SELECT JDFTICKET.*"
    // fills, set from a text or a number (a missing one counts as "" or 0,
    // as the connector reads a NULL); a column no field takes sets nothing.
    struct TicketField {
        std::wstring TicketTableRecord::*text = nullptr;
        int TicketTableRecord::*number = nullptr;
        void Set(TicketTableRecord& rec, const wchar_t* textValue, const int* numberValue) const {
            if (text) rec.*text = textValue ? textValue : L"";
            if (number) rec.*number = numberValue ? *numberValue : 0;
        }
    };
    static TicketField FindTicketField(const char* column);

    // When set, each statement text is appended here before it runs.
    std::vector<std::string>* record = nullptr;

    RawStore(const RawStore&) = delete;
    RawStore& operator=(const RawStore&) = delete;

private:
    std::unique_ptr<sql::ResultSet> Run(const std::string& text);
    void ReadTicket(sql::ResultSet& rows, TicketTableRecord& rec);

    sql::Connection* m_connection;
    // Column positions of the two "SELECT TABLE.*" results, found once.
    std::vector<int> m_ticketColumns;
    std::vector<int> m_subColumns;
};

#endif
