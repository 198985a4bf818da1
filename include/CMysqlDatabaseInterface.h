#ifndef NORVA_CMYSQLDATABASEINTERFACE_H
#define NORVA_CMYSQLDATABASEINTERFACE_H

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "DatabaseConnection.h"
#include "_BLOB.h"
#include "dl_MainInterface.h"
#include "mutex.h"

namespace sql {
class ResultSet;
}
class Logger;
class StoreDialect;

/// The MySQL implementation of the generic store; one per process.
///
/// Every operation logs "Inside CMysqlDatabaseInterface::<operation>()" and
/// "Returning from ..." around its work and each SQL statement before it
/// runs (level 5, so only with LogLevel = 5; in the `safe` profile the text
/// with its placeholders, then its values); a failed statement is logged
/// with the server's message and reported, where an operation reports at
/// all, as `false` or an unfilled result. No exception leaves an operation.
/// A configuration value the store cannot understand makes it refuse to
/// run: every operation answers as a failed one and writes nothing.
class CMysqlDatabaseInterface : public dl_MainInterface {
public:
    /// The store of the process, created on the first call together with its
    /// connection (configuration keys DBIPAddr, IDPattern, Profile,
    /// Connections are read then). Not synchronised: make the first call, or
    /// the first CDataAccessProvider::GetInstance(), before starting threads.
    static CMysqlDatabaseInterface* GetInstance();
    /// The instance GetInstance() hands out; null before the first call.
    static CMysqlDatabaseInterface* mDatabaseInterfaceP;

    /// Copying exists only to keep the singleton whole: nothing is carried over.
    CMysqlDatabaseInterface(const CMysqlDatabaseInterface& other);
    /// Keeps the object as it is (see the copy constructor).
    CMysqlDatabaseInterface& operator=(const CMysqlDatabaseInterface& other);
    /// Touches neither the connection nor mDatabaseInterfaceP; the store of
    /// the process is never destroyed.
    ~CMysqlDatabaseInterface() override;

    void GenerateNewID(TICKET_TYPE_NV table, void* out, PARAM_TYPE_NV keyType) override;
    bool AddNewTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) override;
    bool DeleteParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                         const char* column, PARAM_TYPE_NV valueType) override;
    bool AddParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                      const char* column, const void* value, PARAM_TYPE_NV valueType) override;
    bool GetParameter(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType,
                      const char* column, void* value, PARAM_TYPE_NV valueType) override;
    bool DeleteTicket(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType) override;
    void ExecuteQuery(dl_MultiValue* query) override;
    /// The profile chosen when the store was created: "exact" or "safe".
    const char* ProfileName() const;

    /// The table name of a table type, from the built-in catalogue; empty,
    /// with a log line, for an unknown type.
    std::string GetTicketType(TICKET_TYPE_NV table);
    /// The key column of a table ("QENTRYID", "CONTENTID", ...); empty for an
    /// unknown table.
    std::string GetPrimaryKey(TICKET_TYPE_NV table);

    /// Writes one typed value as SQL literal text, as it stands: no quotes
    /// added, nothing escaped, time stamps not written. The `exact` profile
    /// puts its values into statements so; the `safe` one never puts a value
    /// into a statement's text.
    void SendValueToCursor(PARAM_TYPE_NV type, std::ostringstream& out, const void* value);

    /// Writes one long wide text column in one statement (its result is only
    /// logged). Long wide texts take no store lock: they keep no state of the
    /// store, and the connection's lock serialises their statement.
    bool AddBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType, const char* column,
                 _BLOB* blob);
    /// Reads one long text column into `blob->data` (allocated here, an empty
    /// text when the row is missing); `false` when the statement failed or
    /// `column` has no "TABLE." part. Pass an empty _BLOB.
    bool GetBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType, const char* column,
                 _BLOB* blob);

    /// The high-water mark of `table` from the MAXID row (0 without a row).
    /// Identifier generation; GetMaxId and UpdateMaxId run under GenerateNewID's lock.
    int GetMaxId(TICKET_TYPE_NV table);
    /// Stores the high-water mark of `table` in the MAXID row.
    void UpdateMaxId(TICKET_TYPE_NV table, int value);
    /// Picks the next int id from the keys read (see GenerateNewID) and writes
    /// it to `out`; -1 when none is left.
    void GenerateIntID(sql::ResultSet* keys, const std::string& keyColumn, void*& out, int* maxId);
    /// Picks the next id from the text keys read (their leading numbers) and
    /// writes its decimal text to the wchar_t buffer `out`.
    void GenerateStringID(sql::ResultSet* keys, const std::string& keyColumn, void*& out, int* maxId);

protected:
    /// Reads DBIPAddr and IDPattern and takes the connection; use GetInstance().
    CMysqlDatabaseInterface();

private:
    friend struct StoreAccess;

    /// Whether the store refuses to run (a configuration value it could not
    /// understand); then logs why, at the error level.
    bool Refused() const;

    mutex m_mutex;
    CDatabaseConnection* m_pDBConnection;
    std::string m_userName;
    std::string m_password;
    std::string m_hostName;
    bool m_bIDPattern;
    std::unique_ptr<StoreDialect> m_pDialect;  // how the chosen profile writes and reads
    std::string m_refusal;  // why the store refuses to run; empty when it runs
    Logger* m_pLogger;
};

#endif
