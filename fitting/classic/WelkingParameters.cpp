#include "WelkingParameters.h"

#include <QFile>
#include <QJsonDocument>

#include <cmath>
#include <vector>

namespace Welk {

namespace {

// One table for reading, writing and comparing, so that a new field cannot
// be forgotten in one of them.
template <typename Visitor> void visitFields(WelkingParameters& p, Visitor&& visit)
{
    visit("nNodesToUse", p.nNodesToUse);
    visit("nICPIterations", p.nICPIterations);
    visit("samplingMaxMultiplier", p.samplingMaxMultiplier);
    visit("samplingMinMultiplier", p.samplingMinMultiplier);
    visit("nSubdivisions", p.nSubdivisions);
    visit("globalSmoothWeightMin", p.globalSmoothWeightMin);
    visit("globalSmoothWeightMax", p.globalSmoothWeightMax);
    visit("globalPoint2PointFittingWeight", p.globalPoint2PointFittingWeight);
    visit("globalPoint2PlaneFittingWeight", p.globalPoint2PlaneFittingWeight);
    visit("globalControlPointsWeightFinal", p.globalControlPointsWeightFinal);
    visit("globalControlPointsWeightInitial", p.globalControlPointsWeightInitial);
    visit("nUsualLevMarIters", p.nUsualLevMarIters);
    visit("nEndLevMarIters", p.nEndLevMarIters);
    visit("minCosBetweenNormals", p.minCosBetweenNormals);
    visit("maxDp", p.maxDp);
    visit("minDp", p.minDp);
}

struct Reader
{
    const QJsonObject& json;
    void operator()(const char* key, int& value) const { value = json.value(QLatin1String(key)).toInt(0); }
    void operator()(const char* key, float& value) const
    {
        value = float(json.value(QLatin1String(key)).toDouble(0.0));
    }
};

struct Writer
{
    QJsonObject& json;
    void operator()(const char* key, int value) const { json.insert(QLatin1String(key), value); }
    void operator()(const char* key, float value) const { json.insert(QLatin1String(key), double(value)); }
};

} // namespace

bool WelkingParameters::operator==(const WelkingParameters& o) const
{
    WelkingParameters a = *this, b = o;
    std::vector<double> left, right;
    visitFields(a, [&](const char*, auto& v) { left.push_back(double(v)); });
    visitFields(b, [&](const char*, auto& v) { right.push_back(double(v)); });
    return left == right;
}

QJsonObject WelkingParameters::toJson() const
{
    QJsonObject json;
    WelkingParameters copy = *this;
    visitFields(copy, Writer{json});
    return json;
}

WelkingParameters WelkingParameters::fromJson(const QJsonObject& json)
{
    WelkingParameters p;
    visitFields(p, Reader{json});
    return p;
}

QString WelkingParameters::validate() const
{
    bool finite = true;
    WelkingParameters copy = *this;
    visitFields(copy, [&](const char*, auto& v) { finite = finite && std::isfinite(double(v)); });
    if (!finite)
        return QStringLiteral("The classic fit's settings hold a value that is not a number");
    if (nSubdivisions < 1)
        return QStringLiteral("The classic fit needs at least one graph level (nSubdivisions is %1)").arg(nSubdivisions);
    if (nNodesToUse < 1)
        return QStringLiteral("The classic fit needs at least one node per vertex (nNodesToUse is %1)").arg(nNodesToUse);
    if (!(samplingMinMultiplier > 0.0f))
        return QStringLiteral("The classic fit's finest sampling radius must be above zero "
                              "(samplingMinMultiplier is %1)")
            .arg(double(samplingMinMultiplier));
    if (samplingMaxMultiplier < samplingMinMultiplier)
        return QStringLiteral("The classic fit's coarsest sampling radius (samplingMaxMultiplier %1) is below "
                              "its finest (samplingMinMultiplier %2)")
            .arg(double(samplingMaxMultiplier))
            .arg(double(samplingMinMultiplier));
    if (nICPIterations < 0 || nUsualLevMarIters < 0 || nEndLevMarIters < 0)
        return QStringLiteral("The classic fit's iteration counts must not be negative");
    return QString();
}

bool WelkingParameters::load(const QString& path, WelkingParameters& parameters, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("Cannot open %1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        error = QStringLiteral("%1 is not valid JSON: %2").arg(path, parseError.errorString());
        return false;
    }
    if (!document.isObject()) {
        error = QStringLiteral("%1 must hold one JSON object of classic fit settings").arg(path);
        return false;
    }
    parameters = fromJson(document.object());
    error.clear();
    return true;
}

bool WelkingParameters::save(const QString& path, const WelkingParameters& parameters, QString& error)
{
    QFile file(path);
    const QByteArray bytes = QJsonDocument(parameters.toJson()).toJson();
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size()) {
        error = QStringLiteral("Cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    error.clear();
    return true;
}

} // namespace Welk
