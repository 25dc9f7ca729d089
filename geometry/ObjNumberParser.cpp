#include "ObjNumberParser.h"

#include <charconv>
#include <limits>
#include <system_error>

namespace GeometryStack2 {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }
bool isNumberTail(char c) { return isDigit(c) || c == '.' || c == '+' || c == '-' || c == 'e' || c == 'E'; }

/// Skips leading blanks and an optional sign; true for a minus.
bool skipBlanksAndSign(const char*& p, const char* end)
{
    while (p < end && isBlank(*p))
        ++p;
    if (p < end && (*p == '+' || *p == '-'))
        return *p++ == '-';
    return false;
}

} // namespace

float parseObjFloat(const char* p, const char* end)
{
    while (p < end && isBlank(*p))
        ++p;
    // std::from_chars rounds correctly; it takes a minus but no plus.
    if (p < end && *p == '+')
        ++p;
    float value = 0.0f;
    auto [next, error] = std::from_chars(p, end, value, std::chars_format::general);
    if (error == std::errc::invalid_argument) {
        // No digits at all ("", "-", "."): zero, as a sign alone gives.
        next = p;
        if (next < end && *next == '-') {
            value = -0.0f;
            ++next;
        }
    } else if (error == std::errc::result_out_of_range) {
        // Too large becomes infinity, too small zero, both with their sign.
        const bool negative = *p == '-';
        bool tiny = false;
        for (const char* c = p; c < next; ++c)
            if (*c == 'e' || *c == 'E') {
                tiny = c + 1 < next && c[1] == '-';
                break;
            }
        value = tiny ? 0.0f : std::numeric_limits<float>::infinity();
        if (negative)
            value = -value;
    }
    for (; next < end; ++next) {
        if (!isNumberTail(*next))
            return std::numeric_limits<float>::quiet_NaN();
    }
    return value;
}

int parseObjInt(const char* p, const char* end)
{
    const bool negative = skipBlanksAndSign(p, end);
    long long value = 0;
    while (p < end && isDigit(*p)) {
        if (value < (1ll << 40))
            value = value * 10 + (*p - '0');
        ++p;
    }
    if (value > std::numeric_limits<int>::max())
        value = std::numeric_limits<int>::max();
    return int(negative ? -value : value);
}

} // namespace GeometryStack2
