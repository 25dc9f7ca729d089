#pragma once

#include <cstring>

namespace TestSupport {

/// Whether two values are the same bit for bit: for the checks that a
/// faster form of a computation rounds exactly as the plain one (NaN equal
/// to the same NaN, 0 and -0 told apart).
template <typename T> bool sameBits(const T& a, const T& b)
{
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

} // namespace TestSupport
