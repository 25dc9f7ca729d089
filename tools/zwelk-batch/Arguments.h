#pragma once

#include <QMap>
#include <QSet>
#include <QStringList>

namespace ZWelkBatch {

/// A command's arguments: positional words, options with a value
/// (`--name value`) and flags (`--name`). Unknown options are errors.
class Arguments
{
public:
    Arguments(const QStringList& words, const QSet<QString>& valueOptions, const QSet<QString>& flags);

    bool ok() const { return m_error.isEmpty(); }
    const QString& error() const { return m_error; }
    const QStringList& positional() const { return m_positional; }
    QString value(const QString& option, const QString& fallback = QString()) const
    {
        return m_values.value(option, fallback);
    }
    bool flag(const QString& name) const { return m_flags.contains(name); }

private:
    QStringList m_positional;
    QMap<QString, QString> m_values;
    QSet<QString> m_flags;
    QString m_error;
};

} // namespace ZWelkBatch
