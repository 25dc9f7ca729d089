#pragma once

#include "ProgramDriver.h"

#include <QApplication>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPushButton>
#include <QTimer>

/// Input as a person gives it, sent through Qt's event system.
namespace GuiEvents {

/// A press, move or release of `button` at `at` in `w`'s coordinates.
inline void mouse(QWidget* w, QEvent::Type type, QPoint at, Qt::MouseButton button,
                  Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    const Qt::MouseButton changed = type == QEvent::MouseMove ? Qt::NoButton : button;
    const Qt::MouseButtons held =
        type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
    QMouseEvent event(type, at, w->mapToGlobal(at), changed, held, modifiers);
    QApplication::sendEvent(w, &event);
}

/// A left click (press and release) at `at`.
inline void click(QWidget* w, QPoint at, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    mouse(w, QEvent::MouseButtonPress, at, Qt::LeftButton, modifiers);
    mouse(w, QEvent::MouseButtonRelease, at, Qt::LeftButton, modifiers);
}

/// A message box blocks the step that opens it: this answers the next one
/// from a timer instead.
/// A visible push button of `window` reading `label`, as a person finds it.
inline QPushButton* button(QWidget* window, const QString& label)
{
    for (QPushButton* b : window->findChildren<QPushButton*>())
        if (b->text() == label && b->isVisible())
            return b;
    return nullptr;
}

/// Presses `answer` on the message box that is open `delayMs` from now;
/// `text`, when given, receives that box's text (empty: no box came).
inline void answerNextBox(QMessageBox::StandardButton answer, int delayMs = 200, QString* text = nullptr)
{
    QTimer::singleShot(delayMs, [answer, text] {
        if (QMessageBox* box = ProgramDriver::messageBox()) {
            if (text)
                *text = box->text();
            if (QAbstractButton* b = box->button(answer))
                b->click();
        }
    });
}

} // namespace GuiEvents
