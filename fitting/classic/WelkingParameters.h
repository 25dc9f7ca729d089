#pragma once

#include <QJsonObject>
#include <QString>

namespace Welk {

/// The settings of the classic fit. Distances are in mean edge lengths of
/// the basemesh (sampling) or in the fit's normalised frame (maxDp, minDp).
struct WelkingParameters
{
    int nNodesToUse = 8;                           ///< influences per vertex
    int nICPIterations = 5;                        ///< matching rounds per level
    float samplingMaxMultiplier = 5.0f;            ///< coarsest sampling radius
    float samplingMinMultiplier = 0.2f;            ///< finest sampling radius
    int nSubdivisions = 3;                         ///< graph levels
    float globalSmoothWeightMin = 0.05f;           ///< smoothness at the last level
    float globalSmoothWeightMax = 1.0f;            ///< upper end of the smoothness schedule
    float globalPoint2PointFittingWeight = 0.1f;
    float globalPoint2PlaneFittingWeight = 1.0f;
    float globalControlPointsWeightFinal = 10.0f;  ///< control weight at the last level
    float globalControlPointsWeightInitial = 10.0f;
    int nUsualLevMarIters = 20;                    ///< solver budget of a level's rounds but the last
    int nEndLevMarIters = 100;                     ///< solver budget of a level's last round
    float minCosBetweenNormals = 0.65f;            ///< matches facing apart are dropped
    float maxDp = 0.01f;                           ///< step tolerance of a level's first round
    float minDp = 0.002f;                          ///< step tolerance of a level's last round

    bool operator==(const WelkingParameters& o) const;
    bool operator!=(const WelkingParameters& o) const { return !(*this == o); }

    /// Every field under its own name as key.
    QJsonObject toJson() const;
    /// Reads every key; a missing or non-numeric key gives 0 for its field,
    /// not its default, so a stored set must be complete.
    static WelkingParameters fromJson(const QJsonObject& json);

    /// Empty when the fit can run with these values; otherwise why not.
    QString validate() const;

    /// Reads a JSON file holding one object; false with a message otherwise.
    static bool load(const QString& path, WelkingParameters& parameters, QString& error);
    static bool save(const QString& path, const WelkingParameters& parameters, QString& error);
};

} // namespace Welk
