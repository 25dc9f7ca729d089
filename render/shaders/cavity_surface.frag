uniform vec4 uniformColor;
uniform float opacity;
varying vec3 viewPosition;
varying vec3 viewNormal;

#ifdef isTextureEnabled
uniform sampler2D texture;
varying vec2 uv;
#endif
#ifdef isIndexColorEnabled
varying vec4 indexColor;
#endif

const float lightness = 0.2;

vec3 lit(vec3 rgb, vec3 n, float specularWeight)
{
#ifdef isLightingEnabled
    vec3 light = vec3(0.0, 0.0, 1.0);
    float diffuse = abs(dot(n, light));
    float specular = max(dot(reflect(normalize(viewPosition), n), light), 0.0);
    return (0.5 + 0.5 * diffuse) * rgb + specularWeight * specular;
#else
    return rgb;
#endif
}

void main()
{
    vec4 base = uniformColor;
#ifdef isTextureEnabled
    vec4 texel = texture2D(texture, uv);
    base = vec4(texel.rgb, uniformColor.a * texel.a);
#endif
#ifdef isIndexColorEnabled
    base = vec4(indexColor.rgb, uniformColor.a);
#endif
    vec3 n = normalize(viewNormal);
    float alpha = base.a * opacity;
    gl_FragData[0] = vec4(lit(base.rgb, n, 0.02), alpha);
    gl_FragData[1] = vec4(viewPosition, 1.0);
    gl_FragData[2] = vec4(n, 1.0);
    gl_FragData[3] = vec4(lit(base.rgb + vec3(lightness), n, 0.005), alpha);
}
