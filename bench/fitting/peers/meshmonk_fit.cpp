// meshmonk_fit SRC.obj TGT.obj OUT.obj: MeshMonk's rigid then pyramid registration with its face
// demo's values, for fit_bench.py. Built against the MeshMonk sources outside this tree by
// build_peers.sh; it is not part of the project's build.
#include <meshmonk/meshmonk.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <string>
#include <vector>

struct Obj { std::vector<float> v; std::vector<int> tri; std::vector<std::string> faceLines; };

static bool readObj(const char* path, Obj& o) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    while (std::getline(in, line)) {
        if (line.size() > 1 && line[0] == 'v' && (line[1] == ' ' || line[1] == '\t')) {
            std::istringstream s(line.substr(2)); float x, y, z; s >> x >> y >> z;
            o.v.insert(o.v.end(), {x, y, z});
        } else if (line.size() > 1 && line[0] == 'f' && (line[1] == ' ' || line[1] == '\t')) {
            std::istringstream s(line.substr(2)); std::string tok; std::vector<int> idx;
            std::string out = "f";
            while (s >> tok) {
                int i = std::stoi(tok.substr(0, tok.find('/')));
                if (i < 0) i = int(o.v.size() / 3) + i + 1;
                idx.push_back(i - 1);
                out += " " + std::to_string(i);
            }
            for (size_t k = 1; k + 1 < idx.size(); ++k) o.tri.insert(o.tri.end(), {idx[0], idx[k], idx[k + 1]});
            o.faceLines.push_back(out);
        }
    }
    return true;
}

static meshmonk::FeatureMat features(const Obj& o, meshmonk::FacesMat& faces) {
    const int n = int(o.v.size() / 3), m = int(o.tri.size() / 3);
    meshmonk::Vec3Mat p(n, 3);
    for (int i = 0; i < n; ++i) for (int k = 0; k < 3; ++k) p(i, k) = o.v[3 * i + k];
    faces.resize(m, 3);
    for (int i = 0; i < m; ++i) for (int k = 0; k < 3; ++k) faces(i, k) = o.tri[3 * i + k];
    meshmonk::Vec3Mat nrm = meshmonk::compute_normals(p, faces);
    meshmonk::FeatureMat f(n, 6);
    f.leftCols(3) = p; f.rightCols(3) = nrm;
    return f;
}

int main(int argc, char** argv) {
    if (argc != 4) { std::cerr << "usage: meshmonk_fit SRC.obj TGT.obj OUT.obj\n"; return 2; }
    Obj src, tgt;
    for (auto [path, obj] : {std::pair<const char*, Obj*>{argv[1], &src}, {argv[2], &tgt}}) {
        bool read = false;
        try { read = readObj(path, *obj); } catch (const std::exception&) {}
        if (!read || obj->v.empty() || obj->tri.empty()) {
            std::cerr << path << ": not an OBJ mesh with vertices and faces\n";
            return 1;
        }
    }
    meshmonk::FacesMat sf, tf;
    meshmonk::FeatureMat fs = features(src, sf), ft = features(tgt, tf);
    meshmonk::VecDynFloat flS = meshmonk::VecDynFloat::Ones(fs.rows()), flT = meshmonk::VecDynFloat::Ones(ft.rows());
    meshmonk::RigidParams rp; rp.num_iterations = 80; rp.use_scaling = true;
    auto rigid = meshmonk::rigid_registration(fs, ft, sf, tf, flS, flT, rp);
    if (!rigid) { std::cerr << "rigid registration failed\n"; return 1; }
    meshmonk::PyramidParams pp; pp.num_iterations = 90; pp.num_pyramid_layers = 3;
    pp.correspondences.flag_threshold = 0.999f;
    pp.transform.num_viscous_iterations_start = 90; pp.transform.num_elastic_iterations_start = 90;
    auto pyr = meshmonk::pyramid_registration(rigid->aligned_features, ft, sf, tf, flS, flT, pp);
    if (!pyr) { std::cerr << "pyramid registration failed\n"; return 1; }
    std::ofstream out(argv[3]);
    char buf[128];
    for (int i = 0; i < pyr->aligned_features.rows(); ++i) {
        std::snprintf(buf, sizeof buf, "v %.9g %.9g %.9g\n", pyr->aligned_features(i, 0), pyr->aligned_features(i, 1), pyr->aligned_features(i, 2));
        out << buf;
    }
    for (auto& f : src.faceLines) out << f << '\n';
    return out ? 0 : 1;
}
