#ifndef NORVA_PRIVATE_STOREPROFILE_H
#define NORVA_PRIVATE_STOREPROFILE_H

#include <string>

// How the store builds its SQL and reads the answers, chosen once when the
// store is created (configuration key Profile). "exact" keeps every text and
// result hosts written for this library expect; "safe" is for hosts that
// face untrusted input or share the database with other processes. Each
// field is one difference between the two; the store consults them where it
// builds a statement or reads a result, and nowhere else.
struct StoreProfile {
    const char* name;
    bool quoteNames;        // table and column names in backquotes (reserved words work)
    bool escapeValues;      // values escaped by the server's rules for utf8mb4
    bool times;             // time stamps written as DATETIME values and read back
    bool nullIsUnset;       // NULL reads as not set: -1, empty text, TimeStamp(0)
    bool truthfulAnswers;   // a change the server refused or that matched no row, and a
                            // single-column read that found no row, answer false
    bool clearSetsNull;     // DeleteParameter sets the column to NULL (exact sends a DELETE
                            // the server refuses)
    bool oneStatementRows;  // the columns of one row write go out in one statement
    bool sharedIds;         // identifiers reserved in the database: unique across processes
    int conflictRetries;    // how often a statement refused as a deadlock (1213) runs again, after a random pause
};

const StoreProfile kExactProfile = {"exact", false, false, false, false, false, false, false, false, 0};
const StoreProfile kSafeProfile = {"safe", true, true, true, true, true, true, true, true, 16};

inline const StoreProfile& ProfileNamed(const std::string& name) {
    return name == kSafeProfile.name ? kSafeProfile : kExactProfile;
}

#endif
