#include "ContextSyncController.h"

#include "WContextNavigation2.h"

#include <QWidget>

namespace WelkPlugin {

using Welk::WContextNavigation2;

ContextSyncController::ContextSyncController(WContextNavigation2* left, WContextNavigation2* right,
                                             QObject* parent)
    : QObject(parent), m_contexts{left, right}
{
    connect(left, &WContextNavigation2::cameraMoved, this, &ContextSyncController::syncLeftContext);
    connect(right, &WContextNavigation2::cameraMoved, this, &ContextSyncController::syncRightContext);
}

void ContextSyncController::setEnabled(bool enabled)
{
    m_enabled = enabled;
    // The view that led last sets the common camera.
    if (m_enabled)
        copy(*m_contexts[m_side], *m_contexts[1 - m_side]);
}

void ContextSyncController::copy(const WContextNavigation2& from, WContextNavigation2& to)
{
    to.setTranslation(from.translation());
    to.setRotationCenter(from.rotationCenter());
    to.setOrientation(from.orientation());
    to.viewport()->update();
}

void ContextSyncController::syncRightContext()
{
    m_side = 1;
    if (m_enabled)
        copy(*m_contexts[1], *m_contexts[0]);
}

void ContextSyncController::syncLeftContext()
{
    m_side = 0;
    if (m_enabled)
        copy(*m_contexts[0], *m_contexts[1]);
}

} // namespace WelkPlugin
