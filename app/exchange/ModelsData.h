#pragma once

#include "ExchangeFolder.h"

#include "document/WImg.h"
#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QMatrix4x4>

#include <memory>
#include <optional>

namespace WelkPlugin {

/// What one run works on: the two subtools, their masks and textures, the
/// points chosen on them and the fit's result. Index 0 is the first subtool
/// (the basemesh, or the texture target), index 1 the second (the scan, or
/// the texture source). Subclasses load in their constructors and leave any
/// failure in an error text.
class ModelsData
{
public:
    explicit ModelsData(const ExchangeFolder& exchange);
    virtual ~ModelsData();
    ModelsData(const ModelsData&) = delete;
    ModelsData& operator=(const ModelsData&) = delete;

    /// Writes the result mesh to `path`.
    virtual bool saveGeometry(const QString& path, QString& error) = 0;
    virtual bool loadGeometry(const QString& path, QString& error, int index) = 0;
    /// Reads a texture into `textures[index]`.
    virtual bool loadTexture(const QString& path, QString& error, int index);

    const GeometryStack2::GeomStackTriangulated* geometry(int index) const { return m_geometry[index].get(); }
    Welk::WImg texture(int index) const { return m_textures[index]; }
    const QVector<quint8>& polygonMaskFlags(int index) const { return m_polygonMaskFlags[index]; }
    const QVector<float>& vertexMask(int index) const { return m_vertexMasks[index]; }
    const QVector<QVector3D>& resultVertices() const { return m_resultVertices; }
    const ExchangeFolder& exchange() const { return m_exchange; }
    bool firstModelClean() const { return m_firstModelClean; }
    /// True where texture coordinates count v from the top of the image, as
    /// ZBrush writes them in GoZ files; OBJ counts from the bottom.
    virtual bool texCoordsFromTop() const { return false; }

    void setCorrespondencePoints(const QVector<Welk::WPointOnTriangle>& points, int index);
    void setSplinePoints(const QVector<Welk::WPointOnTriangle>& points, int index);
    const QVector<Welk::WPointOnTriangle>& correspondencePoints(int index) const { return m_correspondencePoints[index]; }
    const QVector<Welk::WPointOnTriangle>& splinePoints(int index) const { return m_splinePoints[index]; }
    /// The correspondence points followed by the spline points.
    QVector<Welk::WPointOnTriangle> allPoints(int index) const;

    void setResultVertices(const QVector<QVector3D>& vertices);
    void setResultVertices(const std::optional<QMatrix4x4>& transform, const QVector<QVector3D>& vertices);

    /// True when no polygon repeats a vertex and every edge is used by at
    /// most two polygons, in opposite directions.
    static bool isClean(const GeometryStack2::GeomStack& mesh);

protected:
    std::unique_ptr<GeometryStack2::GeomStackTriangulated> m_geometry[2];
    QVector<float> m_vertexMasks[2];
    QVector<quint8> m_polygonMaskFlags[2];
    QVector<Welk::WPointOnTriangle> m_correspondencePoints[2];
    QVector<Welk::WPointOnTriangle> m_splinePoints[2];
    Welk::WImg m_textures[2];
    QVector<QVector3D> m_resultVertices;
    ExchangeFolder m_exchange;
    bool m_firstModelClean = false;
};

/// The class that reads the exchange's meshes: OBJ for a first file ending
/// in ".obj", GoZ otherwise. `error` is empty on success.
std::shared_ptr<ModelsData> loadModelsData(const ExchangeFolder& exchange, const QVector<bool>& textureFlags,
                                           QString& error);

} // namespace WelkPlugin
