#include "WelkingSettingsFile.h"

#include <QFileInfo>
#include <QSettings>

#include <algorithm>
#include <cmath>

namespace WelkPlugin {
namespace WelkingSettingsFile {

namespace {

const QString Group = QStringLiteral("welkingSettings");

template <typename T> T readKey(QSettings& s, const char* key, T fallback, T lo, T hi)
{
    const QVariant value = s.value(QLatin1String(key));
    if (!value.isValid())
        return fallback;
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || std::isnan(number))
        return fallback;
    // Clamped before the conversion: a number beyond the type's range
    // (ICP_iterations=1e11) must not reach a float-to-int conversion.
    return T(std::clamp(number, double(lo), double(hi)));
}

} // namespace

WelkingSettings defaults(Dialog dialog)
{
    WelkingSettings settings;
    if (dialog == Dialog::Preset) {
        settings.accelerated.icpIterations = 5;
        settings.sampling.samplingInitial = 5.0f;
        settings.sampling.samplingFinal = 0.02f;
    }
    return settings;
}

bool load(const QString& path, WelkingSettings& settings, QString& error, Dialog dialog)
{
    if (!QFileInfo(path).isReadable()) {
        error = QStringLiteral("Cannot read settings file %1").arg(path);
        return false;
    }
    QSettings s(path, QSettings::IniFormat);
    if (s.status() != QSettings::NoError) {
        error = QStringLiteral("Cannot read settings file %1").arg(path);
        return false;
    }
    const WelkingSettings defaults = WelkingSettingsFile::defaults(dialog);
    const bool current = dialog == Dialog::Current;
    auto& a = settings.accelerated;
    auto& g = settings.sampling;
    const auto& da = defaults.accelerated;
    const auto& dg = defaults.sampling;
    s.beginGroup(Group);
    a.subdivisions = readKey(s, "Subdivisions", da.subdivisions, 1, 10);
    a.icpIterations = readKey(s, "ICP_iterations", da.icpIterations, 1, 100);
    a.optimizationIterations = readKey(s, "Optimization_iterations", da.optimizationIterations, 1, 100);
    g.samplingInitial = readKey(s, "Sampling_initial", dg.samplingInitial, 0.00001f, 100.0f);
    g.samplingFinal = readKey(s, "Sampling_final", dg.samplingFinal, 0.00001f, 100.0f);
    if (current)
        g.normalizeRadius = s.value(QStringLiteral("Normalize_sampling_radius"), dg.normalizeRadius).toBool();
    a.smoothnessInitial = readKey(s, "Smoothness_initial", da.smoothnessInitial, 0.00001f, 100.0f);
    a.smoothnessFinal = readKey(s, "Smoothness_final", da.smoothnessFinal, 0.00001f, 100.0f);
    a.controlPointsWeightInitial = readKey(s, "Control_points_weight_initial", da.controlPointsWeightInitial, 0.0f, 100.0f);
    a.controlPointsWeightFinal = readKey(s, "Control_points_weight_final", da.controlPointsWeightFinal, 0.0f, 100.0f);
    a.maxOptimizationIterations = readKey(s, "Max_optimization_iterations", da.maxOptimizationIterations, 1, 1000);
    a.normalsThreshold = readKey(s, "Normals_threshold", da.normalsThreshold, 0.0f, 1.0f);
    a.dpInitial = readKey(s, "Dp_initial", da.dpInitial, 0.00001f, 1.0f);
    a.dpFinal = readKey(s, "Dp_final", da.dpFinal, 0.00001f, 1.0f);
    if (current)
        settings.rigidity = readKey(s, "Rigity", defaults.rigidity, 0.0f, 10.0f);
    a.rejectWorseRounds = s.value(QStringLiteral("Reject_worse_rounds"), da.rejectWorseRounds).toBool();
    a.repairFolds = s.value(QStringLiteral("Repair_folds"), da.repairFolds).toBool();
    a.coveragePairs = s.value(QStringLiteral("Coverage_pairs"), da.coveragePairs).toBool();
    a.coverageCoarsestLevel =
        s.value(QStringLiteral("Coverage_coarsest_level"), da.coverageCoarsestLevel).toBool();
    a.directSolveNodes = readKey(s, "Direct_solve_nodes", da.directSolveNodes, 0, 100000);
    a.dampingFloor = readKey(s, "Damping_floor", da.dampingFloor, 0.0f, 1.0f);
    a.coarseSolveTolerance = readKey(s, "Coarse_solve_tolerance", da.coarseSolveTolerance, 1e-7f, 0.9f);
    a.finestSolveTolerance = readKey(s, "Finest_solve_tolerance", da.finestSolveTolerance, 1e-7f, 0.9f);
    a.cartoonAnchor = readKey(s, "Cartoon_anchor", da.cartoonAnchor, 0.0f, 1.0f);
    a.surfacePairs = s.value(QStringLiteral("Surface_pairs"), da.surfacePairs).toBool();
    a.borderPairs = s.value(QStringLiteral("Border_pairs"), da.borderPairs).toBool();
    a.convergedMove = readKey(s, "Converged_move", da.convergedMove, 0.0f, 0.1f);
    s.endGroup();
    g.levels = a.subdivisions;
    return true;
}

bool save(const QString& path, const WelkingSettings& settings, QString& error)
{
    QSettings s(path, QSettings::IniFormat);
    const auto& a = settings.accelerated;
    const auto& g = settings.sampling;
    s.beginGroup(Group);
    s.setValue(QStringLiteral("Subdivisions"), a.subdivisions);
    s.setValue(QStringLiteral("ICP_iterations"), a.icpIterations);
    s.setValue(QStringLiteral("Optimization_iterations"), a.optimizationIterations);
    s.setValue(QStringLiteral("Sampling_initial"), g.samplingInitial);
    s.setValue(QStringLiteral("Sampling_final"), g.samplingFinal);
    s.setValue(QStringLiteral("Normalize_sampling_radius"), g.normalizeRadius);
    s.setValue(QStringLiteral("Smoothness_initial"), a.smoothnessInitial);
    s.setValue(QStringLiteral("Smoothness_final"), a.smoothnessFinal);
    s.setValue(QStringLiteral("Control_points_weight_initial"), a.controlPointsWeightInitial);
    s.setValue(QStringLiteral("Control_points_weight_final"), a.controlPointsWeightFinal);
    s.setValue(QStringLiteral("Max_optimization_iterations"), a.maxOptimizationIterations);
    s.setValue(QStringLiteral("Normals_threshold"), a.normalsThreshold);
    s.setValue(QStringLiteral("Dp_initial"), a.dpInitial);
    s.setValue(QStringLiteral("Dp_final"), a.dpFinal);
    s.setValue(QStringLiteral("Rigity"), settings.rigidity);
    s.setValue(QStringLiteral("Reject_worse_rounds"), a.rejectWorseRounds);
    s.setValue(QStringLiteral("Repair_folds"), a.repairFolds);
    s.setValue(QStringLiteral("Coverage_pairs"), a.coveragePairs);
    s.setValue(QStringLiteral("Coverage_coarsest_level"), a.coverageCoarsestLevel);
    s.setValue(QStringLiteral("Direct_solve_nodes"), a.directSolveNodes);
    s.setValue(QStringLiteral("Damping_floor"), a.dampingFloor);
    s.setValue(QStringLiteral("Coarse_solve_tolerance"), a.coarseSolveTolerance);
    s.setValue(QStringLiteral("Finest_solve_tolerance"), a.finestSolveTolerance);
    s.setValue(QStringLiteral("Cartoon_anchor"), a.cartoonAnchor);
    s.setValue(QStringLiteral("Surface_pairs"), a.surfacePairs);
    s.setValue(QStringLiteral("Border_pairs"), a.borderPairs);
    s.setValue(QStringLiteral("Converged_move"), a.convergedMove);
    s.endGroup();
    s.sync();
    if (s.status() != QSettings::NoError) {
        error = QStringLiteral("Cannot write settings file %1").arg(path);
        return false;
    }
    return true;
}

} // namespace WelkingSettingsFile
} // namespace WelkPlugin
