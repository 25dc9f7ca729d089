attribute vec3 vertex;

void main()
{
    // Farthest depth that still passes a clear to 1.
    gl_Position = vec4(vertex.xy, 1.0 - 1e-6, 1.0);
}
