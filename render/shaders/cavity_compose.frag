uniform sampler2D textureColor;
uniform sampler2D textureDepth;
uniform sampler2D textureNormal;
uniform sampler2D textureXyz;
uniform sampler2D textureAlternativeColor;
uniform vec2 screenSize;
varying vec2 screenUv;

vec2 normalGradient(vec2 at)
{
    vec3 n = texture2D(textureNormal, at).xyz;
    float d = abs(n.z) < 0.01 ? 1.0 / 0.01 : 1.0 / abs(n.z);
    return vec2(-n.x * d, -n.y * d);
}

void main()
{
    vec4 colorA = texture2D(textureColor, screenUv);
    if (colorA.a <= 0.0)
        discard;
    vec2 texel = 1.0 / screenSize;
    vec2 right = normalGradient(screenUv + vec2(texel.x, 0.0));
    vec2 left = normalGradient(screenUv - vec2(texel.x, 0.0));
    vec2 top = normalGradient(screenUv + vec2(0.0, texel.y));
    vec2 bottom = normalGradient(screenUv - vec2(0.0, texel.y));
    float xx = right.x - left.x;
    float yy = top.y - bottom.y;
    float c = -(xx + yy) / 2.0;
    float cNorm = clamp(c + 0.5, 0.0, 1.0);
    vec4 colorB = texture2D(textureAlternativeColor, screenUv);
    gl_FragData[0] = vec4(colorB.rgb * cNorm + colorA.rgb * (1.0 - cNorm), colorA.a);
    gl_FragData[1] = texture2D(textureXyz, screenUv);
    gl_FragDepth = texture2D(textureDepth, screenUv).x;
}
