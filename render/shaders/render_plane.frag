uniform sampler2D texture;
varying vec2 screenUv;

void main()
{
    gl_FragColor = texture2D(texture, screenUv);
}
