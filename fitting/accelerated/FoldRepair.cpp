#include "FoldRepair.h"

#include "FoldTracker.h"
#include "VertexNormals.h"

#include <Eigen/Geometry>

#include <QDebug>
#include <QString>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>

namespace WelkingAcceleratedVersion {

FoldRepair::FoldRepair(const std::vector<Vec3>& rest, const std::vector<long long>& triangles, double tolerance)
    : m_rest(rest), m_triangles(triangles), m_tolerance(tolerance)
{
    if (rest.empty())
        return;
    Vec3 lo = rest[0], hi = rest[0];
    for (const Vec3& p : rest) {
        lo = lo.cwiseMin(p);
        hi = hi.cwiseMax(p);
    }
    m_extent = double((hi - lo).maxCoeff());
}

namespace {

/// RMS distance of a shape's vertices (those not excluded) to their nearest
/// target vertex. Only the vertices that moved from the fitted shape are
/// looked up again.
class TargetDistance
{
public:
    using Vec3 = FoldRepair::Vec3;

    TargetDistance(const std::vector<Vec3>& fitted, const std::vector<char>& excluded, const FoldRepair::Target& target)
        : m_fitted(fitted), m_excluded(excluded), m_target(target), m_squared(fitted.size(), 0.0)
    {
        tbb::parallel_for(tbb::blocked_range<size_t>(0, fitted.size(), 1024), [&](const tbb::blocked_range<size_t>& r) {
            for (size_t v = r.begin(); v < r.end(); ++v)
                m_squared[v] = squared(fitted[v], v);
        });
        m_sum = std::accumulate(m_squared.begin(), m_squared.end(), 0.0);
    }

    double of(const std::vector<Vec3>& shape) const
    {
        const double change = tbb::parallel_reduce(
            tbb::blocked_range<size_t>(0, shape.size(), 1024), 0.0,
            [&](const tbb::blocked_range<size_t>& r, double sum) {
                for (size_t v = r.begin(); v < r.end(); ++v)
                    if (shape[v] != m_fitted[v])
                        sum += squared(shape[v], v) - m_squared[v];
                return sum;
            },
            std::plus<double>());
        return std::sqrt(std::max(0.0, m_sum + change) / double(std::max<size_t>(1, shape.size())));
    }

private:
    double squared(const Vec3& p, size_t v) const
    {
        if (m_excluded[v])
            return 0.0;
        const long long nearest = m_target.tree.findNearestPointInd(p, m_target.points);
        return nearest < 0 ? 0.0 : double((m_target.points[size_t(nearest)] - p).squaredNorm());
    }

    const std::vector<Vec3>& m_fitted;
    const std::vector<char>& m_excluded;
    const FoldRepair::Target& m_target;
    std::vector<double> m_squared;
    double m_sum = 0.0;
};

} // namespace

FoldRepair::Counts FoldRepair::run(std::vector<Vec3>& current, const std::vector<char>& pinned,
                                    const std::vector<char>& excluded, const Target& target) const
{
    Counts counts;
    // A triangle needs repair when it folded where it was not folded at
    // rest. Projecting onto the target (below) must also keep clear of
    // nearly folded triangles, which it would otherwise make by flattening
    // neighbours onto one plane, and which rounding then folds when the
    // result is mapped back to the model's units.
    const double margin = 0.05;
    std::vector<char> restFolds, restAtRisk, restNearFolds;
    {
        // Gone before the repaired shape's tracker takes its memory: on a
        // virtual machine fresh pages cost more than the tests.
        FoldTracker rest(m_triangles, m_rest.size(), margin, m_tolerance);
        rest.reset(m_rest);
        restFolds = rest.folded();
        restAtRisk = rest.atRisk();
        restNearFolds = rest.nearFolded();
    }
    const size_t triangleCount = restFolds.size();
    // Triangles that folded, or came within rounding of it (with `nearToo`,
    // within the margin), where they had not at rest: `added` and its count
    // brought up to date with the triangles `tracker` tested again.
    const auto collectAdded = [&](const FoldTracker& tracker, bool nearToo, std::vector<char>& added, int& count) {
        if (added.size() != triangleCount) {
            added.assign(triangleCount, 0);
            count = 0;
        }
        for (long long i : tracker.retested()) {
            const size_t t = size_t(i);
            const bool near = nearToo ? tracker.nearFolded()[t] : tracker.folded()[t];
            const char now = (tracker.folded()[t] && !restFolds[t]) || (tracker.atRisk()[t] && !restAtRisk[t]) ||
                             (near && !restNearFolds[t]);
            count += int(now) - int(added[t]);
            added[t] = now;
        }
    };
    // The folds of the shape being repaired.
    FoldTracker tracked(m_triangles, current.size(), margin, m_tolerance);
    // The counts reported are of folds proper, as the result's own count is.
    const auto properFolds = [&]() {
        tracked.reset(current);
        int count = 0;
        for (size_t t = 0; t < triangleCount; ++t)
            count += tracked.folded()[t] && !restFolds[t];
        return count;
    };
    counts.before = properFolds();
    std::vector<char> folds;
    int addedCount = 0;
    collectAdded(tracked, false, folds, addedCount);
    counts.after = addedCount;
    if (addedCount == 0)
        return counts;

    // Vertex neighbours as compressed rows, duplicates kept: a shared edge
    // counts twice, which weighs the relaxation a little towards it.
    const size_t n = current.size();
    std::vector<long long> offsets(n + 1, 0), neighbours;
    for (size_t c = 0; c < m_triangles.size(); ++c)
        offsets[size_t(m_triangles[c]) + 1] += 2;
    for (size_t v = 0; v < n; ++v)
        offsets[v + 1] += offsets[v];
    neighbours.resize(size_t(offsets[n]));
    std::vector<long long> fill(offsets.begin(), offsets.end() - 1);
    for (size_t t = 0; t < triangleCount; ++t)
        for (int k = 0; k < 3; ++k) {
            const long long v = m_triangles[3 * t + size_t(k)];
            neighbours[size_t(fill[size_t(v)]++)] = m_triangles[3 * t + size_t((k + 1) % 3)];
            neighbours[size_t(fill[size_t(v)]++)] = m_triangles[3 * t + size_t((k + 2) % 3)];
        }

    // Relax the corners of the added folds (and, while folds persist, a
    // growing ring around them) towards the mean of their neighbours. The
    // rest of the mesh keeps its fitted position.
    const std::vector<Vec3> fitted = current;
    // The region relaxed in a round, as marks and as a list.
    std::vector<char> region(n, 0);
    std::vector<long long> regionList;
    // Where rounds of plain relaxation leave folds, the fit has crushed a
    // strip to a line (the cartoon fit can, along an open border that runs
    // past a partial scan), and averaging keeps a line a line. The next
    // rounds relax towards the rest shape's offsets from the neighbours'
    // mean instead, carried by the similarity that best maps each connected
    // part of the region from rest to its current place.
    std::vector<Vec3> restOffsets(n, Vec3::Zero()), shapeOffsets(n, Vec3::Zero());
    for (size_t v = 0; v < n; ++v)
        if (offsets[v + 1] > offsets[v]) {
            Vec3 mean = Vec3::Zero();
            for (long long k = offsets[v]; k < offsets[v + 1]; ++k)
                mean += m_rest[size_t(neighbours[size_t(k)])];
            restOffsets[v] = m_rest[v] - mean / float(offsets[v + 1] - offsets[v]);
        }
    // Calls `visit` with the vertices of each connected part of the mesh,
    // or, given the region's vertices in ascending order, of the region.
    std::vector<long long> part(n, -1), queue;
    const auto forEachPart = [&](const std::vector<long long>* within, const auto& visit) {
        if (within)
            for (long long v : *within)
                part[size_t(v)] = -1;
        else
            std::fill(part.begin(), part.end(), -1);
        const size_t seeds = within ? within->size() : n;
        for (size_t s = 0; s < seeds; ++s) {
            const size_t seed = within ? size_t((*within)[s]) : s;
            if (part[seed] >= 0)
                continue;
            queue.assign(1, (long long)seed);
            part[seed] = (long long)seed;
            for (size_t i = 0; i < queue.size(); ++i)
                for (long long k = offsets[size_t(queue[i])]; k < offsets[size_t(queue[i]) + 1]; ++k) {
                    const long long u = neighbours[size_t(k)];
                    if ((!within || region[size_t(u)]) && part[size_t(u)] < 0) {
                        part[size_t(u)] = (long long)seed;
                        queue.push_back(u);
                    }
                }
            visit(queue);
        }
    };
    // A separate piece of the basemesh that the fit crushed towards a point
    // as a whole (the cartoon fit can squeeze a small piece that nothing
    // holds) has a similarity of nearly no scale, which would carry nearly
    // no offset. Such a piece's scale goes no lower than half the whole
    // basemesh's; a part within a larger piece keeps its own, as its
    // surroundings give it its size.
    std::vector<long long> pieceSize(n, 0);
    forEachPart(nullptr, [&](const std::vector<long long>& members) {
        for (long long v : members)
            pieceSize[size_t(v)] = (long long)members.size();
    });
    const auto similarityOf = [](const std::vector<long long>& members, const std::vector<Vec3>& from,
                                 const std::vector<Vec3>& to) {
        Eigen::Matrix3Xd a(3, Eigen::Index(members.size())), b(3, Eigen::Index(members.size()));
        for (size_t i = 0; i < members.size(); ++i) {
            a.col(Eigen::Index(i)) = from[size_t(members[i])].cast<double>();
            b.col(Eigen::Index(i)) = to[size_t(members[i])].cast<double>();
        }
        const Eigen::Matrix3d sR = Eigen::umeyama(a, b, true).topLeftCorner<3, 3>();
        return std::make_pair(sR, std::cbrt(std::abs(sR.determinant())));
    };
    std::vector<long long> everyVertex(n);
    std::iota(everyVertex.begin(), everyVertex.end(), 0LL);
    const auto [wholeSimilarity, wholeScale] = similarityOf(everyVertex, m_rest, current);
    const double scaleFloor = 0.5 * wholeScale;
    // Sets the offsets of the region's vertices (the only ones a round reads).
    std::vector<long long> sortedRegion;
    const auto carryRestOffsets = [&]() {
        sortedRegion = regionList;
        std::sort(sortedRegion.begin(), sortedRegion.end());
        forEachPart(&sortedRegion, [&](const std::vector<long long>& members) {
            auto [sR, scale] = similarityOf(members, m_rest, current);
            if (members.size() == size_t(pieceSize[size_t(members[0])]) && wholeScale > 0) {
                if (!(scale > 1e-6 * scaleFloor))
                    sR = wholeSimilarity * (scaleFloor / wholeScale);
                else if (scale < scaleFloor)
                    sR *= scaleFloor / scale;
            }
            const Eigen::Matrix3f similarity = sR.cast<float>();
            for (long long v : members)
                shapeOffsets[size_t(v)] = similarity * restOffsets[size_t(v)];
        });
    };
    // Relaxing a wide region can fold what lay outside the folds, and a
    // part's similarity fits a bent limb poorly: the rounds do not always
    // improve on each other, so the repair ends on the best shape it saw.
    // With `allowed` finite, best counts only among shapes whose vertices
    // lie within `allowed` of the target (RMS to the nearest target vertex).
    const TargetDistance distance(fitted, excluded, target);
    const std::vector<char> fittedFolds = folds;
    const int fittedCount = addedCount;
    std::vector<long long> relaxedVertices;
    std::vector<Vec3> relaxed;
    const auto relaxAndProject = [&](double allowed) {
        const bool bounded = std::isfinite(allowed);
        current = fitted;
        tracked.reset(current);
        folds = fittedFolds;
        addedCount = fittedCount;
        counts.after = fittedCount;
        std::vector<Vec3> best = current;
        int bestCount = fittedCount;
        const int rounds = 200;
        for (int round = 0; round < 3 * rounds && counts.after > 0; ++round) {
            // Where the rest-offset rounds leave folds, their wide rings have
            // often folded what they reopened: a last phase of plain rounds
            // starts again from the best shape with narrow rings.
            if (round == 2 * rounds) {
                current = best;
                tracked.reset(current);
                collectAdded(tracked, false, folds, addedCount);
                counts.after = addedCount;
            }
            for (long long v : regionList)
                region[size_t(v)] = 0;
            regionList.clear();
            const auto include = [&](long long v) {
                if (!region[size_t(v)]) {
                    region[size_t(v)] = 1;
                    regionList.push_back(v);
                }
            };
            for (size_t t = 0; t < triangleCount; ++t)
                if (folds[t])
                    for (int k = 0; k < 3; ++k)
                        include(m_triangles[3 * t + size_t(k)]);
            // Each ring adds the neighbours of the vertices the last one added.
            size_t ringStart = 0;
            for (int ring = 0; ring < 1 + (round % rounds) / 20; ++ring) {
                const size_t ringEnd = regionList.size();
                for (size_t i = ringStart; i < ringEnd; ++i) {
                    const size_t v = size_t(regionList[i]);
                    for (long long k = offsets[v]; k < offsets[v + 1]; ++k)
                        include(neighbours[size_t(k)]);
                }
                ringStart = ringEnd;
            }
            const bool restShape = round >= rounds && round < 2 * rounds;
            if (restShape)
                carryRestOffsets();
            // Every new position from the round's old shape, then all moved.
            relaxedVertices.clear();
            relaxed.clear();
            for (long long i : regionList) {
                const size_t v = size_t(i);
                if (pinned[v] || offsets[v + 1] == offsets[v])
                    continue;
                Vec3 mean = Vec3::Zero();
                for (long long k = offsets[v]; k < offsets[v + 1]; ++k)
                    mean += current[size_t(neighbours[size_t(k)])];
                mean /= float(offsets[v + 1] - offsets[v]);
                if (restShape)
                    mean += shapeOffsets[v];
                relaxedVertices.push_back(i);
                relaxed.push_back(0.5f * (current[v] + mean));
            }
            for (size_t i = 0; i < relaxedVertices.size(); ++i)
                current[size_t(relaxedVertices[i])] = relaxed[i];
            tracked.update(current, relaxedVertices);
            collectAdded(tracked, false, folds, addedCount);
            counts.after = addedCount;
            if (addedCount < bestCount && (!bounded || distance.of(current) <= allowed)) {
                best = current;
                bestCount = addedCount;
            }
        }
        if (counts.after > bestCount || (bounded && distance.of(current) > allowed)) {
            current.swap(best);
            counts.after = bestCount;
        }

        // Relaxing pulls the vertices off the target a little. Put each moved
        // vertex back onto the tangent plane of its nearest target vertex, as
        // the fit's point-to-plane term would, except where that folds again.
        if (counts.after == 0) {
            std::vector<char> moved(n, 0);
            for (size_t v = 0; v < n; ++v)
                moved[v] = !excluded[v] && current[v] != fitted[v];
            const std::vector<Vec3> normals = vertexNormals(current, m_triangles);
            std::vector<Vec3> projected = current;
            tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 512), [&](const tbb::blocked_range<size_t>& r) {
                for (size_t v = r.begin(); v < r.end(); ++v) {
                    if (!moved[v])
                        continue;
                    const long long nearest = target.tree.findNearestPointInd(current[v], target.points);
                    if (nearest < 0)
                        continue;
                    const Vec3& normal = target.normals[size_t(nearest)];
                    if (normals[v].dot(normal) < target.normalsThreshold)
                        continue;
                    projected[v] = current[v] + normal * normal.dot(target.points[size_t(nearest)] - current[v]);
                }
            });
            // A triangle squeezed to a sliver has a direction that rounding alone
            // can turn over.
            const auto area = [this](size_t t, const std::vector<Vec3>& shape) {
                const Vec3& a = shape[size_t(m_triangles[3 * t])];
                return (shape[size_t(m_triangles[3 * t + 1])] - a).cross(shape[size_t(m_triangles[3 * t + 2])] - a).norm();
            };
            const auto collapsed = [&](size_t t, const std::vector<Vec3>& shape) {
                return area(t, shape) < 0.25f * area(t, current);
            };
            // Back to the relaxed position wherever a projected triangle folds or
            // collapses, until none does; the relaxed shape has no added fold.
            tracked.reset(projected);
            std::vector<char> projectedFolds;
            int projectedCount = 0;
            collectAdded(tracked, true, projectedFolds, projectedCount);
            std::vector<long long> reverted;
            for (;;) {
                bool clean = true;
                reverted.clear();
                for (size_t t = 0; t < triangleCount; ++t)
                    if (projectedFolds[t] || collapsed(t, projected))
                        for (int k = 0; k < 3; ++k) {
                            // A triangle's test reads its corners' neighbours too.
                            const size_t corner = size_t(m_triangles[3 * t + size_t(k)]);
                            for (long long e = offsets[corner] - 1; e < offsets[corner + 1]; ++e) {
                                const size_t v = e < offsets[corner] ? corner : size_t(neighbours[size_t(e)]);
                                if (projected[v] != current[v]) {
                                    projected[v] = current[v];
                                    reverted.push_back((long long)v);
                                    clean = false;
                                }
                            }
                        }
                if (clean)
                    break;
                tracked.update(projected, reverted);
                collectAdded(tracked, true, projectedFolds, projectedCount);
            }
            current.swap(projected);
        }
    };
    relaxAndProject(std::numeric_limits<double>::infinity());
    // A repair may not undo the fit. Relaxed with nothing but pinned points
    // to hold it, a wide region of a coarse basemesh flattens: on a demo
    // basemesh of 386 vertices, whose point pairs pulled it across the
    // model, the repaired shape lay 3.9 times as far from the target as the
    // fit left it, farther than where the fit began. Such a repair is run
    // again, ending on the best shape that stays near the target, and
    // failing that the fit's own shape is kept with its folds. (The shared
    // pairs' repaired shapes lie at most 1.27 times as far.)
    const double fittedDistance = distance.of(fitted);
    const double allowed = 1.5 * fittedDistance + 0.005 * m_extent;
    if (const double repairedDistance = distance.of(current); repairedDistance > allowed) {
        qDebug().noquote() << QStringLiteral("Fold repair: drew the shape away from the target (%1 against %2); "
                                             "again, staying near it")
                                  .arg(repairedDistance)
                                  .arg(fittedDistance);
        relaxAndProject(allowed);
        if (distance.of(current) > allowed)
            current = fitted;
    }
    counts.after = properFolds();
    qDebug().noquote() << QStringLiteral("Fold repair: %1 added fold-overs before, %2 after")
                              .arg(counts.before)
                              .arg(counts.after);
    return counts;
}

} // namespace WelkingAcceleratedVersion
