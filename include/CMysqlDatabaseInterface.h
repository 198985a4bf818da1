#ifndef NORVA_CMYSQLDATABASEINTERFACE_H
#define NORVA_CMYSQLDATABASEINTERFACE_H

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

// The MySQL implementation of the generic store; one per process.
class CMysqlDatabaseInterface : public dl_MainInterface {
public:
    static CMysqlDatabaseInterface* GetInstance();
    static CMysqlDatabaseInterface* mDatabaseInterfaceP;

    // Copying exists only to keep the singleton whole: nothing is carried over.
    CMysqlDatabaseInterface(const CMysqlDatabaseInterface& other);
    CMysqlDatabaseInterface& operator=(const CMysqlDatabaseInterface& other);
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

    // The built-in catalogue.
    std::string GetTicketType(TICKET_TYPE_NV table);
    std::string GetPrimaryKey(TICKET_TYPE_NV table);

    // Writes one typed value as SQL literal text (no quotes added).
    void SendValueToCursor(PARAM_TYPE_NV type, std::ostringstream& out, const void* value);

    // Long wide texts. They take no store lock: they keep no state of the
    // store, and the connection's lock serialises their statement.
    bool AddBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType, const char* column,
                 _BLOB* blob);
    bool GetBlob(TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType, const char* column,
                 _BLOB* blob);

    // Identifier generation; GetMaxId and UpdateMaxId run under GenerateNewID's lock.
    int GetMaxId(TICKET_TYPE_NV table);
    void UpdateMaxId(TICKET_TYPE_NV table, int value);
    void GenerateIntID(sql::ResultSet* keys, const std::string& keyColumn, void*& out, int* maxId);
    void GenerateStringID(sql::ResultSet* keys, const std::string& keyColumn, void*& out, int* maxId);

protected:
    CMysqlDatabaseInterface();

private:
    // Chooses the next identifier from the keys and the high-water mark
    // (raised when passed); -1 when none is left.
    int NextID(std::vector<int>& keys, int* maxId);
    // Traces and runs one statement; null without a result set.
    sql::ResultSet* Run(std::string& text);
    // The part of "TABLE.COLUMN" after the first "."; null (logged) without one.
    const char* ColumnPart(const char* column);
    // " WHERE <key column> = '<key>'": how the single-row statements end.
    void AppendWhereKey(std::ostringstream& text, TICKET_TYPE_NV table, const void* key, PARAM_TYPE_NV keyType);
    // "<verb> <column> FROM <table> WHERE <key column> = '<key>'".
    std::string KeyedColumnStatement(const char* verb, const char* name, TICKET_TYPE_NV table, const void* key,
                                     PARAM_TYPE_NV keyType);
    // The two identifier workers differ only in how keys are read and written.
    void GenerateID(sql::ResultSet* keys, const std::string& keyColumn, void* out, int* maxId, bool textKeys);

    mutex m_mutex;
    CDatabaseConnection* m_pDBConnection;
    std::string m_userName;
    std::string m_password;
    std::string m_hostName;
    bool m_bIDPattern;
    Logger* m_pLogger;
};

#endif
