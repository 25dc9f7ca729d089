uniform sampler2D texture;
uniform vec4 checkerDark;
uniform vec4 checkerLight;
varying vec2 uv;

void main()
{
    vec4 texel = texture2D(texture, uv);
    // Empty (transparent) texels show a checkerboard, as image editors do.
    vec2 cell = floor(gl_FragCoord.xy / 8.0);
    vec4 checker = mod(cell.x + cell.y, 2.0) < 1.0 ? checkerDark : checkerLight;
    gl_FragColor = vec4(mix(checker.rgb, texel.rgb, texel.a), 1.0);
}
