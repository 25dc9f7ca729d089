#pragma once

#include "WGLObject.h"

#include <QMatrix4x4>

#include <memory>
#include <vector>

namespace Welk {

class WGLData;
class WGLMaterial;

/// Joins one mesh's GL arrays to the materials that draw it, in order.
class WGLObjectRenderer : public WGLObject
{
public:
    explicit WGLObjectRenderer(std::shared_ptr<WGLData> data);
    ~WGLObjectRenderer() override;

    void draw(const WGLFrameData& frame) override;

    void addMaterial(std::shared_ptr<WGLMaterial> material) { m_materials.push_back(std::move(material)); }
    void setMaterials(std::vector<std::shared_ptr<WGLMaterial>> materials)
    {
        m_materials = std::move(materials);
    }
    const std::vector<std::shared_ptr<WGLMaterial>>& materials() const { return m_materials; }
    WGLData& data() const { return *m_data; }
    void setModelMatrix(const QMatrix4x4& matrix) { m_model = matrix; }
    const QMatrix4x4& modelMatrix() const { return m_model; }

private:
    std::shared_ptr<WGLData> m_data;
    std::vector<std::shared_ptr<WGLMaterial>> m_materials;
    QMatrix4x4 m_model;
};

} // namespace Welk
