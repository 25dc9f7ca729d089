#include "FoldTracker.h"

#include <algorithm>
#include <cmath>

namespace WelkingAcceleratedVersion {

FoldTracker::FoldTracker(const std::vector<long long>& triangles, size_t vertexCount, double margin, double tolerance)
    : m_triangles(triangles), m_margin(margin), m_tolerance(tolerance)
{
    const size_t triangleCount = triangles.size() / 3;
    m_offsets.assign(vertexCount + 1, 0);
    for (size_t c = 0; c < 3 * triangleCount; ++c)
        ++m_offsets[size_t(triangles[c]) + 1];
    for (size_t v = 0; v < vertexCount; ++v)
        m_offsets[v + 1] += m_offsets[v];
    m_incident.resize(size_t(m_offsets[vertexCount]));
    std::vector<long long> fill(m_offsets.begin(), m_offsets.end() - 1);
    for (size_t c = 0; c < 3 * triangleCount; ++c)
        m_incident[size_t(fill[size_t(triangles[c])]++)] = int(c / 3);
    m_faceNormals.resize(triangleCount);
    m_slack.resize(triangleCount);
    m_vertexNormals.resize(vertexCount);
    m_folded.assign(triangleCount, 0);
    m_atRisk.assign(triangleCount, 0);
    m_near.assign(triangleCount, 0);
    m_faceMarks.assign(triangleCount, 0);
    m_testMarks.assign(triangleCount, 0);
    m_vertexMarks.assign(vertexCount, 0);
}

void FoldTracker::faceNormal(const std::vector<Vec3>& shape, size_t t)
{
    m_faceNormals[t] = FoldTest::faceNormal(shape[size_t(m_triangles[3 * t])], shape[size_t(m_triangles[3 * t + 1])],
                                            shape[size_t(m_triangles[3 * t + 2])], m_tolerance, m_slack[t]);
}

void FoldTracker::vertexNormal(size_t v)
{
    D3 m;
    for (long long e = m_offsets[v]; e < m_offsets[v + 1]; ++e) {
        const D3& n = m_faceNormals[size_t(m_incident[size_t(e)])];
        m.x += n.x;
        m.y += n.y;
        m.z += n.z;
    }
    m_vertexNormals[v] = m;
}

void FoldTracker::test(size_t t)
{
    const D3 sum = FoldTest::cornerSum(m_vertexNormals, m_triangles, t);
    const D3& n = m_faceNormals[t];
    m_folded[t] = FoldTest::folded(n, sum, 0.0, 0.0, 0.0);
    m_atRisk[t] = FoldTest::folded(n, sum, 0.0, m_tolerance, m_slack[t]);
    m_near[t] = FoldTest::folded(n, sum, m_margin, 0.0, 0.0);
}

void FoldTracker::reset(const std::vector<Vec3>& shape)
{
    const size_t triangleCount = m_faceNormals.size();
    for (size_t t = 0; t < triangleCount; ++t)
        faceNormal(shape, t);
    for (size_t v = 0; v < m_vertexNormals.size(); ++v)
        vertexNormal(v);
    m_retested.resize(triangleCount);
    for (size_t t = 0; t < triangleCount; ++t) {
        test(t);
        m_retested[t] = (long long)t;
    }
}

void FoldTracker::update(const std::vector<Vec3>& shape, const std::vector<long long>& moved)
{
    const auto first = [](std::vector<char>& marks, size_t item) {
        if (marks[item])
            return false;
        marks[item] = 1;
        return true;
    };
    // The moved vertices' triangles, then all their corners' normals.
    m_movedFaces.clear();
    for (long long v : moved)
        for (long long e = m_offsets[size_t(v)]; e < m_offsets[size_t(v) + 1]; ++e) {
            const size_t t = size_t(m_incident[size_t(e)]);
            if (first(m_faceMarks, t)) {
                faceNormal(shape, t);
                m_movedFaces.push_back((long long)t);
            }
        }
    m_movedNormals.clear();
    for (long long t : m_movedFaces)
        for (int k = 0; k < 3; ++k) {
            const long long c = m_triangles[3 * size_t(t) + size_t(k)];
            if (first(m_vertexMarks, size_t(c))) {
                vertexNormal(size_t(c));
                m_movedNormals.push_back(c);
            }
        }
    // Every triangle at a vertex whose normal changed.
    m_retested.clear();
    for (long long c : m_movedNormals)
        for (long long e = m_offsets[size_t(c)]; e < m_offsets[size_t(c) + 1]; ++e) {
            const size_t t = size_t(m_incident[size_t(e)]);
            if (first(m_testMarks, t)) {
                test(t);
                m_retested.push_back((long long)t);
            }
        }
    for (long long t : m_movedFaces)
        m_faceMarks[size_t(t)] = 0;
    for (long long v : m_movedNormals)
        m_vertexMarks[size_t(v)] = 0;
    for (long long t : m_retested)
        m_testMarks[size_t(t)] = 0;
}

} // namespace WelkingAcceleratedVersion
