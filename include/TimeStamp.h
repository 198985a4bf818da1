#ifndef NORVA_TIMESTAMP_H
#define NORVA_TIMESTAMP_H

#include <cstdint>

// Date-time value of record fields. The library never interprets the
// components; TimeStamp(0) means "not set".
class TimeStamp {
public:
    explicit TimeStamp(int value = 0);
    TimeStamp(const TimeStamp& other);
    TimeStamp& operator=(const TimeStamp& other);
    ~TimeStamp();

    bool operator==(const TimeStamp& other) const;
    bool operator!=(const TimeStamp& other) const;

    int32_t year;
    int32_t month;
    int32_t day;
    int32_t hour;
    int32_t minute;
    int32_t second;
    int64_t fraction;
    int32_t zone;
};

#endif
