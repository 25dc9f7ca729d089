#pragma once

namespace WelkingAcceleratedVersion {

/// The fast fit's settings, with the defaults of a fresh installation.
struct AcceleratedParameters
{
    int subdivisions = 3;
    float pointToPointWeight = 0.1f;
    float pointToPlaneWeight = 1.0f;
    float smoothnessFinal = 0.05f;
    float smoothnessInitial = 1.0f;
    float controlPointsWeightInitial = 10.0f;
    float controlPointsWeightFinal = 10.0f;
    int icpIterations = 7;
    int optimizationIterations = 20;
    int maxOptimizationIterations = 100;
    float dpInitial = 0.01f;
    float dpFinal = 0.002f;
    int conjugateGradientIterations = 30;
    float normalsThreshold = 0.65f;
    /// Levels with at most this many graph nodes solve each damped step
    /// through a sparse Cholesky of the normal matrix, used as the
    /// conjugate gradients' preconditioner, instead of the 6x6 node blocks
    /// ("Direct_solve_nodes"; 0, the default, keeps the block preconditioner
    /// everywhere). The coarse levels of the default hierarchy have tens to
    /// hundreds of nodes; their factor is small while every matched vertex
    /// adds rows. A level with coverage pairs (the finest, and by default
    /// the coarsest) keeps the node blocks: the factor's pattern follows the
    /// vertex pairs only. Off by default: the factor is renewed on a count of
    /// iterations, and that discrete choice lets a perturbation of 1e-7 in
    /// a landmark move vertices by tenths of a unit, once 2.7, on a model 25
    /// units across, where the block preconditioner's fixed 30 iterations
    /// keep every vertex within 0.01.
    int directSolveNodes = 0;
    /// A level ends before its last closest-point round once a round's
    /// solve moved the vertices by less than this fraction of the
    /// basemesh's largest extent, root mean square ("Converged_move"; 0
    /// runs every round). A converged level's later rounds find the same
    /// pairs and move the shape by less each time: on meshmonk-face the
    /// finest level's rounds after the second moved 1e-4 of the extent
    /// each, and the fit spent half of its solves on them.
    float convergedMove = 5e-4f;
    /// A closest-point round that leaves the shape clearly farther from the
    /// target than the level's best shape is undone, and the level goes on
    /// from its best shape with four times the smoothness (after three such
    /// rounds, or at the level's end, the level ends on its best shape)
    /// ("Reject_worse_rounds"); off runs every round as it comes.
    bool rejectWorseRounds = true;
    /// After the last level, relax the vertices around fold-overs that the
    /// fit added until none is left ("Repair_folds").
    bool repairFolds = true;
    /// On the finest level (and the coarsest, below), besides every basemesh
    /// vertex looking for its nearest target vertex, about as many target
    /// vertices look for the nearest point of the basemesh's surface (never
    /// near an open border of either mesh), so that parts of the target that
    /// no basemesh vertex came near still draw it ("Coverage_pairs"; both
    /// fits). The point slides over the surface continuously, so the fit
    /// stays continuous in its input, as it would not if the nearest vertex
    /// were pulled.
    bool coveragePairs = true;
    /// Coverage pairs on the coarsest level as well as on the finest
    /// ("Coverage_coarsest_level"; the fast fit only). A limb that the
    /// target holds elsewhere (an arm raised where the basemesh's hangs)
    /// draws no basemesh vertex near it, and vertex pairs alone bend the
    /// basemesh's limb against the body; the coarsest level's few stiff
    /// nodes carry the whole limb where the target's samples pull it, before
    /// the finer levels settle its surface. On the level between, the pairs
    /// pulled thin parts (an ear) to the wrong side of their tips.
    bool coverageCoarsestLevel = true;
    /// After a Levenberg-Marquardt step that fell short of its model, the
    /// damping is at least this times the mean diagonal of J^T J, scaled
    /// by how far the step fell short (`WNewton::SolverParameters`;
    /// "Damping_floor"; the fast fit only; 0: none). Each solve starts from
    /// a damping of 1e-9; once the first step has taken the large,
    /// well-determined motion, the next steps at that damping were rejected
    /// about seven times in a row, each a full solve, until doubling
    /// reached a damping J^T J notices.
    float dampingFloor = 5e-4f;
    /// The conjugate gradients' relative tolerance in the fast fit's
    /// solves: on the levels before the finest ("Coarse_solve_tolerance")
    /// and on the finest ("Finest_solve_tolerance"). A coarse level's shape
    /// is only the next level's start, and a Levenberg-Marquardt step
    /// solved to a tenth is still a descent step that the gain ratio
    /// judges: solving each to 5e-4 took a third to a half of a fit's
    /// products. On the finest level 0.01 costs 8-31% fewer products than
    /// 0.003 and ends nearer the target on the pairs that are hardest to
    /// reach, while spare-bear's coverage, the measure that moves most with
    /// the path, lies farther. 0.0005 on both is the plain method.
    float coarseSolveTolerance = 0.1f;
    float finestSolveTolerance = 0.01f;
    /// The cartoon fit holds each node's matrix near its value at the start
    /// of each solve, with this times the node's own share of J^T J
    /// ("Cartoon_anchor"; 0: the plain affine energy). Directions of a
    /// matrix that no pair and no neighbour sees (the normal of a flat
    /// patch, the part of a node whose vertices found no pair) have no
    /// energy at all; without a hold the block preconditioner drives them
    /// to values of 10^4, and vertices without a pair fly off, so that every
    /// round of the coarse levels was undone.
    float cartoonAnchor = 1e-3f;
    /// Each pair's plane row goes through the nearest point of the target's
    /// surface among the triangles around the nearest target vertex, along
    /// the normal interpolated there; its point row still pulls towards the
    /// nearest vertex across the surface ("Surface_pairs"; both fits). Off,
    /// the plane is the nearest vertex's tangent plane: on a scan about as
    /// coarse as the basemesh the vertices then settle off the surface
    /// (meshmonk-face: 0.018 % of the diagonal from it, 0.0049 with surface
    /// pairs).
    bool surfacePairs = true;
    /// A basemesh vertex on an open border whose nearest target vertex lies
    /// on an open border of the target pulls straight towards the nearest
    /// point of that vertex's border edges, along the gap between them,
    /// instead of along the target's normal ("Border_pairs"; the fast fit
    /// only). Two open borders that should meet (a neck's cut, a scan's
    /// edge) otherwise close only through the weak point row, as the plane
    /// row does not pull along the surface: the fast fit left ict-face's
    /// neck border half way to the identity's. The cartoon fit, whose nodes
    /// may shear and scale, dragged a basemesh that runs past a partial scan
    /// onto the scan's border instead.
    bool borderPairs = true;
};

} // namespace WelkingAcceleratedVersion
