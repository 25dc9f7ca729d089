#pragma once

#include <QByteArray>
#include <QString>

#include <ostream>

// Readable Qt strings in GoogleTest failure messages.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QByteArray& bytes, std::ostream* os)
{
    *os << '"' << bytes.toStdString() << '"';
}
