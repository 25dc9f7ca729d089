#include "WSplinesCommands.h"

#include "SplineSelectionModel.h"

namespace WelkPlugin {

void WSplinesCommand::execute()
{
    if (!m_ranOnce) {
        m_old = m_owner->state();
        m_ranOnce = true;
    }
    m_owner->applyState(replaced(m_owner->state(), m_new));
}

void WSplinesCommand::undo()
{
    m_owner->applyState(replaced(m_owner->state(), m_old));
}

WSplinesUpdateCommand::WSplinesUpdateCommand(SplineSelectionModel* owner, const SplineMap& splines,
                                             const QStringList& order)
    : WSplinesCommand(owner)
{
    m_new.splines = splines;
    m_new.order = order;
}

SplinesState WSplinesUpdateCommand::replaced(const SplinesState& current, const SplinesState& from) const
{
    SplinesState state = current;
    state.splines = from.splines;
    state.order = from.order;
    return state;
}

Welk::WCommandDescription WSplinesUpdateCommand::describe() const
{
    return {QStringLiteral("SplinesUpdate (%1 splines)").arg(m_new.splines.size()), {}};
}

WSplinesUpdateSelectedCommand::WSplinesUpdateSelectedCommand(SplineSelectionModel* owner, const QString& selected)
    : WSplinesCommand(owner)
{
    m_new.selected = selected;
}

SplinesState WSplinesUpdateSelectedCommand::replaced(const SplinesState& current, const SplinesState& from) const
{
    SplinesState state = current;
    state.selected = from.selected;
    return state;
}

Welk::WCommandDescription WSplinesUpdateSelectedCommand::describe() const
{
    return {QStringLiteral("SplinesUpdateSelected (%1)").arg(m_new.selected), {}};
}

WSplinesAndSelectedUpdateCommand::WSplinesAndSelectedUpdateCommand(SplineSelectionModel* owner,
                                                                   const SplinesState& state)
    : WSplinesCommand(owner)
{
    m_new = state;
}

SplinesState WSplinesAndSelectedUpdateCommand::replaced(const SplinesState&, const SplinesState& from) const
{
    return from;
}

Welk::WCommandDescription WSplinesAndSelectedUpdateCommand::describe() const
{
    return {QStringLiteral("SplinesAndSelectedUpdate (%1 splines, selected %2)")
                .arg(m_new.splines.size())
                .arg(m_new.selected),
            {}};
}

} // namespace WelkPlugin
