#include "WCommandPointsOnTr.h"

#include "PointSelectionModel.h"

namespace WelkPlugin {

WCmdUpdatePointsOnTr::WCmdUpdatePointsOnTr(PointSelectionModel* owner, const PointSelectionState& newState)
    : WCommandPointsOnTr(owner), m_new(newState)
{
}

void WCmdUpdatePointsOnTr::execute()
{
    if (!m_ranOnce) {
        m_old = m_owner->state();
        m_ranOnce = true;
    }
    m_owner->applyState(m_new);
}

void WCmdUpdatePointsOnTr::undo()
{
    m_owner->applyState(m_old);
}

Welk::WCommandDescription WCmdUpdatePointsOnTr::describe() const
{
    return {QStringLiteral("UpdatePointsOnTr (%1 / %2 points)")
                .arg(m_new.points[0].size())
                .arg(m_new.points[1].size()),
            {}};
}

WCmdModifyPointOnTr::~WCmdModifyPointOnTr()
{
    qDeleteAll(m_children);
}

void WCmdModifyPointOnTr::execute()
{
    for (Welk::WCommand* child : m_children)
        child->execute();
    m_executed = true;
}

void WCmdModifyPointOnTr::undo()
{
    for (int i = m_children.size() - 1; i >= 0; --i)
        m_children[i]->undo();
    m_executed = false;
}

Welk::WCommandDescription WCmdModifyPointOnTr::describe() const
{
    Welk::WCommandDescription description{QStringLiteral("Correspondence points modify"), {}};
    for (const Welk::WCommand* child : m_children)
        description.children.append(child->describe());
    return description;
}

} // namespace WelkPlugin
