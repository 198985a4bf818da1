#ifndef NORVA_TIMESTAMP_H
#define NORVA_TIMESTAMP_H

#include <cstdint>

/// Date-time value of record fields. The library never interprets the
/// components; TimeStamp(0) means "not set".
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
