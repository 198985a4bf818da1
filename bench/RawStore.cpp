#include "RawStore.h"

#include <StringUtils.h>
#include <cppconn/connection.h>
#include <cppconn/driver.h>
#include <cppconn/exception.h>
#include <cppconn/resultset.h>
#include <cppconn/statement.h>
#include <mysql_driver.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace {

std::string Narrow(const std::wstring& text) { return StringUtils::UTF8FromUni(text); }

std::wstring Wide(const sql::SQLString& text) { return StringUtils::wstringFromstring(text.asStdString()); }

// The fields a "SELECT TABLE.*" read fills, by column name. DATETIME
// columns are left out: the library reads them back without a value, so
// the record keeps TimeStamp(0).
template <class R>
struct TextField {
    const char* column;
    std::wstring R::*field;
};
template <class R>
struct IntField {
    const char* column;
    int R::*field;
};

typedef TicketTableRecord Ticket;
const TextField<Ticket> kTicketTexts[] = {
    {"HOLDDEVID", &Ticket::holdDevId},   {"JDF", &Ticket::jdf},
    {"JMFRETURL", &Ticket::jmfRetUrl},   {"JOBID", &Ticket::jobId},
    {"JOBPARTID", &Ticket::jobPartId},   {"QSUBSPARAMS", &Ticket::qsubsParams},
    {"SENDERID", &Ticket::senderId},     {"STATUSMSG", &Ticket::statusMsg},
    {"UPLOADURL", &Ticket::uploadUrl},   {"QENTRYID", &Ticket::qentryId},
    {"PREVIEWCACHEDFILEPATH", &Ticket::previewCachedFilePath},
    {"PREVIEWREMOTEURL", &Ticket::previewRemoteUrl}};
const IntField<Ticket> kTicketInts[] = {{"STATUS", &Ticket::status}, {"STATE", &Ticket::state}};

typedef StatusSubTableRecord Sub;
const TextField<Sub> kSubTexts[] = {
    {"REFID", &Sub::REFID},       {"URL", &Sub::URL},           {"STATSUBS", &Sub::STATSUBS},
    {"LASTSIG", &Sub::LASTSIG},   {"DEVDETLEVEL", &Sub::DEVDETLEVEL}, {"JOBDETAIL", &Sub::JOBDETAIL},
    {"DEVICEID", &Sub::DEVICEID}, {"QENTRYID", &Sub::QENTRYID}, {"JOBID", &Sub::JOBID},
    {"JOBPARTID", &Sub::JOBPARTID}, {"RESPONSE", &Sub::RESPONSE}, {"SENDERID", &Sub::SENDERID}};
const IntField<Sub> kSubInts[] = {{"ID", &Sub::ID},
                                  {"QUEUEINFO", &Sub::QUEUEINFO},
                                  {"EMPLOYEINFO", &Sub::EMPLOYEINFO},
                                  {"REPEATSTEP", &Sub::REPEATSTEP},
                                  {"REPEATTIME", &Sub::REPEATTIME}};

// Finds the positions of the named columns in a result once; later calls reuse them.
template <class R, size_t T, size_t I>
void ResolveColumns(sql::ResultSet& rows, const TextField<R> (&texts)[T], const IntField<R> (&ints)[I],
                    std::vector<int>& positions) {
    if (!positions.empty()) return;
    for (const auto& text : texts) positions.push_back(static_cast<int>(rows.findColumn(text.column)));
    for (const auto& number : ints) positions.push_back(static_cast<int>(rows.findColumn(number.column)));
}

template <class R, size_t T, size_t I>
void ReadRow(sql::ResultSet& rows, const TextField<R> (&texts)[T], const IntField<R> (&ints)[I],
             const std::vector<int>& positions, R& rec) {
    size_t at = 0;
    for (const auto& text : texts) rec.*text.field = Wide(rows.getString(positions[at++]));
    for (const auto& number : ints) rec.*number.field = rows.getInt(positions[at++]);
}

}  // namespace

sql::Connection* ConnectLikeLibrary(const std::string& host) {
    sql::ConnectOptionsMap options;
    options["hostName"] = sql::SQLString(host);
    options["userName"] = sql::SQLString("lumbo27");
    options["password"] = sql::SQLString("lumbo27");
    options["OPT_RECONNECT"] = true;
    options["schema"] = sql::SQLString("jdfdb");
    options["OPT_CHARSET_NAME"] = sql::SQLString("utf8mb4");
    return sql::mysql::get_driver_instance()->connect(options);
}

RawStore::RawStore(const std::string& host) : m_connection(ConnectLikeLibrary(host)) {}

RawStore::~RawStore() { delete m_connection; }

std::unique_ptr<sql::ResultSet> RawStore::Run(const std::string& text) {
    if (record) record->push_back(text);
    if (m_connection->isClosed()) throw std::runtime_error("the raw connection is closed");
    std::unique_ptr<sql::Statement> statement(m_connection->createStatement());
    try {
        if (statement->execute(text)) return std::unique_ptr<sql::ResultSet>(statement->getResultSet());
    } catch (const sql::SQLException&) {
        // A refused statement counts as done, as in the library.
    }
    return nullptr;
}

bool RawStore::GetTicketStatus(const std::wstring& qentryId, int& status) {
    if (qentryId.empty()) return false;
    std::unique_ptr<sql::ResultSet> rows = Run("SELECT STATUS FROM JDFTICKET WHERE QENTRYID = '" + Narrow(qentryId) + "'");
    if (!rows) return false;
    if (rows->next()) status = rows->getInt(1);
    return true;
}

bool RawStore::UpdateTicketStatus(const std::wstring& qentryId, int status) {
    Run("UPDATE JDFTICKET SET STATUS = '" + std::to_string(status) + "' WHERE QENTRYID = '" + Narrow(qentryId) + "'");
    return true;
}

bool RawStore::GetTicketRecord(const std::wstring& qentryId, TicketTableRecord* rec) {
    if (qentryId.empty() || rec == nullptr) return false;
    std::unique_ptr<sql::ResultSet> rows =
        Run("SELECT JDFTICKET.* FROM JDFTICKET WHERE ( JDFTICKET.QENTRYID = '" + Narrow(qentryId) + "' ) ");
    if (!rows || !rows->next()) return false;
    ReadTicket(*rows, *rec);
    return !rows->next();  // exactly one row
}

bool RawStore::GetJDF(const std::wstring& qentryId, std::wstring& jdf) {
    std::unique_ptr<sql::ResultSet> rows = Run("SELECT JDF FROM JDFTICKET WHERE QENTRYID = '" + Narrow(qentryId) + "'");
    if (!rows) return false;
    jdf = rows->next() ? Wide(rows->getString(1)) : std::wstring();
    return true;
}

bool RawStore::AddTicket(TicketTableRecord* rec) {
    if (!rec->qentryId.empty()) return false;
    // Sequential identifier: one past the larger of the stored mark and the largest key.
    long top = 0;
    if (std::unique_ptr<sql::ResultSet> mark = Run("SELECT JDFTICKET FROM MAXID"))
        while (mark->next()) top = mark->getInt(1);
    std::unique_ptr<sql::ResultSet> keys = Run("SELECT QENTRYID FROM JDFTICKET");
    if (!keys) return false;
    while (keys->next()) top = std::max(top, std::strtol(keys->getString(1).c_str(), nullptr, 10));
    const std::string id = std::to_string(top + 1);
    Run("UPDATE MAXID SET JDFTICKET ='" + id + "'");
    Run("INSERT INTO JDFTICKET(QENTRYID) VALUES('" + id + "')");
    rec->qentryId = StringUtils::wstringFromstring(id);

    const std::string where = "' WHERE QENTRYID = '" + id + "'";
    auto text = [&](const char* column, const std::wstring& value) {
        if (!value.empty()) Run(std::string("UPDATE JDFTICKET SET ") + column + " = '" + Narrow(value) + where);
    };
    auto blob = [&](const char* column, const std::wstring& value) {
        if (!value.empty()) Run(std::string("UPDATE JDFTICKET SET ") + column + "='" + Narrow(value) + where);
    };
    auto number = [&](const char* column, int value) {
        if (value != -1) Run(std::string("UPDATE JDFTICKET SET ") + column + " = '" + std::to_string(value) + where);
    };
    // The library writes a set time stamp as an empty text, which the server refuses.
    auto time = [&](const char* column, const TimeStamp& value) {
        if (value != TimeStamp(0)) Run(std::string("UPDATE JDFTICKET SET ") + column + " = '" + where);
    };
    blob("JDF", rec->jdf);
    text("HOLDDEVID", rec->holdDevId);
    text("JMFRETURL", rec->jmfRetUrl);
    text("PREVIEWCACHEDFILEPATH", rec->previewCachedFilePath);
    text("PREVIEWREMOTEURL", rec->previewRemoteUrl);
    text("UPLOADURL", rec->uploadUrl);
    text("SENDERID", rec->senderId);
    time("SUBTIME", rec->subTime);
    time("LASTUPDATETIME", rec->lastUpdateTime);
    blob("QSUBSPARAMS", rec->qsubsParams);
    text("STATUSMSG", rec->statusMsg);
    number("STATUS", rec->status);
    number("STATE", rec->state);
    text("JOBID", rec->jobId);
    text("JOBPARTID", rec->jobPartId);
    return true;
}

std::list<std::wstring> RawStore::GetAllQueueEntryIDs() {
    std::list<std::wstring> keys;
    std::unique_ptr<sql::ResultSet> rows = Run("SELECT JDFTICKET.QENTRYID FROM JDFTICKET");
    if (!rows) return keys;
    while (rows->next()) keys.push_front(Wide(rows->getString(1)));  // last row first, as the provider
    return keys;
}

bool RawStore::GetAllTicketRecords(std::vector<TicketTableRecord>& out) {
    std::unique_ptr<sql::ResultSet> rows = Run("SELECT JDFTICKET.* FROM JDFTICKET");
    if (!rows) return false;
    while (rows->next()) {
        out.emplace_back();
        ReadTicket(*rows, out.back());
    }
    return true;
}

// The row's ticket columns; the time stamps stay TimeStamp(0), as the library's do.
void RawStore::ReadTicket(sql::ResultSet& rows, TicketTableRecord& rec) {
    ResolveColumns(rows, kTicketTexts, kTicketInts, m_ticketColumns);
    ReadRow(rows, kTicketTexts, kTicketInts, m_ticketColumns, rec);
    rec.subTime = TimeStamp(0);
    rec.lastUpdateTime = TimeStamp(0);
}

RawStore::TicketField RawStore::FindTicketField(const char* column) {
    TicketField found;
    for (const auto& field : kTicketTexts)
        if (column && std::strcmp(field.column, column) == 0) found.text = field.field;
    for (const auto& field : kTicketInts)
        if (column && std::strcmp(field.column, column) == 0) found.number = field.field;
    return found;
}

bool RawStore::GetStatusSubRecords(bool sendStatus, std::vector<StatusSubTableRecord>& out) {
    std::unique_ptr<sql::ResultSet> rows =
        Run(std::string("SELECT STATSSUBS.* FROM STATSSUBS WHERE ( STATSSUBS.LASTSIGSENDSTATUS = '") +
            (sendStatus ? "1" : "0") + "' ) ");
    if (!rows) return true;
    while (rows->next()) {
        ResolveColumns(*rows, kSubTexts, kSubInts, m_subColumns);
        StatusSubTableRecord rec;
        ReadRow(*rows, kSubTexts, kSubInts, m_subColumns, rec);
        out.push_back(rec);
    }
    return true;
}
