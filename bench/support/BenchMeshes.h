#pragma once

// Meshes and measures shared by the benchmark programs.
#include <QVector3D>
#include <QVector>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <functional>

#include <sys/resource.h>

namespace BenchMeshes {

inline double seconds(const std::function<void()>& job)
{
    const auto start = std::chrono::steady_clock::now();
    job();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// User and system CPU time of the whole process so far, all threads.
inline double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// Resident memory of the process in MiB.
inline double residentMiB()
{
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return double(resident) * 4096.0 / (1024.0 * 1024.0);
}

struct Mesh
{
    QVector<QVector3D> vertices;
    QVector<int> indices;
};

/// A closed sphere of radius 1 with bumps of a few percent, like a scan of a
/// rounded object: rings * segments * 2 triangles.
inline Mesh bumpySphere(long long triangles)
{
    const int rings = std::max(4, int(std::sqrt(double(triangles) / 2.0)));
    const int segments = rings;
    Mesh m;
    const double pi = 3.14159265358979;
    const auto radius = [](double theta, double phi) {
        return 1.0 + 0.03 * std::sin(7 * theta) * std::cos(5 * phi) + 0.01 * std::sin(31 * theta + 17 * phi);
    };
    m.vertices.append(QVector3D(0, 0, float(radius(0, 0))));
    for (int r = 1; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const double theta = pi * r / rings, phi = 2 * pi * s / segments, rr = radius(theta, phi);
            m.vertices.append(QVector3D(float(rr * std::sin(theta) * std::cos(phi)),
                                        float(rr * std::sin(theta) * std::sin(phi)),
                                        float(rr * std::cos(theta))));
        }
    m.vertices.append(QVector3D(0, 0, -float(radius(pi, 0))));
    const int south = m.vertices.size() - 1;
    const auto at = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    m.indices.reserve(6 * rings * segments);
    for (int s = 0; s < segments; ++s)
        m.indices << 0 << at(1, s) << at(1, s + 1);
    for (int r = 1; r < rings - 1; ++r)
        for (int s = 0; s < segments; ++s) {
            m.indices << at(r, s) << at(r + 1, s) << at(r + 1, s + 1);
            m.indices << at(r, s) << at(r + 1, s + 1) << at(r, s + 1);
        }
    for (int s = 0; s < segments; ++s)
        m.indices << at(rings - 1, s) << south << at(rings - 1, s + 1);
    return m;
}

} // namespace BenchMeshes
