#pragma once

#include <QObject>

namespace Welk {
class WContextNavigation2;
}

namespace WelkPlugin {

/// Locks the cameras of the two model views together: a move in one is
/// repeated in the other while enabled. `side` records which view led last.
class ContextSyncController : public QObject
{
    Q_OBJECT
public:
    ContextSyncController(Welk::WContextNavigation2* left, Welk::WContextNavigation2* right,
                          QObject* parent = nullptr);

    bool isEnabled() const { return m_enabled; }
    int side() const { return m_side; }

public slots:
    void setEnabled(bool enabled);
    /// The right view moved: copy its camera to the left one.
    void syncRightContext();
    /// The left view moved: copy its camera to the right one.
    void syncLeftContext();

private:
    static void copy(const Welk::WContextNavigation2& from, Welk::WContextNavigation2& to);

    bool m_enabled = true;
    int m_side = 0;
    Welk::WContextNavigation2* m_contexts[2];
};

} // namespace WelkPlugin
