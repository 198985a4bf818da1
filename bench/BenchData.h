#ifndef NORVA_BENCH_BENCHDATA_H
#define NORVA_BENCH_BENCHDATA_H

#include <string>

#include "StatusSubTableRecord.h"
#include "TicketTableRecord.h"

// Table contents the benchmarks run on, written through a connection of
// their own with multi-row INSERTs, and the process memory probe.
namespace benchdata {

// The server named by NORVA_TEST_DB (scripts/db-start.sh), else the default port.
std::string Host();

// What the tables hold while a group of benchmarks runs.
enum class Kind {
    Tickets,        // 1,000 full queue entries (4 KiB JDF each) and one with a 1 MiB JDF
    QueueEntries,   // `rows` small queue entries, keys "1".."rows", MAXID at rows
    Subscriptions   // `rows` full status subscriptions, none sent yet
};
struct Family {
    Kind kind;
    int rows;
    bool operator==(const Family& other) const { return kind == other.kind && rows == other.rows; }
};

// Keys in the Tickets family: a full entry and the one with the 1 MiB JDF.
extern const wchar_t* const kTicketKey;
extern const wchar_t* const kBigJdfKey;

// Empties JDFTICKET and STATSSUBS, zeroes MAXID and fills the family's rows,
// unless that family is loaded already.
void Load(const Family& family);
// Forgets what is loaded, so that the next Load fills the tables again.
void Invalidate();

void Exec(const std::string& statement);
int MaxId();
void SetMaxId(int value);
void DeleteTicket(const std::wstring& qentryId);

// An XML text of exactly `bytes` ASCII characters (no quotes that would end an SQL literal).
std::wstring MakeJdf(size_t bytes);
// Every field set; texts carry `n`; the JDF is 4 KiB.
TicketTableRecord FullTicket(int n);
StatusSubTableRecord FullSubscription(int n);

// Releases free heap to the system and restarts the peak resident size
// (VmHWM, also reported as ru_maxrss) at the current resident size.
void ResetPeakMemory();
double PeakMiB();      // VmHWM
double ResidentMiB();  // VmRSS

}  // namespace benchdata

#endif
