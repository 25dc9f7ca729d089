#include "SplinePointPairs.h"

#include "SplineSelectionModel.h"

namespace WelkPlugin {
namespace SplinePointPairs {

namespace {

void addPair(Result& result, const QString& name, const QVector<Welk::WPointOnTriangle>& base,
             const QVector<Welk::WPointOnTriangle>& target, const Side& baseSide, const Side& targetSide, int count,
             const WSpline::Curve& curve)
{
    const QVector<Welk::WPointOnTriangle> a = WSpline::sampleOnSurface(curve, base, *baseSide.mesh, count, baseSide.lookup);
    const QVector<Welk::WPointOnTriangle> b =
        WSpline::sampleOnSurface(curve, target, *targetSide.mesh, count, targetSide.lookup);
    if (a.isEmpty() || b.isEmpty() || a.size() != b.size()) {
        result.empty.append(name);
        return;
    }
    // A sample the lookup could not place has no partner either.
    for (int k = 0; k < a.size(); ++k)
        if (a[k].isValid() && b[k].isValid()) {
            result.base.append(a[k]);
            result.target.append(b[k]);
        }
    result.paired.append(name);
}

} // namespace

Result byName(const SplineMap& base, const SplineMap& target, const Side& baseSide, const Side& targetSide,
              int count, const WSpline::Curve& curve)
{
    Result result;
    for (auto it = base.begin(); it != base.end(); ++it) {
        if (!target.contains(it.key())) {
            result.unpairedBase.append(it.key());
            continue;
        }
        addPair(result, it.key(), it.value(), target.value(it.key()), baseSide, targetSide, count, curve);
    }
    for (auto it = target.begin(); it != target.end(); ++it)
        if (!base.contains(it.key()))
            result.unpairedTarget.append(it.key());
    return result;
}

Result byIndex(const QVector<QVector<Welk::WPointOnTriangle>>& base,
               const QVector<QVector<Welk::WPointOnTriangle>>& target, const QStringList& baseNames,
               const QStringList& targetNames, const Side& baseSide, const Side& targetSide, int count,
               const WSpline::Curve& curve)
{
    Result result;
    const int pairs = std::min(base.size(), target.size());
    for (int i = 0; i < pairs; ++i)
        addPair(result, baseNames.value(i, QString::number(i)), base[i], target[i], baseSide, targetSide, count,
                curve);
    for (int i = pairs; i < base.size(); ++i)
        result.unpairedBase.append(baseNames.value(i, QString::number(i)));
    for (int i = pairs; i < target.size(); ++i)
        result.unpairedTarget.append(targetNames.value(i, QString::number(i)));
    return result;
}

Result fromModels(const SplineSelectionModel& base, const SplineSelectionModel& target)
{
    const Side baseSide{&base.mesh(), base.closestPointLookup()};
    const Side targetSide{&target.mesh(), target.closestPointLookup()};
    return byName(base.splines(), target.splines(), baseSide, targetSide, base.pointsPerSpline(), base.curve());
}

} // namespace SplinePointPairs
} // namespace WelkPlugin
