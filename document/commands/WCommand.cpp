#include "WCommand.h"

namespace Welk {

WCommand::~WCommand() = default;

QString WCommandDescription::toString(int indent) const
{
    QString result = QString(indent, QLatin1Char(' ')) + text;
    for (const WCommandDescription& child : children)
        result += QLatin1Char('\n') + child.toString(indent + 2);
    return result;
}

} // namespace Welk
