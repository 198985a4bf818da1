#include "TimeStamp.h"

TimeStamp::TimeStamp(int value)
    : year(value), month(value), day(value), hour(value), minute(value), second(value), fraction(value),
      zone(value) {}

TimeStamp::TimeStamp(const TimeStamp& other) = default;

TimeStamp& TimeStamp::operator=(const TimeStamp& other) {
    if (this == &other) return *this;
    year = other.year;
    month = other.month;
    day = other.day;
    hour = other.hour;
    minute = other.minute;
    second = other.second;
    fraction = other.fraction;
    zone = other.zone;
    return *this;
}

TimeStamp::~TimeStamp() {}

bool TimeStamp::operator==(const TimeStamp& other) const {
    return year == other.year && month == other.month && day == other.day && hour == other.hour &&
           minute == other.minute && second == other.second && fraction == other.fraction && zone == other.zone;
}

bool TimeStamp::operator!=(const TimeStamp& other) const { return !(*this == other); }
