#include "WelkingSettingsForm.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QSpinBox>

#include <cmath>

namespace WelkPlugin {

using Settings = WelkingSettings;

WelkingSettingsForm::WelkingSettingsForm(WelkingSettingsFile::Dialog dialog, QWidget* parent)
    : QWidget(parent)
{
    auto* form = new QFormLayout(this);
    form->setContentsMargins(0, 0, 0, 0);
    const bool current = dialog == WelkingSettingsFile::Dialog::Current;

    auto addInt = [&](const char* key, const QString& label, int lo, int hi, auto get, const QString& tip) {
        auto* box = new QSpinBox(this);
        box->setRange(lo, hi);
        box->setToolTip(tip);
        form->addRow(label, box);
        connect(box, QOverload<int>::of(&QSpinBox::valueChanged), this, [this] {
            if (!m_showing)
                Q_EMIT edited();
        });
        m_fields.push_back({QLatin1String(key), box,
                            [box, get](const Settings& s) { box->setValue(get(const_cast<Settings&>(s))); },
                            [box, get](Settings& s) { get(s) = box->value(); }});
    };
    auto addFloat = [&](const char* key, const QString& label, double lo, double hi, auto get,
                        const QString& tip) {
        auto* box = new QDoubleSpinBox(this);
        box->setDecimals(5);
        box->setRange(lo, hi);
        box->setSingleStep(hi <= 1.0 ? 0.001 : 0.1);
        box->setToolTip(tip);
        form->addRow(label, box);
        connect(box, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, [this] {
            if (!m_showing)
                Q_EMIT edited();
        });
        m_fields.push_back({QLatin1String(key), box,
                            [box, get](const Settings& s) { box->setValue(get(const_cast<Settings&>(s))); },
                            [box, get](Settings& s) { get(s) = static_cast<float>(box->value()); }});
    };
    auto label = [current](const char* title, const char* sentence) {
        return QString::fromLatin1(current ? title : sentence);
    };

    addInt(
        "Subdivisions", QStringLiteral("Subdivisions"), 1, 10,
        [](Settings& s) -> int& { return s.accelerated.subdivisions; },
        tr("Graph levels from coarse to fine; more levels fit finer detail and take longer"));
    addInt(
        "ICP_iterations", label("ICP Iterations", "ICP iterations"), 1, 100,
        [](Settings& s) -> int& { return s.accelerated.icpIterations; },
        tr("Rounds of closest-point matching per level"));
    addInt(
        "Optimization_iterations", label("Optimization Iterations", "Optimization iterations"), 1, 100,
        [](Settings& s) -> int& { return s.accelerated.optimizationIterations; },
        tr("Solver steps per matching round"));
    addFloat(
        "Sampling_initial", label("Sampling Initial", "Sampling initial"), 0.00001, 100,
        [](Settings& s) -> float& { return s.sampling.samplingInitial; },
        tr("Node spacing of the coarsest level"));
    addFloat(
        "Sampling_final", label("Sampling Final", "Sampling final"), 0.00001, 100,
        [](Settings& s) -> float& { return s.sampling.samplingFinal; },
        tr("Node spacing of the finest level"));
    if (current) {
        auto* box = new QCheckBox(this);
        box->setToolTip(tr("Spacing relative to the basemesh's size rather than in scene units"));
        form->addRow(QStringLiteral("Normalize Sampling"), box);
        connect(box, &QCheckBox::toggled, this, [this] {
            if (!m_showing)
                Q_EMIT edited();
        });
        m_fields.push_back({QStringLiteral("Normalize_sampling_radius"), box,
                            [box](const Settings& s) { box->setChecked(s.sampling.normalizeRadius); },
                            [box](Settings& s) { s.sampling.normalizeRadius = box->isChecked(); }});
    }
    addFloat(
        "Smoothness_initial", label("Smoothness Initial", "Smoothness initial"), 0.00001, 100,
        [](Settings& s) -> float& { return s.accelerated.smoothnessInitial; },
        tr("Stiffness at the coarsest level"));
    addFloat(
        "Smoothness_final", label("Smoothness Final", "Smoothness final"), 0.00001, 100,
        [](Settings& s) -> float& { return s.accelerated.smoothnessFinal; },
        tr("Stiffness at the finest level"));
    addFloat(
        "Control_points_weight_initial",
        label("Control Points Weight Initial", "Control points weight initial"), 0, 100,
        [](Settings& s) -> float& { return s.accelerated.controlPointsWeightInitial; },
        tr("Pull of the point pairs at the coarsest level"));
    addFloat(
        "Control_points_weight_final", label("Control Points Weight Final", "Control points weight final"), 0,
        100, [](Settings& s) -> float& { return s.accelerated.controlPointsWeightFinal; },
        tr("Pull of the point pairs at the finest level"));
    addInt(
        "Max_optimization_iterations", label("Max Optimization Iterations", "Max optimization iterations"), 1,
        1000, [](Settings& s) -> int& { return s.accelerated.maxOptimizationIterations; },
        tr("Upper bound of solver steps in one round"));
    addFloat(
        "Normals_threshold", label("Normals Threshold", "Normals threshold"), 0, 1,
        [](Settings& s) -> float& { return s.accelerated.normalsThreshold; },
        tr("Closest points whose normals agree less than this are ignored"));
    addFloat(
        "Dp_initial", label("Dp Initial", "Dp initial"), 0.00001, 1,
        [](Settings& s) -> float& { return s.accelerated.dpInitial; },
        tr("Step tolerance at the coarsest level"));
    addFloat(
        "Dp_final", label("Dp Final", "Dp final"), 0.00001, 1,
        [](Settings& s) -> float& { return s.accelerated.dpFinal; },
        tr("Step tolerance at the finest level"));
    if (current)
        addFloat(
            "Rigity", QStringLiteral("Rigity"), 0, 10, [](Settings& s) -> float& { return s.rigidity; },
            tr("How much the cartoon fit's nodes keep their shape"));
}

void WelkingSettingsForm::setSettings(const WelkingSettings& settings)
{
    m_showing = true;
    for (const Field& f : m_fields)
        f.show(settings);
    m_showing = false;
}

WelkingSettings WelkingSettingsForm::settings(const WelkingSettings& base) const
{
    WelkingSettings out = base;
    for (const Field& f : m_fields)
        f.read(out);
    out.sampling.levels = out.accelerated.subdivisions;
    return out;
}

QWidget* WelkingSettingsForm::field(const QString& key) const
{
    for (const Field& f : m_fields)
        if (f.key == key)
            return f.editor;
    return nullptr;
}

QStringList WelkingSettingsForm::keys() const
{
    QStringList out;
    for (const Field& f : m_fields)
        out << f.key;
    return out;
}

} // namespace WelkPlugin
