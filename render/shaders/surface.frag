uniform vec4 color;
uniform float ghostEffectBaseline;
uniform float opacity;
uniform int colorSpace;
varying vec3 viewPosition;
varying vec3 viewNormal;

#ifdef isTextureEnabled
uniform sampler2D texture;
varying vec2 uv;
#endif
#if defined(isIndexColorEnabled) || defined(isCornerColorEnabled)
varying vec4 indexColor;
#endif

float toSrgb(float x)
{
    return x <= 0.0031308 ? 12.92 * x : 1.055 * pow(x, 1.0 / 2.4) - 0.055;
}

void main()
{
    vec4 base = color;
#ifdef isTextureEnabled
    vec4 texel = texture2D(texture, uv);
    base = vec4(texel.rgb, color.a * texel.a);
#endif
#if defined(isIndexColorEnabled) || defined(isCornerColorEnabled)
#if defined(isTextureEnabled) && defined(allowDrawTextureWithCornersColor)
    base = indexColor.w * vec4(indexColor.rgb, 1.0) + (1.0 - indexColor.w) * base;
#else
    base = vec4(indexColor.rgb, color.a);
#endif
#endif
    if (colorSpace == 1)
        base.rgb = vec3(toSrgb(base.r), toSrgb(base.g), toSrgb(base.b));
#ifdef isLightingEnabled
    vec3 n = normalize(viewNormal);
    vec3 light = vec3(0.0, 0.0, 1.0);
    float diffuse = abs(dot(n, light));
    float specular = max(dot(reflect(normalize(viewPosition), n), light), 0.0);
    base.rgb = (0.5 + 0.5 * diffuse) * base.rgb + 0.02 * specular;
#endif
#ifdef isGhostEffectEnabled
    float g = (base.r + base.g + base.b) / 3.0;
    g = (g - ghostEffectBaseline) * 1.0 + ghostEffectBaseline;
    base.rgb = vec3(g);
#endif
    gl_FragData[0] = vec4(base.rgb, base.a * opacity);
    gl_FragData[1] = vec4(viewPosition, 1.0);
}
