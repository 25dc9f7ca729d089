uniform sampler2D glyphs;
varying vec2 uv;
varying vec4 markerColor;

void main()
{
    // The atlas holds coverage in alpha; colour comes from the marker.
    float coverage = texture2D(glyphs, uv).a;
    if (coverage <= 0.01)
        discard;
    gl_FragData[0] = vec4(markerColor.rgb, markerColor.a * coverage);
}
