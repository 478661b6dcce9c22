// The picture: all objects in one set of buffers that a moment's samples are written into, so that
// a frame is one upload and at most three draws, and playing allocates nothing.

import {
  BufferAttribute, BufferGeometry, DataTexture, DoubleSide, DynamicDrawUsage, GLSL3, LineSegments, Mesh,
  PerspectiveCamera, Points, RawShaderMaterial, Scene as Graph, Vector3, WebGLRenderer,
} from "three";
import { OrbitControls } from "three/addons/controls/OrbitControls.js";
import { NOWHERE } from "./data.js";
import { fragment, vertex } from "./shaders.js";

const OBJECTS_A_ROW = 256;
const FIRST = 65535;  // in `before`: the point has no sample before
const PICK_RADIUS = 10;  // pixels

export class Picture {
  constructor(canvas, head, store, changed) {
    this.canvas = canvas;
    this.head = head;
    this.store = store;
    this.moment = -1;
    this.renderer = new WebGLRenderer({ canvas, antialias: true, alpha: true, preserveDrawingBuffer: false });
    this.renderer.setPixelRatio(Math.min(devicePixelRatio, 2));
    this.graph = new Graph();
    this.camera = new PerspectiveCamera(40, 1, 0.001, 100);
    this.changed = changed;
    this.measureBox();
    this.makeBuffers();
    this.makeObjects();
    this.setUp("y");
    this.shownSample = new Int32Array(head.objects.length).fill(-2);
    this.shownFaces = new Int32Array(head.objects.length).fill(-1);
    new ResizeObserver(() => this.resize()).observe(canvas);
    this.resize();
  }

  // The box in a scale in which its longest side is 1.
  measureBox() {
    const steps = this.head.step;
    const longest = Math.max(...steps);
    this.unit = longest > 0 ? longest * NOWHERE : 1;  // the cache's unit in those of the picture
    this.sides = new Vector3(...steps.map((step) => longest > 0 ? step / longest : 0));
  }

  makeBuffers() {
    const { objects } = this.head;
    this.base = new Uint32Array(objects.length + 1);
    this.triangleBase = new Uint32Array(objects.length + 1);
    this.edgeBase = new Uint32Array(objects.length + 1);
    objects.forEach((object, i) => {
      this.base[i + 1] = this.base[i] + object.points;
      this.triangleBase[i + 1] = this.triangleBase[i] + object.triangles;
      this.edgeBase[i + 1] = this.edgeBase[i] + object.edges;
    });
    this.total = this.base[objects.length];
    this.position = this.attribute(new Uint16Array(this.total * 4).fill(NOWHERE), 4);
    this.before = this.attribute(new Uint16Array(this.total * 4).fill(NOWHERE), 4);
    objects.forEach((_, i) => {
      for (let v = this.base[i]; v < this.base[i + 1]; ++v) this.position.array[v * 4 + 3] = i;
    });
    this.triangles = new BufferAttribute(new Uint32Array(this.triangleBase[objects.length] * 3), 1);
    this.edges = null;  // made when they are first wanted
    const rows = Math.ceil(objects.length / OBJECTS_A_ROW);
    this.look = new DataTexture(new Uint8Array(rows * OBJECTS_A_ROW * 4), OBJECTS_A_ROW, rows);
  }

  attribute(array, size) {
    const attribute = new BufferAttribute(array, size, true);
    attribute.setUsage(DynamicDrawUsage);
    return attribute;
  }

  geometry(index) {
    const geometry = new BufferGeometry();
    geometry.setAttribute("position", this.position);
    geometry.setAttribute("before", this.before);
    if (index) geometry.setIndex(index);
    return geometry;
  }

  makeObjects() {
    this.uniforms = {
      sides: { value: this.sides }, objects: { value: this.look }, moveScale: { value: 1 },
      colourByMove: { value: true }, pointSize: { value: 3 },
    };
    this.dots = new Points(this.geometry(null), this.material(false, 1));
    this.surface = new Mesh(this.geometry(this.triangles), this.material(true, 1));
    this.surface.material.polygonOffset = true;
    this.surface.material.polygonOffsetFactor = 1;
    this.surface.material.polygonOffsetUnits = 1;
    this.wires = new LineSegments(this.geometry(null), this.material(false, 0.55));
    for (const drawn of [this.dots, this.surface, this.wires]) {
      drawn.frustumCulled = false;
      drawn.visible = false;
      this.graph.add(drawn);
    }
  }

  material(shaded, darken) {
    return new RawShaderMaterial({
      vertexShader: vertex, fragmentShader: fragment, glslVersion: GLSL3, side: DoubleSide,
      uniforms: { ...this.uniforms, shaded: { value: shaded }, darken: { value: darken } },
    });
  }

  get hasFaces() { return this.triangles.count > 0 || this.edgeBase[this.head.objects.length] > 0; }

  setLook(object, rgb, isShown) {
    const { data } = this.look.image;
    data.set([...rgb, isShown ? 255 : 0], object * 4);
    this.look.needsUpdate = true;
    this.changed();
  }

  isShown(object) { return this.look.image.data[object * 4 + 3] !== 0; }

  show(what, isShown) {
    if (what === "wires" && isShown) this.makeEdges();
    this[what].visible = isShown;
    this.changed();
  }

  makeEdges() {
    if (this.edges) return;
    this.edges = new BufferAttribute(new Uint32Array(this.edgeBase[this.head.objects.length] * 2), 1);
    this.wires.geometry.setIndex(this.edges);
    for (let i = 0; i < this.shownFaces.length; ++i) {
      if (this.shownFaces[i] >= 0) this.writeEdges(i, this.store.faces[i][this.shownFaces[i]]);
    }
  }

  setUniform(name, value) {
    this.uniforms[name].value = value;
    this.changed();
  }

  // Writes the samples that are current at a moment into the buffers.
  setMoment(moment) {
    const { objects } = this.head;
    let wrote = false;
    for (let i = 0; i < objects.length; ++i) {
      const sample = this.store.sampleAt(i, moment);
      // A point that rests since the moment before shows that it does.
      const rests = moment > 0 && this.store.sampleAt(i, moment - 1) === sample && sample >= 0;
      const key = rests ? -3 - sample : sample;
      if (this.shownSample[i] === key) continue;
      this.shownSample[i] = key;
      this.writeSample(i, sample, rests);
      wrote = true;
    }
    this.moment = moment;
    if (wrote) {
      this.position.needsUpdate = true;
      this.before.needsUpdate = true;
    }
    this.changed();
  }

  writeSample(object, sample, rests) {
    const samples = this.store.objects[object];
    const room = this.head.objects[object].points;
    const to = this.base[object] * 4;
    const now = this.position.array, then = this.before.array;
    const points = sample < 0 ? 0 : samples.count[sample];
    const earlier = rests ? sample : sample - 1;
    if (points > 0) {
      const hasEarlier = earlier >= 0 && samples.count[earlier] === points;
      copyPlaces(samples.places[sample], samples.offset[sample], points, now, to);
      if (hasEarlier) copyPlaces(samples.places[earlier], samples.offset[earlier], points, then, to);
      fillFourth(then, to, points, hasEarlier ? 0 : FIRST);
    }
    for (let i = points; i < room; ++i) now[to + i * 4] = NOWHERE;
    const faces = sample < 0 ? -1 : samples.faces[sample];
    if (faces >= 0 && faces !== this.shownFaces[object]) this.writeFaces(object, faces);
  }

  writeFaces(object, number) {
    this.shownFaces[object] = number;
    const { counts, indices } = this.store.faces[object][number];
    const base = this.base[object];
    const out = this.triangles.array;
    let at = this.triangleBase[object] * 3;
    for (let face = 0, from = 0; face < counts.length; from += counts[face++]) {
      for (let i = 2; i < counts[face]; ++i) {
        out[at++] = base + indices[from];
        out[at++] = base + indices[from + i - 1];
        out[at++] = base + indices[from + i];
      }
    }
    out.fill(base, at, this.triangleBase[object + 1] * 3);
    this.triangles.needsUpdate = true;
    if (this.edges) this.writeEdges(object, this.store.faces[object][number]);
  }

  writeEdges(object, { counts, indices }) {
    const base = this.base[object];
    const out = this.edges.array;
    let at = this.edgeBase[object] * 2;
    for (let face = 0, from = 0; face < counts.length; from += counts[face++]) {
      const edges = counts[face] > 2 ? counts[face] : counts[face] >> 1;
      for (let i = 0; i < edges; ++i) {
        out[at++] = base + indices[from + i];
        out[at++] = base + indices[from + (i + 1) % counts[face]];
      }
    }
    out.fill(base, at, this.edgeBase[object + 1] * 2);
    this.edges.needsUpdate = true;
  }

  setUp(axis) {
    this.controls?.dispose();
    this.camera.up.set(0, axis === "y" ? 1 : 0, axis === "z" ? 1 : 0);
    this.controls = new OrbitControls(this.camera, this.canvas);
    this.controls.minDistance = 0.001;
    this.controls.maxDistance = 20;
    this.controls.addEventListener("change", this.changed);
    this.axis = axis;
    this.frameAll();
  }

  // The box of the whole animation, seen a little from above and from the side.
  frameAll() {
    const radius = Math.max(this.sides.length() / 2, 0.05);
    const narrow = Math.min(1, this.camera.aspect);
    const distance = radius / Math.sin(this.camera.fov * Math.PI / 360) / narrow * 1.02;
    const from = this.axis === "y" ? new Vector3(0.55, 0.42, 1) : new Vector3(0.55, -1, 0.42);
    this.camera.position.copy(from.normalize().multiplyScalar(distance));
    this.controls.target.set(0, 0, 0);
    this.controls.update();
    this.changed();
  }

  turn(left, up) {
    this.controls.rotateLeft(left);
    this.controls.rotateUp(up);
  }
  move(right, up) { this.controls.pan(right, up); }
  zoom(closer) {
    if (closer > 1) this.controls.dollyIn(1 / closer);
    else this.controls.dollyOut(closer);
  }

  resize() {
    const { clientWidth, clientHeight } = this.canvas;
    if (!clientWidth || !clientHeight) return;
    const wasFresh = this.camera.aspect === 1;
    this.renderer.setSize(clientWidth, clientHeight, false);
    this.camera.aspect = clientWidth / clientHeight;
    this.camera.updateProjectionMatrix();
    if (wasFresh) this.frameAll();
    this.changed();
  }

  draw() {
    const distance = Math.max(this.camera.position.distanceTo(this.controls.target), 0.001);
    this.camera.near = distance / 500;
    this.camera.far = distance + 20;
    this.camera.updateProjectionMatrix();
    this.renderer.render(this.graph, this.camera);
  }

  // Where a vertex is on the canvas, in pixels, and how deep; null for one that is not seen.
  project(v, out) {
    const places = this.position.array;
    if (places[v * 4] === NOWHERE) return null;
    out.set(places[v * 4] / NOWHERE - 0.5, places[v * 4 + 1] / NOWHERE - 0.5, places[v * 4 + 2] / NOWHERE - 0.5)
      .multiply(this.sides).project(this.camera);
    if (out.z < -1 || out.z > 1) return null;
    out.x = (out.x + 1) / 2 * this.canvas.clientWidth;
    out.y = (1 - out.y) / 2 * this.canvas.clientHeight;
    return out;
  }

  // The nearest shown vertex that lies within some pixels of a place on the canvas; -1 for none.
  pick(x, y) {
    const seen = new Vector3();
    let best = -1, depth = Infinity;
    for (let object = 0; object < this.head.objects.length; ++object) {
      if (!this.isShown(object)) continue;
      for (let v = this.base[object]; v < this.base[object + 1]; ++v) {
        if (!this.project(v, seen)) continue;
        if (Math.hypot(seen.x - x, seen.y - y) > PICK_RADIUS || seen.z >= depth) continue;
        best = v;
        depth = seen.z;
      }
    }
    return best;
  }
}

function copyPlaces(from, offset, points, to, at) {
  const y = offset + points, z = y + points;
  for (let i = 0; i < points; ++i, at += 4) {
    to[at] = from[offset + i];
    to[at + 1] = from[y + i];
    to[at + 2] = from[z + i];
  }
}

function fillFourth(to, at, points, value) {
  for (let i = 0; i < points; ++i) to[at + i * 4 + 3] = value;
}
