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
};

} // namespace WelkingAcceleratedVersion
