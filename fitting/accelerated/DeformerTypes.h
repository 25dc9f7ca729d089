#pragma once

#include "EmbeddedGraphLevel.h"

#include <Eigen/Core>
#include <Eigen/Geometry>

#include <atomic>
#include <vector>

namespace EmbeddedGraphDeformer {

using Vec3 = Eigen::Vector3f;

/// A point on the source surface that must reach `target`: a triangle's
/// three vertex indices and the barycentric weights of its corners.
struct ControlPoint
{
    long long corners[3] = {0, 0, 0};
    float weights[3] = {1.0f, 0.0f, 0.0f};
    Vec3 target = Vec3::Zero();
};

/// A pair from a point of the basemesh's surface, given as a triangle's
/// three vertices and barycentric weights, to a target point and normal.
/// Unlike a vertex pair it moves continuously as the point slides over the
/// surface.
struct SurfacePair
{
    long long corners[3] = {0, 0, 0};
    float weights[3] = {1.0f, 0.0f, 0.0f};
    Vec3 target = Vec3::Zero();
    Vec3 normal = Vec3::Zero();
};

/// The budget of one solve.
struct SolveBudget
{
    int iterations = 20;
    double stepTolerance = 0.01;
    int conjugateGradientIterations = 30;
    /// Levels with at most this many nodes precondition with a sparse
    /// Cholesky of the damped normal matrix (0: never).
    long long directSolveNodes = 0;
    /// When set and raised, the solve ends after its current step, so that
    /// a stop request is not held up by a long level.
    const std::atomic<bool>* interrupted = nullptr;
    /// After a step that fell short of its model the damping is at least
    /// this times the mean diagonal of J^T J, in proportion (0: no floor).
    double dampingFloor = 0.0;
    /// The conjugate gradients' relative tolerance (the fast fit; the
    /// cartoon fit keeps 0.0005).
    double solveTolerance = 0.0005;
    /// The cartoon fit's hold on each node's matrix (see
    /// `AcceleratedParameters::cartoonAnchor`); the fast fit ignores it.
    double anchor = 0.0;
};

/// The weights of the energy's terms.
struct EnergyWeights
{
    float smoothness = 1.0f;
    float controlPoints = 10.0f;
    float pointToPoint = 0.1f;
    float pointToPlane = 1.0f;
};

/// [v]x, the matrix of the cross product v x.
Eigen::Matrix3f crossMatrix(const Vec3& v);

/// The rotation of modified Rodrigues parameters s:
/// R = I + 8 [s]x^2 / d^2 + 4 (1 - q) [s]x / d^2, q = |s|^2, d = 1 + q.
Eigen::Matrix3f rotationFromMRP(const Vec3& s);

/// R(s) a, and its 3x3 derivative with respect to s.
Vec3 rotateMRP(const Vec3& s, const Vec3& a, Eigen::Matrix3f* derivative = nullptr);

/// The angular velocities of R(s) per parameter, as columns:
/// dR/ds_i R^T = [W e_i]x, so that d(R a)/ds = [-R a]x W.
/// W = 4 ((1 - q) I + 2 [s]x + 2 s s^T) / d^2.
Eigen::Matrix3f ratesOfMRP(const Vec3& s);

} // namespace EmbeddedGraphDeformer
