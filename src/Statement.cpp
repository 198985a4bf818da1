#include "private/Statement.h"

#include <StringUtils.h>

#include <cstdio>
#include <sstream>

#include "TimeStamp.h"
#include "_BLOB.h"

namespace {

// "YYYY-MM-DD HH:MM:SS": a DATETIME keeps neither the fraction nor the zone.
std::string DateTimeText(const TimeStamp& stamp) {
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", stamp.year, stamp.month, stamp.day, stamp.hour,
                  stamp.minute, stamp.second);
    return text;
}

}  // namespace

BoundValue BindValue(PARAM_TYPE_NV type, const void* value) {
    BoundValue bound;
    if (value == nullptr) return bound;
    switch (type) {
        case PARAM_INT:
        case PARAM_INT_2:
        case PARAM_INT_5:
            bound.kind = BoundValue::Kind::Int;
            bound.number = *static_cast<const int32_t*>(value);
            break;
        case PARAM_LONG:
            bound.kind = BoundValue::Kind::Long;
            bound.number = *static_cast<const int64_t*>(value);
            break;
        case PARAM_DOUBLE:
            bound.kind = BoundValue::Kind::Double;
            bound.real = *static_cast<const double*>(value);
            break;
        case PARAM_WSTRING:
        case PARAM_WSTRING_7:
        case PARAM_BLOB:
            bound.kind = BoundValue::Kind::Text;
            bound.text = StringUtils::stringFromwstring(static_cast<const wchar_t*>(value));
            break;
        case PARAM_TIMESTAMP: {
            const TimeStamp& stamp = *static_cast<const TimeStamp*>(value);
            if (stamp == TimeStamp(0)) break;  // not set: NULL
            bound.kind = BoundValue::Kind::Text;
            bound.text = DateTimeText(stamp);
            break;
        }
        default: break;
    }
    return bound;
}

std::wstring TraceValues(const Statement& statement) {
    std::wostringstream out;
    out << L"values: ";
    for (size_t i = 0; i < statement.values.size(); ++i) {
        const BoundValue& value = statement.values[i];
        if (i) out << L", ";
        switch (value.kind) {
            case BoundValue::Kind::Null: out << L"NULL"; break;
            case BoundValue::Kind::Int:
            case BoundValue::Kind::Long: out << value.number; break;
            case BoundValue::Kind::Double: out << value.real; break;
            case BoundValue::Kind::Text: out << L"'" << StringUtils::wstringFromstring(value.text) << L"'"; break;
        }
    }
    return out.str();
}
