#ifndef NORVA_TIMESTAMP_H
#define NORVA_TIMESTAMP_H

#include <cstdint>

/// Date-time value of record fields; TimeStamp(0) means "not set".
///
/// The exact profile never stores one (it writes '', which a strict server
/// refuses) and reads every time column back as TimeStamp(0). The safe profile
/// writes and reads the components as a DATETIME value:
///   year    the year, 1000 to 9999 (e.g. 2026)
///   month   1 to 12;  day 1 to 31
///   hour    0 to 23;  minute 0 to 59;  second 0 to 59
///   fraction  billionths of a second: not stored (DATETIME keeps whole
///             seconds), so it reads back as 0
///   zone    minutes east of UTC: not stored; the time is kept as the wall
///           clock time given, and reads back with zone 0
/// A time the server cannot take (month 13) makes the write answer false.
/// TimeStamp(0) writes NULL, and a NULL column reads back as TimeStamp(0).
class TimeStamp {
public:
    /// Every component set to `value`; TimeStamp(0) is "not set".
    explicit TimeStamp(int value = 0);
    /// Copies every component.
    TimeStamp(const TimeStamp& other);
    /// Copies every component.
    TimeStamp& operator=(const TimeStamp& other);
    /// Nothing to release.
    ~TimeStamp();

    /// `true` when every component is equal.
    bool operator==(const TimeStamp& other) const;
    /// Negation of operator==.
    bool operator!=(const TimeStamp& other) const;

    int32_t year;  ///< full year, e.g. 2026
    int32_t month;  ///< 1 to 12
    int32_t day;  ///< 1 to 31
    int32_t hour;  ///< 0 to 23
    int32_t minute;  ///< 0 to 59
    int32_t second;  ///< 0 to 59
    int64_t fraction;  ///< fraction of a second (not stored)
    int32_t zone;  ///< time zone (not stored)
};

#endif
