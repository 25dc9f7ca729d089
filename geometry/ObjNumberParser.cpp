#include "ObjNumberParser.h"

#include <limits>

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
    const bool negative = skipBlanksAndSign(p, end);
    float whole = 0.0f;
    while (p < end && isDigit(*p))
        whole = whole * 10.0f + float(*p++ - '0');
    float fraction = 0.0f;
    if (p < end && *p == '.') {
        ++p;
        float scale = 0.1f;
        while (p < end && isDigit(*p)) {
            fraction += float(*p++ - '0') * scale;
            scale *= 0.1f;
        }
    }
    float value = whole + fraction;
    if (negative)
        value = -value;
    if (p < end && (*p == 'e' || *p == 'E')) {
        ++p;
        bool negativeExponent = false;
        if (p < end && (*p == '+' || *p == '-')) {
            negativeExponent = *p == '-';
            ++p;
        }
        int exponent = 0;
        while (p < end && isDigit(*p)) {
            // Past 100 the float has long become 0 or infinity.
            if (exponent < 100)
                exponent = exponent * 10 + (*p - '0');
            ++p;
        }
        for (int i = 0; i < exponent && i < 100; ++i)
            value = negativeExponent ? value / 10.0f : value * 10.0f;
    }
    for (; p < end; ++p) {
        if (!isNumberTail(*p))
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
