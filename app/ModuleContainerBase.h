#pragma once

#include <QWidget>

class QVBoxLayout;

namespace WelkPlugin {

/// A step page of the main window. Subclasses fill the panel and say what
/// the step is for; the mode controller reaches their parts through the
/// virtual accessors.
class ModuleContainerBase : public QWidget
{
    Q_OBJECT
public:
    ModuleContainerBase(const QString& title, QWidget* parent = nullptr);

    QString title() const { return m_title; }
    /// The bottom bar's hint while this step is shown; *KEY* words are
    /// emphasised.
    virtual QString hint() const = 0;
    /// The step's working widget (the page itself unless a step has a
    /// dedicated one).
    virtual QWidget* widget() { return this; }

signals:
    void windowShown();

protected:
    /// Adds a bold heading and, below it, a paragraph.
    void addSection(const QString& heading, const QString& text);
    QVBoxLayout* panelLayout() const { return m_layout; }

private:
    QString m_title;
    QVBoxLayout* m_layout;
};

/// Renders *KEY* words of a hint as bold rich text.
QString hintToRichText(const QString& hint);

} // namespace WelkPlugin
