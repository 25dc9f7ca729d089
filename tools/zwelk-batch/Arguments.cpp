#include "Arguments.h"

namespace ZWelkBatch {

Arguments::Arguments(const QStringList& words, const QSet<QString>& valueOptions, const QSet<QString>& flags)
{
    for (int i = 0; i < words.size(); ++i) {
        const QString& word = words[i];
        const bool known = flags.contains(word) || valueOptions.contains(word);
        if (!known && (!word.startsWith(QLatin1String("--")) || word == QLatin1String("--"))) {
            m_positional.append(word);
            continue;
        }
        if (flags.contains(word)) {
            m_flags.insert(word);
        } else if (valueOptions.contains(word)) {
            if (i + 1 >= words.size()) {
                m_error = QStringLiteral("%1 needs a value").arg(word);
                return;
            }
            m_values.insert(word, words[++i]);
        } else {
            m_error = QStringLiteral("unknown option %1").arg(word);
            return;
        }
    }
}

} // namespace ZWelkBatch
