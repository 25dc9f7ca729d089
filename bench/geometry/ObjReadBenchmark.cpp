// OBJ reading speed: our graph reader against tinyobjloader and assimp on
// the same generated files, best of several runs in one process; also against
// fast_obj and rapidobj, the fastest readers we know, when the build was given
// their sources (ZWELK_BENCH_FAST_OBJ_DIR, ZWELK_BENCH_RAPIDOBJ_DIR).
//
//   obj_read [--sizes 1,100,1000] [--runs 3] [--readers zwelk,fast_obj,...]
//   obj_read --memory FILE      peak resident memory of one read by our reader
#include "BenchObjFiles.h"

#include "geometry/MeshLists.h"
#include "geometry/ObjReaderTBB.h"

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <tiny_obj_loader.h>

#ifdef ZWELK_BENCH_FAST_OBJ
#include <fast_obj.h>
#endif
#ifdef ZWELK_BENCH_RAPIDOBJ
#include <rapidobj/rapidobj.hpp>
#endif

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

#include <fmt/format.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace {

struct Counts
{
    long long vertices = 0;
    long long faces = 0;
};

struct Reader
{
    const char* name;
    std::function<Counts(const QString&)> read;
};

Counts readOurs(const QString& path)
{
    GeometryStack2::MeshLists lists;
    QString error;
    if (!GeometryStack2::ObjReaderTBB::read(path, lists, error))
        fmt::print(stderr, "ZWelk reader failed: {}\n", error.toStdString());
    return {lists.vertices.size(), lists.polygonSizes.size()};
}

Counts readTinyObj(const QString& path)
{
    tinyobj::ObjReaderConfig config;
    config.triangulate = false;
    tinyobj::ObjReader reader;
    if (!reader.ParseFromFile(path.toStdString(), config))
        fmt::print(stderr, "tinyobjloader failed: {}\n", reader.Error());
    Counts counts{(long long)reader.GetAttrib().vertices.size() / 3, 0};
    for (const auto& shape : reader.GetShapes())
        counts.faces += (long long)shape.mesh.num_face_vertices.size();
    return counts;
}

Counts readAssimp(const QString& path)
{
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(path.toStdString(), 0);
    Counts counts;
    if (!scene) {
        fmt::print(stderr, "assimp failed: {}\n", importer.GetErrorString());
        return counts;
    }
    // Assimp duplicates vertices per corner; faces are what compare.
    for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
        counts.vertices += scene->mMeshes[m]->mNumVertices;
        counts.faces += scene->mMeshes[m]->mNumFaces;
    }
    return counts;
}

#ifdef ZWELK_BENCH_FAST_OBJ
Counts readFastObj(const QString& path)
{
    fastObjMesh* mesh = fast_obj_read(path.toLocal8Bit().constData());
    if (!mesh) {
        fmt::print(stderr, "fast_obj failed on {}\n", path.toStdString());
        return {};
    }
    // fast_obj keeps a dummy entry at index 0 of its position array.
    const Counts counts{(long long)mesh->position_count - 1, (long long)mesh->face_count};
    fast_obj_destroy(mesh);
    return counts;
}
#endif

#ifdef ZWELK_BENCH_RAPIDOBJ
Counts readRapidObj(const QString& path)
{
    // The grids name a material without a library: rapidobj would refuse them.
    const rapidobj::Result result = rapidobj::ParseFile(path.toStdString(), rapidobj::MaterialLibrary::Ignore());
    if (result.error) {
        fmt::print(stderr, "rapidobj failed: {}\n", result.error.code.message());
        return {};
    }
    Counts counts{(long long)result.attributes.positions.size() / 3, 0};
    for (const auto& shape : result.shapes)
        counts.faces += (long long)shape.mesh.num_face_vertices.size();
    return counts;
}
#endif

double secondsOf(const std::function<void()>& job)
{
    const auto start = std::chrono::steady_clock::now();
    job();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int measureMemory(const QString& path)
{
    GeometryStack2::MeshLists lists;
    QString error;
    if (!GeometryStack2::ObjReaderTBB::read(path, lists, error)) {
        fmt::print(stderr, "{}\n", error.toStdString());
        return 1;
    }
    // VmHWM belongs to this program's own memory map; getrusage's maximum
    // would carry over the parent's resident size at the fork before exec.
    double peakKb = 0;
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly))
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith("VmHWM:"))
                peakKb = line.mid(6).trimmed().split(' ').value(0).toDouble();
    if (peakKb == 0) {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        peakKb = double(usage.ru_maxrss);
    }
    const double arrays = double(lists.vertices.size()) * 12 + double(lists.texCoords.size()) * 8 +
                          4.0 * double(lists.vertexIndices.size() + lists.texCoordIndices.size() +
                                       lists.polygonOffsets.size() + lists.polygonSizes.size() +
                                       lists.polygroupIds.size() + lists.materialIds.size());
    fmt::print("{:.0f} {:.0f}\n", peakKb / 1024.0, arrays / 1e6);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = QCoreApplication::arguments().mid(1);
    if (args.size() == 2 && args[0] == QLatin1String("--memory"))
        return measureMemory(args[1]);

    QList<int> sizes = {1, 100, 1000};
    int runs = 3;
    QStringList only; // reader names, lower case, up to the first space; empty: all
    for (int i = 0; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--sizes")) {
            sizes.clear();
            for (const QString& s : args[i + 1].split(QLatin1Char(',')))
                sizes.append(s.toInt());
        } else if (args[i] == QLatin1String("--runs")) {
            runs = std::max(1, args[i + 1].toInt());
        } else if (args[i] == QLatin1String("--readers")) {
            only = args[i + 1].toLower().split(QLatin1Char(','));
        }
    }

    std::vector<Reader> readers = {{"ZWelk ObjReaderTBB", readOurs},
#ifdef ZWELK_BENCH_FAST_OBJ
                                   {"fast_obj", readFastObj},
#endif
#ifdef ZWELK_BENCH_RAPIDOBJ
                                   {"rapidobj", readRapidObj},
#endif
                                   {"tinyobjloader", readTinyObj},
                                   {"assimp", readAssimp}};
    // A reader is named by the first word of its name, in lower case. The
    // ratios are taken against the first reader left, ours when it is kept.
    if (!only.isEmpty())
        readers.erase(std::remove_if(readers.begin(), readers.end(),
                                     [&](const Reader& reader) {
                                         const QString name = QString::fromLatin1(reader.name).toLower();
                                         return !only.contains(name.section(QLatin1Char(' '), 0, 0));
                                     }),
                      readers.end());
    if (readers.empty()) {
        fmt::print(stderr, "No such reader; the readers are zwelk, fast_obj, rapidobj, tinyobjloader, assimp\n");
        return 2;
    }
    bool countsAgree = true;
    const bool oursKept = std::string(readers[0].name).rfind("ZWelk", 0) == 0;
    fmt::print("| file | MB | reader | best s | MB/s | {} speed-up | vertices | faces |\n",
               oursKept ? "ZWelk" : readers[0].name);
    fmt::print("|---|---|---|---|---|---|---|---|\n");
    for (int megabytes : sizes) {
        const QString path = BenchObjFiles::gridFile(megabytes);
        const double mb = double(QFileInfo(path).size()) / 1e6;
        double oursBest = 0;
        Counts oursCounts;
        for (const Reader& reader : readers) {
            double best = 1e30;
            Counts counts;
            for (int run = 0; run < runs; ++run)
                best = std::min(best, secondsOf([&] { counts = reader.read(path); }));
            if (&reader == &readers[0]) {
                oursBest = best;
                oursCounts = counts;
            } else if (counts.faces != oursCounts.faces ||
                       (counts.vertices != oursCounts.vertices && std::string(reader.name) != "assimp")) {
                countsAgree = false;
            }
            fmt::print("| grid-{}MB | {:.1f} | {} | {:.3f} | {:.0f} | {:.2f}x | {} | {} |\n", megabytes, mb,
                       reader.name, best, mb / best, best / oursBest, counts.vertices, counts.faces);
            std::fflush(stdout);
        }
    }

    // assimp counts one vertex per face corner; every other count must be ours.
    fmt::print("\nCounts {}\n", countsAgree ? "agree with ours (faces everywhere, vertices except assimp's)"
                                               : "DIFFER from ours: see the table");

    if (!oursKept)
        return 0;
    // Peak memory of one read of the largest file, in a fresh process.
    const QString largest = BenchObjFiles::gridFile(sizes.last());
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--memory"), largest});
    child.waitForFinished(-1);
    const QStringList memory = QString::fromLatin1(child.readAllStandardOutput()).split(QLatin1Char(' '));
    if (memory.size() == 2)
        fmt::print("\nZWelk reader on grid-{}MB: peak resident memory {} MB, final arrays {} MB\n", sizes.last(),
                   memory[0].toStdString(), memory[1].trimmed().toStdString());
    return 0;
}
