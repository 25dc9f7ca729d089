#include "BvhBuilder.h"

#include <tbb/parallel_for.h>
#include <tbb/parallel_invoke.h>
#include <tbb/partitioner.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <numeric>

namespace ClosestTriangleSearch {

namespace {

// Bins of the spatial sweep: up to 32, fewer in small nodes, where each bin
// a triangle spans costs one more box.
constexpr int kMaxSpatialBins = 32;
constexpr int kMinSpatialBins = 8;
constexpr float kInf = std::numeric_limits<float>::infinity();

} // namespace

BvhBuilder::BvhBuilder(const QVector<QVector3D>& vertices, const QVector<int>& triangleIndices,
                       const BvhParameters& parameters)
    : m_vertices(vertices), m_indices(triangleIndices), m_parameters(parameters)
{
}

void BvhBuilder::build(BvhClosestTriangleFinder& target)
{
    const size_t n = size_t(m_indices.size() / 3);
    target.m_nodes.clear();
    target.m_primitives.clear();
    target.m_spatialSplits = 0;
    if (n == 0)
        return;

    // Spatial splits may add up to 30% more references; the limit is fixed here.
    m_capacity = n + size_t(0.3 * double(n));
    m_refs.resize(m_capacity);
    m_side.assign(m_capacity, 0);

    Box scene;
    scene.reset();
    std::mutex sceneMutex;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, n),
        [&](const tbb::blocked_range<size_t>& range) {
            Box partial;
            partial.reset();
            for (size_t t = range.begin(); t != range.end(); ++t) {
                Reference& r = m_refs[t];
                r.box.reset();
                for (int c = 0; c < 3; ++c) {
                    const QVector3D& v = m_vertices[m_indices[int(3 * t) + c]];
                    const float p[3] = {v.x(), v.y(), v.z()};
                    r.box.grow(p);
                }
                for (int a = 0; a < 3; ++a) {
                    float sum = 0.0f;
                    for (int c = 0; c < 3; ++c)
                        sum += m_vertices[m_indices[int(3 * t) + c]][a];
                    // A NaN corner would break the sort's ordering: such a triangle sorts last.
                    r.centroid[a] = std::isnan(sum) ? kInf : sum * 0.33333334f;
                }
                r.triangle = uint32_t(t);
                partial.grow(r.box);
            }
            std::lock_guard<std::mutex> lock(sceneMutex);
            scene.grow(partial);
        },
        tbb::static_partitioner());
    m_refCount = n;
    m_spatialThreshold = 2e-05f * scene.halfArea();

    const size_t nodeCapacity = 2 * m_capacity + 1;
    // Left uninitialised: only the nodes actually made are written and copied.
    m_nodes.reset(new BvhNode[nodeCapacity]);
    m_primitives.reset(new uint32_t[m_capacity]);
    m_nodeCursor = 1;
    m_primitiveCursor = 0;

    Task root;
    for (auto& order : root.order) {
        order.resize(n);
        std::iota(order.begin(), order.end(), 0u);
    }
    sortOrders(root);
    root.node = 0;
    root.depth = 0;

    tbb::task_group group;
    m_group = &group;
    process(std::move(root));
    group.wait();
    m_group = nullptr;

    target.m_nodes.assign(m_nodes.get(), m_nodes.get() + m_nodeCursor.load());
    target.m_primitives.assign(m_primitives.get(), m_primitives.get() + m_primitiveCursor.load());
    target.m_spatialSplits = m_spatialSplits.load();
    target.m_maxDepth = m_parameters.maxDepth;
    m_nodes.reset();
    m_primitives.reset();
    std::vector<Reference>().swap(m_refs);
    std::vector<uint8_t>().swap(m_side);
}

void BvhBuilder::sortOrders(Task& task) const
{
    const auto sortAxis = [&](int axis) {
        std::vector<uint32_t>& order = task.order[axis];
        std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
            const float ca = m_refs[a].centroid[axis], cb = m_refs[b].centroid[axis];
            return ca < cb || (ca == cb && a < b);
        });
    };
    if (task.order[0].size() > 4096)
        tbb::parallel_invoke([&] { sortAxis(0); }, [&] { sortAxis(1); }, [&] { sortAxis(2); });
    else
        for (int a = 0; a < 3; ++a)
            sortAxis(a);
}

void BvhBuilder::process(Task task)
{
    std::vector<Task> stack;
    stack.push_back(std::move(task));
    while (!stack.empty()) {
        Task current = std::move(stack.back());
        stack.pop_back();
        runTask(current, stack);
    }
}

void BvhBuilder::runTask(Task& task, std::vector<Task>& stack)
{
    const size_t m = task.order[0].size();
    Box bounds = task.bounds;
    if (!task.hasBounds) {
        bounds.reset();
        for (uint32_t id : task.order[0])
            bounds.grow(m_refs[id].box);
    }

    if (m < 2 || task.depth >= m_parameters.maxDepth) {
        makeLeaf(task, bounds);
        return;
    }

    const Split object = findObjectSplit(task);
    Split best = object;
    bool spatial = false;
    Box overlap;
    for (int a = 0; a < 3; ++a) {
        overlap.lo[a] = std::max(object.left.lo[a], object.right.lo[a]);
        overlap.hi[a] = std::min(object.left.hi[a], object.right.hi[a]);
    }
    if (object.axis >= 0 && !overlap.isEmpty() && overlap.halfArea() > m_spatialThreshold &&
        m_refCount.load() < m_capacity) {
        const Split candidate = findSpatialSplit(task, bounds);
        if (candidate.axis >= 0 && candidate.cost < best.cost) {
            best = candidate;
            spatial = true;
        }
    }

    Task left, right;
    const float halfArea = bounds.halfArea();
    if (best.axis >= 0 && best.cost < halfArea * (float(m) - m_parameters.traversalCost)) {
        if (!spatial || !spatialSplit(task, bounds, best, left, right)) {
            objectSplit(task, object.axis, object.index, left, right);
            left.bounds = object.left;
            right.bounds = object.right;
            left.hasBounds = right.hasBounds = true;
        }
    } else if (m <= size_t(m_parameters.maxLeafSize)) {
        makeLeaf(task, bounds);
        return;
    } else {
        const float ex = bounds.hi[0] - bounds.lo[0], ey = bounds.hi[1] - bounds.lo[1],
                    ez = bounds.hi[2] - bounds.lo[2];
        int axis = ey > ex ? 1 : 0;
        if (ez > (axis == 1 ? ey : ex))
            axis = 2;
        objectSplit(task, axis, m / 2, left, right);
    }

    const uint32_t children = m_nodeCursor.fetch_add(2);
    BvhNode& node = m_nodes[task.node];
    node.minX = bounds.lo[0];
    node.maxX = bounds.hi[0];
    node.minY = bounds.lo[1];
    node.maxY = bounds.hi[1];
    node.minZ = bounds.lo[2];
    node.maxZ = bounds.hi[2];
    node.count = 0;
    node.first = children;
    left.node = children;
    right.node = children + 1;
    left.depth = right.depth = task.depth + 1;

    for (Task* child : {&right, &left}) {
        if (m_parameters.useParallelThreshold &&
            (long long)child->order[0].size() > m_parameters.parallelThreshold) {
            auto moved = std::make_shared<Task>(std::move(*child));
            m_group->run([this, moved] { process(std::move(*moved)); });
        } else
            stack.push_back(std::move(*child));
    }
}

BvhBuilder::Split BvhBuilder::findObjectSplit(const Task& task) const
{
    const size_t m = task.order[0].size();
    thread_local std::vector<float> rightAreas;
    if (rightAreas.size() < m)
        rightAreas.resize(m);
    Split best;
    best.cost = kInf;
    for (int axis = 0; axis < 3; ++axis) {
        const std::vector<uint32_t>& order = task.order[axis];
        Box box;
        box.reset();
        for (size_t i = m - 1; i > 0; --i) {
            box.grow(m_refs[order[i]].box);
            rightAreas[i] = box.halfArea();
        }
        box.reset();
        for (size_t i = 1; i < m; ++i) {
            box.grow(m_refs[order[i - 1]].box);
            const float cost = box.halfArea() * float(i) + rightAreas[i] * float(m - i);
            if (cost < best.cost) {
                best.axis = axis;
                best.cost = cost;
                best.index = i;
            }
        }
    }
    if (best.axis < 0)
        return best;
    const std::vector<uint32_t>& order = task.order[best.axis];
    best.left.reset();
    best.right.reset();
    for (size_t i = 0; i < m; ++i)
        (i < best.index ? best.left : best.right).grow(m_refs[order[i]].box);
    return best;
}

BvhBuilder::Box BvhBuilder::clippedBox(const Reference& r, int axis, float lo, float hi) const
{
    QVector3D corners[3];
    for (int c = 0; c < 3; ++c)
        corners[c] = m_vertices[m_indices[int(3 * r.triangle) + c]];
    Box out;
    out.reset();
    for (int c = 0; c < 3; ++c) {
        const QVector3D& p = corners[c];
        const QVector3D& q = corners[(c + 1) % 3];
        if (p[axis] >= lo && p[axis] <= hi) {
            const float point[3] = {p.x(), p.y(), p.z()};
            out.grow(point);
        }
        for (const float plane : {lo, hi}) {
            if ((p[axis] < plane && q[axis] > plane) || (p[axis] > plane && q[axis] < plane)) {
                const float t = (plane - p[axis]) / (q[axis] - p[axis]);
                QVector3D x = p + (q - p) * t;
                x[axis] = plane;
                const float point[3] = {x.x(), x.y(), x.z()};
                out.grow(point);
            }
        }
    }
    for (int a = 0; a < 3; ++a) {
        out.lo[a] = std::max(out.lo[a], r.box.lo[a]);
        out.hi[a] = std::min(out.hi[a], r.box.hi[a]);
    }
    out.lo[axis] = std::max(out.lo[axis], lo);
    out.hi[axis] = std::min(out.hi[axis], hi);
    if (out.isEmpty()) {
        // Rounding lost the clipped polygon: the reference's box cut at the slab still holds the triangle's
        // part.
        out = r.box;
        out.lo[axis] = std::max(out.lo[axis], lo);
        out.hi[axis] = std::min(out.hi[axis], hi);
        if (out.lo[axis] > out.hi[axis])
            out.lo[axis] = out.hi[axis] = std::min(std::max(lo, r.box.lo[axis]), r.box.hi[axis]);
    }
    return out;
}

BvhBuilder::Split BvhBuilder::findSpatialSplit(const Task& task, const Box& bounds) const
{
    const size_t m = task.order[0].size();
    const size_t room = m_capacity - std::min(m_capacity, m_refCount.load());
    Split best;
    best.cost = kInf;
    const int binCount = int(std::min<size_t>(kMaxSpatialBins, std::max<size_t>(kMinSpatialBins, m)));
    for (int axis = 0; axis < 3; ++axis) {
        const float lo = bounds.lo[axis];
        const float extent = bounds.hi[axis] - lo;
        if (!(extent > 1e-5f))
            continue;
        const float scale = float(binCount) / extent;
        const auto binOf = [&](float x) {
            return std::min(binCount - 1, std::max(0, int((x - lo) * scale)));
        };
        const auto planeOf = [&](int b) {
            return b == binCount ? bounds.hi[axis] : lo + extent * float(b) / float(binCount);
        };

        // The sweep bins each reference's box cut at the bin's planes; only
        // the split chosen clips the triangles themselves.
        Box bins[kMaxSpatialBins];
        size_t entries[kMaxSpatialBins] = {}, exits[kMaxSpatialBins] = {};
        for (int b = 0; b < binCount; ++b)
            bins[b].reset();
        for (uint32_t id : task.order[0]) {
            const Reference& r = m_refs[id];
            const int first = binOf(r.box.lo[axis]);
            const int last = binOf(r.box.hi[axis]);
            ++entries[first];
            ++exits[last];
            if (first == last) {
                bins[first].grow(r.box);
                continue;
            }
            for (int b = first; b <= last; ++b) {
                Box cut = r.box;
                cut.lo[axis] = std::max(cut.lo[axis], planeOf(b));
                cut.hi[axis] = std::min(cut.hi[axis], planeOf(b + 1));
                bins[b].grow(cut);
            }
        }

        float rightAreas[kMaxSpatialBins];
        size_t rightCounts[kMaxSpatialBins];
        Box box;
        box.reset();
        size_t count = 0;
        for (int b = binCount - 1; b > 0; --b) {
            box.grow(bins[b]);
            count += exits[b];
            rightAreas[b] = box.halfArea();
            rightCounts[b] = count;
        }
        box.reset();
        count = 0;
        for (int b = 1; b < binCount; ++b) {
            box.grow(bins[b - 1]);
            count += entries[b - 1];
            if (count == 0 || rightCounts[b] == 0)
                continue;
            const size_t duplicates = count + rightCounts[b] - m;
            if (duplicates > room)
                continue;
            const float cost = box.halfArea() * float(count) + rightAreas[b] * float(rightCounts[b]);
            if (cost < best.cost) {
                best.axis = axis;
                best.cost = cost;
                best.bin = b;
                best.bins = binCount;
                best.duplicates = duplicates;
            }
        }
    }
    return best;
}

bool BvhBuilder::spatialSplit(Task& task, const Box& bounds, const Split& split, Task& left, Task& right)
{
    const int axis = split.axis;
    const float lo = bounds.lo[axis];
    const float extent = bounds.hi[axis] - lo;
    const float scale = float(split.bins) / extent;
    const auto binOf = [&](float x) { return std::min(split.bins - 1, std::max(0, int((x - lo) * scale))); };
    const float plane = lo + extent * float(split.bin) / float(split.bins);

    size_t start = 0;
    {
        size_t current = m_refCount.load();
        do {
            if (current + split.duplicates > m_capacity)
                return false;
        } while (!m_refCount.compare_exchange_weak(current, current + split.duplicates));
        start = current;
    }

    std::vector<uint32_t> leftIds, rightIds;
    for (uint32_t id : task.order[0]) {
        const int first = binOf(m_refs[id].box.lo[axis]);
        const int last = binOf(m_refs[id].box.hi[axis]);
        if (last < split.bin) {
            leftIds.push_back(id);
        } else if (first >= split.bin) {
            rightIds.push_back(id);
        } else {
            // Reserved above from the same bin counts, so the slots cannot run out here.
            const uint32_t copy = uint32_t(start++);
            Reference& original = m_refs[id];
            Reference& duplicate = m_refs[copy];
            duplicate = original;
            const Box leftBox = clippedBox(original, axis, original.box.lo[axis], plane);
            const Box rightBox = clippedBox(original, axis, plane, original.box.hi[axis]);
            original.box = leftBox;
            duplicate.box = rightBox;
            for (int a = 0; a < 3; ++a) {
                original.centroid[a] = 0.5f * (leftBox.lo[a] + leftBox.hi[a]);
                duplicate.centroid[a] = 0.5f * (rightBox.lo[a] + rightBox.hi[a]);
            }
            leftIds.push_back(id);
            rightIds.push_back(copy);
        }
    }
    for (int a = 0; a < 3; ++a) {
        left.order[a] = leftIds;
        right.order[a] = rightIds;
        std::vector<uint32_t>().swap(task.order[a]);
    }
    sortOrders(left);
    sortOrders(right);
    ++m_spatialSplits;
    return true;
}

void BvhBuilder::objectSplit(Task& task, int axis, size_t leftCount, Task& left, Task& right)
{
    std::vector<uint32_t>& order = task.order[axis];
    for (size_t i = 0; i < order.size(); ++i)
        m_side[order[i]] = i < leftCount ? 1 : 0;
    for (int a = 0; a < 3; ++a) {
        std::vector<uint32_t>& source = task.order[a];
        if (a == axis) {
            left.order[a].assign(source.begin(), source.begin() + std::ptrdiff_t(leftCount));
            right.order[a].assign(source.begin() + std::ptrdiff_t(leftCount), source.end());
        } else {
            left.order[a].reserve(leftCount);
            right.order[a].reserve(source.size() - leftCount);
            for (uint32_t id : source)
                (m_side[id] ? left.order[a] : right.order[a]).push_back(id);
        }
        std::vector<uint32_t>().swap(source);
    }
}

void BvhBuilder::makeLeaf(const Task& task, const Box& bounds)
{
    const std::vector<uint32_t>& refs = task.order[0];
    const uint32_t first = m_primitiveCursor.fetch_add(uint32_t(refs.size()));
    for (size_t i = 0; i < refs.size(); ++i)
        m_primitives[first + i] = m_refs[refs[i]].triangle;
    BvhNode& node = m_nodes[task.node];
    node.minX = bounds.lo[0];
    node.maxX = bounds.hi[0];
    node.minY = bounds.lo[1];
    node.maxY = bounds.hi[1];
    node.minZ = bounds.lo[2];
    node.maxZ = bounds.hi[2];
    node.count = uint32_t(refs.size());
    node.first = first;
}

} // namespace ClosestTriangleSearch
