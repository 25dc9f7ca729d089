#pragma once

#include "PointSelectionState.h"

#include "document/commands/WCommand.h"

#include <QVector>

namespace WelkPlugin {

class PointSelectionModel;

/// A change of the correspondence points, over the model that owns them.
class WCommandPointsOnTr : public Welk::WCommand
{
public:
    explicit WCommandPointsOnTr(PointSelectionModel* owner) : m_owner(owner) {}

protected:
    PointSelectionModel* m_owner;
};

/// Replaces both sides' lists: run puts the new pair into the owner, undo
/// the old pair, which the first run copies from the owner.
class WCmdUpdatePointsOnTr : public WCommandPointsOnTr
{
public:
    WCmdUpdatePointsOnTr(PointSelectionModel* owner, const PointSelectionState& newState);

    void execute() override;
    void undo() override;
    Welk::WCommandDescription describe() const override;

    const PointSelectionState& oldState() const { return m_old; }
    const PointSelectionState& newState() const { return m_new; }

private:
    PointSelectionState m_old;
    PointSelectionState m_new;
    bool m_ranOnce = false;
};

/// One user edit: its parts run first to last and are undone last to first.
class WCmdModifyPointOnTr : public WCommandPointsOnTr
{
public:
    explicit WCmdModifyPointOnTr(PointSelectionModel* owner) : WCommandPointsOnTr(owner) {}
    ~WCmdModifyPointOnTr() override;
    WCmdModifyPointOnTr(const WCmdModifyPointOnTr&) = delete;
    WCmdModifyPointOnTr& operator=(const WCmdModifyPointOnTr&) = delete;

    /// Takes ownership.
    void addChild(Welk::WCommand* child) { m_children.append(child); }
    int childCount() const { return m_children.size(); }

    void execute() override;
    void undo() override;
    Welk::WCommandDescription describe() const override;

private:
    QVector<Welk::WCommand*> m_children;
    bool m_executed = false;
};

} // namespace WelkPlugin
