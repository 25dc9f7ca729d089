uniform sampler2D textureDepth;
varying vec2 screenUv;

const float minDepthDiff = 5.961e-8;

void main()
{
    float depth = texture2D(textureDepth, screenUv).x;
    if (depth >= 1.0)
        discard;
    gl_FragDepth = depth + minDepthDiff;
}
