// Positions come as the 16-bit places of the page's data; w is the object's number.
export const vertex = `
in vec4 position;
in vec4 before;
uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform vec3 sides;        // of the box, its longest 1, as far as 65535 places reach
uniform sampler2D objects; // colour and whether it is shown
uniform float moveScale;
uniform bool colourByMove;
uniform float pointSize;
out vec3 vColour;
out vec3 vPlace;
out float vHidden;

vec3 ramp(float t) { // viridis
  const vec3 a = vec3(0.2777, 0.0054, 0.3341), b = vec3(0.1051, 1.4046, 1.3846),
             c = vec3(-0.3309, 0.2148, 0.0951), d = vec3(-4.6342, -5.7991, -19.3324),
             e = vec3(6.2283, 14.1799, 56.6906), f = vec3(4.7764, -13.7451, -65.3530),
             g = vec3(-5.4355, 4.6459, 26.3124);
  return a + t * (b + t * (c + t * (d + t * (e + t * (f + t * g)))));
}

void main() {
  int number = int(position.w * 65535. + .5);
  vec4 object = texelFetch(objects, ivec2(number & 255, number >> 8), 0);
  bool isThere = position.x < .99999;
  vHidden = isThere && object.a > .5 ? 0. : 1.;
  vColour = object.rgb;
  float size = pointSize;
  if (colourByMove) {
    float move = length((position.xyz - before.xyz) * sides);
    if (before.x > .99999 || before.w > .5) vColour = vec3(.55);
    else if (move == 0.) vColour = vec3(.45, .5, .62);
    else if (move > 4. * moveScale) { vColour = vec3(1., .1, .45); size = max(2. * size, 6.); }
    else vColour = ramp(.08 + .92 * sqrt(min(move / moveScale, 1.)));
  }
  vec4 place = modelViewMatrix * vec4((position.xyz - .5) * sides, 1.);
  vPlace = place.xyz;
  gl_Position = projectionMatrix * place;
  gl_PointSize = size;
}`;

export const fragment = `
precision highp float;
in vec3 vColour;
in vec3 vPlace;
in float vHidden;
uniform bool shaded;
uniform float darken;
out vec4 colour;
void main() {
  if (vHidden > 0.) discard;
  vec3 seen = vColour * darken;
  if (shaded) {
    vec3 normal = normalize(cross(dFdx(vPlace), dFdy(vPlace)));
    seen *= .35 + .65 * abs(dot(normal, normalize(vec3(.25, .35, 1.))));
  }
  colour = vec4(seen, 1.);
}`;
