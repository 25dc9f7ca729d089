#include "ModuleContainerBase.h"

#include <QLabel>
#include <QRegularExpression>
#include <QVBoxLayout>

namespace WelkPlugin {

ModuleContainerBase::ModuleContainerBase(const QString& title, QWidget* parent)
    : QWidget(parent), m_title(title), m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(4);
    m_layout->setAlignment(Qt::AlignTop);
}

void ModuleContainerBase::addSection(const QString& heading, const QString& text)
{
    auto* title = new QLabel(heading, this);
    title->setObjectName(QStringLiteral("panelHeading"));
    m_layout->addWidget(title);
    if (!text.isEmpty()) {
        auto* body = new QLabel(text, this);
        body->setObjectName(QStringLiteral("panelNote"));
        body->setWordWrap(true);
        body->setTextFormat(Qt::RichText);
        m_layout->addWidget(body);
    }
}

QString hintToRichText(const QString& hint)
{
    static const QRegularExpression key(QStringLiteral("\\*([^*]+)\\*"));
    QString html = hint.toHtmlEscaped();
    html.replace(key, QStringLiteral("<b style=\"color:#e8912d\">\\1</b>"));
    // Hints of several lines read as one line of items.
    html.replace(QLatin1Char('\n'), QStringLiteral(" &nbsp;\u00b7&nbsp; "));
    return html;
}

} // namespace WelkPlugin
