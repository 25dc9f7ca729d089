#pragma once

namespace GeometryStack2 {

/// The OBJ readers' own number parsers: faster than the C library and
/// locale-free. Both take one token [begin, end).
///
/// Floats are rounded correctly (`std::from_chars`): a value written with
/// nine significant digits reads back bit for bit. Out of range gives
/// infinity or zero. A token holding anything but digits, '.', '+', '-',
/// 'e' or 'E' after the number gives NaN instead of an error.
float parseObjFloat(const char* begin, const char* end);

/// Leading blanks, an optional sign and digits; text without digits gives 0.
int parseObjInt(const char* begin, const char* end);

} // namespace GeometryStack2
