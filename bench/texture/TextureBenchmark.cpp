// Texture transfer, whole process, against Blender's Cycles bake "selected
// to active" on the same files in the same run.
//
//   texture_bench [--sizes 1024,2048,4096] [--no-blender] [--work DIR]
//
// Source: the spot model (triangles) with its texture. Target: the quad
// version of spot with new UVs made here by a box projection (six charts in
// a 3 x 2 grid), so topology and UV layout both differ from the source's.
// Both programs run as child processes; wall time and peak resident memory
// come from wait4. Blender runs when `blender` is on the PATH.
#include "document/WImg.h"
#include "geometry/GeomStack.h"
#include "steps/texture/TextureTransferModels.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>
#include <QTemporaryDir>

#include <fmt/format.h>

#include <opencv2/core.hpp>

#include <chrono>
#include <cmath>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace {

using GeometryStack2::GeomStack;

struct ChildRun
{
    bool ok = false;
    double seconds = 0.0;
    double peakMiB = 0.0;
};

ChildRun runChild(const QStringList& command)
{
    std::vector<std::string> words;
    for (const QString& w : command)
        words.push_back(w.toStdString());
    std::vector<char*> argv;
    for (std::string& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    ChildRun run;
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        return run;
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.peakMiB = usage.ru_maxrss / 1024.0;
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return run;
}

/// New UVs for every polygon corner: the polygon's dominant normal axis and
/// its sign choose one of six charts, laid out in a 3 x 2 grid.
GeomStack boxProjected(const GeomStack& mesh)
{
    QVector3D lo = mesh.vertices().first(), hi = lo;
    for (const QVector3D& v : mesh.vertices()) {
        lo = QVector3D(std::min(lo.x(), v.x()), std::min(lo.y(), v.y()), std::min(lo.z(), v.z()));
        hi = QVector3D(std::max(hi.x(), v.x()), std::max(hi.y(), v.y()), std::max(hi.z(), v.z()));
    }
    const QVector3D extent = hi - lo;
    const float scale = 0.3f / std::max({extent.x(), extent.y(), extent.z()});
    QVector<QVector2D> uvs;
    QVector<int> uvIndices;
    const QVector<int>& corners = mesh.vertexIndices();
    const QVector<int>& offsets = mesh.polygonOffsets();
    for (int p = 0; p < mesh.polygonCount(); ++p) {
        QVector3D normal;
        for (int c = offsets[p]; c < offsets[p + 1]; ++c) {
            const QVector3D& a = mesh.vertices()[corners[c]];
            const QVector3D& b = mesh.vertices()[corners[c + 1 < offsets[p + 1] ? c + 1 : offsets[p]]];
            normal += QVector3D::crossProduct(a, b);
        }
        const float ax[3] = {std::abs(normal.x()), std::abs(normal.y()), std::abs(normal.z())};
        const int axis = ax[0] >= ax[1] && ax[0] >= ax[2] ? 0 : ax[1] >= ax[2] ? 1 : 2;
        const bool negative = normal[axis] < 0;
        const int chart = 2 * axis + (negative ? 1 : 0);
        const QVector2D origin(0.02f + (chart % 3) / 3.0f, 0.05f + (chart / 3) / 2.0f);
        for (int c = offsets[p]; c < offsets[p + 1]; ++c) {
            const QVector3D q = (mesh.vertices()[corners[c]] - lo) * scale;
            const int i = (axis + 1) % 3, j = (axis + 2) % 3;
            // Mirror the first coordinate on the negative side, so that
            // every chart keeps the surface's orientation.
            const float first = negative ? 0.3f * extent[i] / std::max({extent.x(), extent.y(), extent.z()}) - q[i] : q[i];
            uvIndices.append(uvs.size());
            uvs.append(origin + QVector2D(first, q[j]));
        }
    }
    return GeomStack(mesh.vertices(), corners, mesh.polygonSizes(), offsets, uvs, uvIndices, {},
                     QVector<int>(mesh.polygonCount(), -1), {}, QVector<int>(mesh.polygonCount(), -1), {}, QString());
}

/// Texels whose UV lies in a target triangle but that no ray filled.
std::pair<long long, long long> emptyInIslands(const WelkPlugin::TextureTransferModels& models, const Welk::WImg& image)
{
    long long inside = 0, empty = 0;
    const int w = image.width(), h = image.height();
    const QVector3D down(0, 0, -1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const QVector3D origin(float(x) / (w - 1), 1.0f - float(y) / (h - 1), 1.0f);
            int triangle;
            float distance, b1, b2;
            QVector3D normal;
            if (!models.targetUvRayTracer().intersect(origin, down, 0.0f, 2.0f, 0, triangle, distance, b1, b2, normal))
                continue;
            ++inside;
            empty += image.mat().at<cv::Vec4b>(y, x)[3] == 0;
        }
    return {inside, empty};
}

} // namespace

int main(int argc, char** argv)
{
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args.append(QString::fromLocal8Bit(argv[i]));
    QVector<int> sizes{1024, 2048, 4096};
    bool useBlender = true;
    QString work;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--sizes") && i + 1 < args.size()) {
            sizes.clear();
            for (const QString& s : args[++i].split(QLatin1Char(',')))
                sizes.append(s.toInt());
        } else if (args[i] == QLatin1String("--no-blender")) {
            useBlender = false;
        } else if (args[i] == QLatin1String("--work") && i + 1 < args.size()) {
            work = args[++i];
        } else {
            fmt::print(stderr, "usage: texture_bench [--sizes 1024,2048,4096] [--no-blender] [--work DIR]\n");
            return 2;
        }
    }
    const QString data = QStringLiteral(ZWELK_SHARED_DATA "/spot");
    const QString sourcePath = data + QStringLiteral("/spot_triangulated.obj");
    const QString texturePath = data + QStringLiteral("/spot_texture.png");
    if (!QFileInfo::exists(sourcePath)) {
        fmt::print(stderr, "spot model not found in {}\n", data.toStdString());
        return 1;
    }
    QTemporaryDir temporary;
    if (work.isEmpty())
        work = temporary.path();
    QDir().mkpath(work);
    const QString targetPath = work + QStringLiteral("/spot_box_uv.obj");
    QString error;
    const GeomStack quad(data + QStringLiteral("/spot_quadrangulated.obj"), error);
    const GeomStack target = boxProjected(quad);
    if (!target.saveObj(targetPath, true, false)) {
        fmt::print(stderr, "can't write {}\n", targetPath.toStdString());
        return 1;
    }
    const GeomStack source(sourcePath, error);
    const QVector3D extent = [&] {
        QVector3D lo = source.vertices().first(), hi = lo;
        for (const QVector3D& v : source.vertices()) {
            lo = QVector3D(std::min(lo.x(), v.x()), std::min(lo.y(), v.y()), std::min(lo.z(), v.z()));
            hi = QVector3D(std::max(hi.x(), v.x()), std::max(hi.y(), v.y()), std::max(hi.z(), v.z()));
        }
        return hi - lo;
    }();
    const float distance = 0.02f * extent.length();
    const QString blender = useBlender ? QStandardPaths::findExecutable(QStringLiteral("blender")) : QString();
    fmt::print("source {} polygons, target {} polygons, ray distance {:.4f}; peer: {}\n", source.polygonCount(),
               target.polygonCount(), distance, blender.isEmpty() ? "none (Blender not found)" : "Blender Cycles bake");

    WelkPlugin::TextureTransferModels models;
    Welk::WImg texture;
    if (!models.setModels(source, target, error) || !texture.load(texturePath, &error)) {
        fmt::print(stderr, "{}\n", error.toStdString());
        return 1;
    }
    fmt::print("| size | ZWelk s | ZWelk peak MiB | Blender s | Blender peak MiB | ratio | island texels | empty before fill |\n"
               "|---|---|---|---|---|---|---|---|\n");
    for (int size : sizes) {
        const QString ours = work + QStringLiteral("/zwelk_%1.png").arg(size);
        const ChildRun z = runChild({QStringLiteral(ZWELK_BATCH_PROGRAM), QStringLiteral("texture"), QStringLiteral("--source"),
                                     sourcePath, QStringLiteral("--source-texture"), texturePath, QStringLiteral("--target"),
                                     targetPath, QStringLiteral("-o"), ours, QStringLiteral("--size"),
                                     QStringLiteral("%1x%1").arg(size), QStringLiteral("--max-distance"),
                                     QString::number(distance)});
        ChildRun b;
        if (!blender.isEmpty())
            b = runChild({blender, QStringLiteral("-b"), QStringLiteral("--factory-startup"), QStringLiteral("--python"),
                          QStringLiteral(ZWELK_BENCH_DIR "/texture/blender_bake.py"), QStringLiteral("--"), sourcePath,
                          texturePath, targetPath, work + QStringLiteral("/blender_%1.png").arg(size),
                          QString::number(size), QString::number(distance)});
        if (b.ok) {
            // A bake that reached nothing is no result to compare with.
            Welk::WImg baked;
            b.ok = baked.load(work + QStringLiteral("/blender_%1.png").arg(size)) && baked.channels() == 4 &&
                   cv::countNonZero(baked.mat().reshape(1)) > 0;
            if (!b.ok)
                fmt::print("Blender's bake at {}² is empty; its time is not reported\n", size);
        }
        const Welk::WImg raw =
            models.project(texture, QSize(size, size), distance, 0, 0, {}, error);
        const auto [inside, empty] = emptyInIslands(models, raw);
        fmt::print("| {}² | {} | {} | {} | {} | {} | {} | {} ({:.3f} %) |\n", size,
                   z.ok ? fmt::format("{:.2f}", z.seconds) : "failed", z.ok ? fmt::format("{:.0f}", z.peakMiB) : "-",
                   b.ok ? fmt::format("{:.2f}", b.seconds) : "-", b.ok ? fmt::format("{:.0f}", b.peakMiB) : "-",
                   z.ok && b.ok ? fmt::format("{:.1f}x", b.seconds / z.seconds) : "-", inside, empty,
                   inside ? 100.0 * empty / inside : 0.0);
        std::fflush(stdout);
    }
    return 0;
}
