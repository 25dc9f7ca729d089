uniform sampler2D textureXyz;
uniform vec2 screenSize;
uniform float shadowIntensity;
varying vec2 screenUv;

const int shadowRadiusPx = 10;
const float shadowShiftPx = 12.0;
const float slope = 2.0;

void main()
{
    vec4 point = texture2D(textureXyz, screenUv);
    if (point.a < 0.1) {
        gl_FragColor = vec4(1.0, 1.0, 1.0, 0.0);
        return;
    }
    vec2 texel = 1.0 / screenSize;
    vec2 centre = screenUv + vec2(0.0, shadowShiftPx) * texel;
    float occluders = 0.0;
    float samples = 0.0;
    for (int dy = -shadowRadiusPx; dy <= shadowRadiusPx; ++dy) {
        for (int dx = -shadowRadiusPx; dx <= shadowRadiusPx; ++dx) {
            vec2 offset = vec2(float(dx), float(dy));
            vec4 pointUpper = texture2D(textureXyz, centre + offset * texel);
            samples += 1.0;
            // A steep rise towards the eye within the window shades the point.
            if (pointUpper.a >= 0.1 && pointUpper.z - point.z > slope * length(pointUpper.xy - point.xy))
                occluders += 1.0;
        }
    }
    float value = 1.0 - clamp(occluders / samples * shadowIntensity, 0.0, 1.0);
    gl_FragColor = vec4(value, value, value, point.w);
}
