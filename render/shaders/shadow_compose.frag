uniform sampler2D textureColor;
uniform sampler2D textureShadow;
uniform sampler2D textureDepth;
varying vec2 screenUv;

void main()
{
    vec4 a = texture2D(textureColor, screenUv);
    if (a.a <= 0.0)
        discard;
    vec4 b = texture2D(textureShadow, screenUv);
    gl_FragData[0] = vec4(a.rgb - (vec3(1.0) - b.rgb), a.a);
    gl_FragDepth = texture2D(textureDepth, screenUv).x;
}
