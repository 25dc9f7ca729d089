#pragma once

#include <QObject>
#include <QPointer>
#include <QVector>

class QWidget;

namespace Welk {

/// Watches a widget's chain of parents and tells before and after its
/// top-level window changes, which is when a QOpenGLWidget's context dies.
class ParentChangeListener : public QObject
{
    Q_OBJECT
public:
    explicit ParentChangeListener(QWidget* widget);

signals:
    void parentChange(QWidget* topWidget);
    void parentAboutToChange();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void watchChain();

    QWidget* m_widget;
    QVector<QPointer<QWidget>> m_watched;
};

} // namespace Welk
