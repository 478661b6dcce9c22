import { Color } from "three";
import { readHead, Store } from "./data.js";
import { Picture } from "./scene.js";
import { Playback } from "./playback.js";
import { Plots } from "./plots.js";

const $ = (id) => document.getElementById(id);
const tidy = (value, digits = 6) => Number(value.toPrecision(digits)).toString();

const KEYS = [
  ["Space, K", "play or pause"], [", .", "step back, step forward"], ["Home, End", "first, last frame"],
  ["L", "loop"], ["[ ]", "slower, faster"], ["1 2 3", "points, surface, wires"], ["C", "colours"],
  ["U", "up axis"], ["F", "frame the whole animation"],
  ["Arrows, with Shift", "in the picture: turn it, move it"], ["+ −", "in the picture: zoom"],
];

function fail(problem) {
  $("problem").textContent = `This page can not play here: ${problem.message ?? problem}`;
  $("problem").hidden = false;
  $("loading").hidden = true;
}

class Player {
  constructor() {
    this.head = readHead();
    this.store = new Store(this.head);
    this.dirty = true;
    this.picture = new Picture($("canvas"), this.head, this.store, () => { this.dirty = true; });
    this.playback = new Playback(this.head, this.store, (moment) => this.show(moment), () => this.showState());
    this.vertex = -1;
    this.seen = this.picture.camera.position.clone();
    this.describe();
    this.colourObjects();
    this.wire();
    this.plots = new Plots($("plots"), this.head, (moment) => this.seek(moment));
    this.draw = this.draw.bind(this);
    requestAnimationFrame(this.draw);
  }

  async load() {
    const began = performance.now();
    let first = true;
    await this.store.unpack(() => {
      $("loading").textContent = `Reading positions, ${Math.round(this.store.ready / this.head.moments * 100)} %`;
      if (first) this.playback.set(0);
      if (first) this.firstShown = performance.now();
      first = false;
    });
    $("loading").hidden = true;
    this.unpackedIn = performance.now() - began;
    this.openedAfter = performance.now();  // since the browser began to read the page
  }

  describe() {
    const { head } = this;
    const count = (number, word) => `${number.toLocaleString("en")} ${word}${number === 1 ? "" : "s"}`;
    document.title = head.file;
    $("title").textContent = head.file;
    const rate = head.rate === null ? "no frame rate" : `${tidy(head.rate)} frames a second (${head.rateSource})`;
    $("subtitle").textContent = [`${head.format} cache`, count(head.moments, "frame"), count(this.picture.total, "point"),
      head.objects.length > 1 ? count(head.objects.length, "object") : "", rate,
      `positions within ${tidy(head.error, 2)}`].filter(Boolean).join(" · ");
    for (const note of head.notes) $("notes").appendChild(document.createElement("li")).textContent = note;
    $("notes").hidden = head.notes.length === 0;
    $("precision").textContent = `Positions have 16 bits of the animation's box: each coordinate lies within ${tidy(head.error, 3)} ` +
      "of the cache's value, in the cache's unit. Everything that this page shows is in this one file.";
    $("scrubber").max = head.moments - 1;
    for (const [keys, text] of KEYS) {
      $("keys").appendChild(document.createElement("dt")).textContent = keys;
      $("keys").appendChild(document.createElement("dd")).textContent = text;
    }
    for (const flag of head.flags) {
      const button = $("findings").appendChild(document.createElement("li")).appendChild(document.createElement("button"));
      button.type = "button";
      button.textContent = flag.text;
      button.addEventListener("click", () => this.seek(flag.first));
    }
    $("flags").hidden = head.flags.length === 0;
  }

  // Colours that lie far apart on the wheel, whatever their number.
  colourObjects() {
    const { objects } = this.head;
    const single = objects.length === 1;
    objects.forEach((object, i) => {
      const hue = (0.58 + i * 0.618034) % 1;
      const colour = new Color().setHSL(hue, 0.6, 0.5);
      const rgb = [colour.r, colour.g, colour.b].map((part) => Math.round(part * 255));
      const css = `rgb(${rgb.join(" ")})`;
      this.picture.setLook(i, rgb, true);
      const label = $("list").appendChild(document.createElement("label"));
      const box = label.appendChild(document.createElement("input"));
      box.type = "checkbox";
      box.checked = true;
      box.addEventListener("change", () => this.picture.setLook(i, rgb, box.checked));
      const swatch = label.appendChild(document.createElement("span"));
      swatch.className = "swatch";
      swatch.style.background = css;
      label.append(object.name);
    });
    $("objects").hidden = single;
    const tickAll = (ticked) => $("list").querySelectorAll("input").forEach((box) => {
      if (box.checked !== ticked) box.click();
    });
    $("all").addEventListener("click", () => tickAll(true));
    $("none").addEventListener("click", () => tickAll(false));
    $("colour").value = single ? "move" : "object";
    this.picture.setUniform("colourByMove", single);
  }

  wire() {
    const { picture, playback } = this;
    const on = (id, event, act) => $(id).addEventListener(event, act);
    on("play", "click", () => playback.toggle());
    on("first", "click", () => this.seek(0));
    on("last", "click", () => this.seek(this.head.moments - 1));
    on("back", "click", () => playback.step(-1));
    on("forward", "click", () => playback.step(1));
    on("scrubber", "input", () => this.seek($("scrubber").valueAsNumber));
    on("loop", "change", () => { playback.loop = $("loop").checked; });
    on("speed", "change", () => { playback.speed = Number($("speed").value); });
    for (const [id, part] of [["points", "dots"], ["surface", "surface"], ["wires", "wires"]]) {
      on(id, "change", () => picture.show(part, $(id).checked));
    }
    on("size", "input", () => this.sizePoints());
    on("colour", "change", () => { picture.setUniform("colourByMove", $("colour").value === "move"); this.showLegend(); });
    on("up", "change", () => picture.setUp($("up").value));
    on("frame", "click", () => picture.frameAll());
    on("find", "input", () => this.findPoint($("find").valueAsNumber));
    on("canvas", "pointermove", (event) => { this.pointer = event.buttons ? null : event; this.dirty = true; });
    on("canvas", "pointerleave", () => { this.pointer = null; if (!this.isFound) this.mark(-1); });
    document.addEventListener("keydown", (event) => this.key(event));
    picture.canvas.addEventListener("webglcontextrestored", () => { this.dirty = true; });

    const hasFaces = picture.hasFaces;
    $("surface").disabled = $("wires").disabled = !hasFaces;
    const allHaveFaces = this.head.objects.every((object) => object.edges > 0);
    $("surface").checked = hasFaces;
    $("points").checked = !allHaveFaces;
    picture.show("surface", hasFaces);
    picture.show("dots", !allHaveFaces);
    $("size").value = Math.max(1.5, Math.min(6, 9 - Math.log10(Math.max(picture.total, 1)) * 1.5));
    this.sizePoints();
    const scale = this.head.colourScale / picture.unit;
    picture.setUniform("moveScale", scale > 0 ? scale : 1e30);
    $("up").value = this.head.format === "alembic" ? "y" : "z";
    picture.setUp($("up").value);
    this.showLegend();
  }

  sizePoints() {
    this.picture.setUniform("pointSize", $("size").valueAsNumber * Math.min(devicePixelRatio, 2));
  }

  showLegend() {
    const typical = this.head.colourScale;
    $("legend").hidden = $("colour").value !== "move";
    $("legend").textContent = typical === 0 ? "Nothing moves." :
      `Colour: move since the last sample shown. Grey rests, blue to yellow up to ${tidy(typical, 3)}, pink beyond ${tidy(4 * typical, 3)}.`;
  }

  timeText(moment) {
    const frame = this.head.frames[moment];
    const seconds = `${tidy(this.head.seconds[moment])} s`;
    return frame === null ? seconds : `frame ${tidy(frame, 9)}, ${seconds}`;
  }

  seek(moment) {
    this.playback.pause();
    this.playback.set(moment);
  }

  show(moment) {
    this.picture.setMoment(moment);
    const text = this.timeText(moment);
    $("scrubber").value = moment;
    $("scrubber").setAttribute("aria-valuetext", text);
    $("now").textContent = `${text} (${moment + 1} of ${this.head.moments})`;
    this.plots.setMoment(moment);
    if (this.vertex >= 0) this.mark(this.vertex);
  }

  showState() {
    $("play").textContent = this.playback.playing ? "Pause" : "Play";
  }

  key(event) {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const { picture, playback } = this;
    const target = event.target;
    const isField = target.matches?.("select, input[type=number], input[type=range]");
    const onCanvas = target === picture.canvas;
    const click = (id) => () => { if (!$(id).disabled) $(id).click(); };
    const pick = (id, by) => () => {
      const { options, selectedIndex } = $(id);
      $(id).selectedIndex = by === 0 ? (selectedIndex + 1) % options.length :
        Math.min(Math.max(selectedIndex + by, 0), options.length - 1);
      $(id).dispatchEvent(new Event("change"));
    };
    const turned = (left, up) => () => event.shiftKey ? picture.move(left * 200, up * 200) : picture.turn(left, up);
    const acts = {
      k: () => playback.toggle(), ",": () => playback.step(-1), ".": () => playback.step(1),
      l: click("loop"), "[": pick("speed", -1), "]": pick("speed", 1), 1: click("points"), 2: click("surface"),
      3: click("wires"), c: pick("colour", 0), u: pick("up", 0), f: () => picture.frameAll(),
    };
    if (!isField) Object.assign(acts, { Home: () => this.seek(0), End: () => this.seek(this.head.moments - 1) });
    if (!target.matches?.("button, input, select, summary")) acts[" "] = acts.k;
    if (onCanvas) {
      Object.assign(acts, {
        ArrowLeft: turned(0.1, 0), ArrowRight: turned(-0.1, 0), ArrowUp: turned(0, 0.1), ArrowDown: turned(0, -0.1),
        "+": () => picture.zoom(1.15), "=": () => picture.zoom(1.15), "-": () => picture.zoom(1 / 1.15),
      });
    }
    const act = acts[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (!act || (isField && event.key.length === 1 && target.type === "number")) return;
    event.preventDefault();
    act();
  }

  // A point's number counts those of its object, left-out ones too.
  pointOf(vertex) {
    let object = 0;
    while (this.picture.base[object + 1] <= vertex) ++object;
    return { object, point: vertex - this.picture.base[object] };
  }

  findPoint(number) {
    const vertex = number / this.head.pointStride;
    this.isFound = Number.isInteger(vertex) && vertex >= 0 && vertex < this.head.objects[0].points;
    this.mark(this.isFound ? vertex : -1);
  }

  mark(vertex) {
    this.vertex = vertex;
    const { picture, head } = this;
    $("tip").hidden = $("marker").hidden = vertex < 0;
    if (vertex < 0) return;
    const { object, point } = this.pointOf(vertex);
    const places = picture.position.array.subarray(vertex * 4, vertex * 4 + 3);
    const isThere = places[0] !== 65535;
    const where = isThere ? `(${[...places].map((place, k) => tidy(head.low[k] + place * head.step[k])).join(", ")})` :
      "not finite, or not in this sample";
    const name = head.objects.length > 1 ? `${head.objects[object].name} ` : "";
    $("tip").textContent = `${name}point ${point * head.pointStride}: ${where}`;
    this.dirty = true;
  }

  placeMark() {
    const at = this.picture.project(this.vertex, this.seen);
    $("marker").hidden = !at;
    $("tip").style.left = at ? `${Math.min(at.x + 12, Math.max(this.picture.canvas.clientWidth - 200, 0))}px` : "6px";
    $("tip").style.top = at ? `${Math.min(at.y + 12, this.picture.canvas.clientHeight - 50)}px` : "6px";
    if (at) Object.assign($("marker").style, { left: `${at.x}px`, top: `${at.y}px` });
  }

  draw(now) {
    requestAnimationFrame(this.draw);
    this.playback.tick(now);
    if (!this.dirty) return;
    this.dirty = false;
    if (this.pointer && !this.playback.playing) {
      const box = this.picture.canvas.getBoundingClientRect();
      const vertex = this.picture.pick(this.pointer.clientX - box.left, this.pointer.clientY - box.top);
      if (vertex >= 0) this.isFound = false;
      if (vertex >= 0 || !this.isFound) this.mark(vertex);
      this.pointer = null;
      this.dirty = false;
    }
    this.picture.draw();
    if (this.vertex >= 0) this.placeMark();
  }
}

// What a program may ask of the page.
function hook(player) {
  const { store, playback, picture, head } = player;
  return {
    head,
    get frameCount() { return head.moments; },
    get moment() { return playback.moment; },
    get playing() { return playback.playing; },
    get rate() { return playback.rate; },
    get ready() { return store.ready; },
    get times() { return { first: player.firstShown, all: player.openedAfter, unpack: player.unpackedIn }; },
    positions: (object, moment) => Array.from(store.positions(object, moment) ?? []),
    go: (moment) => player.seek(moment),
    play: () => playback.play(),
    pause: () => playback.pause(),
    pick: (x, y) => picture.pick(x, y),
    // The picture as it is now, as pixels: r g b a ... from the bottom left.
    pixels() {
      picture.draw();
      const gl = picture.renderer.getContext();
      const pixels = new Uint8Array(gl.drawingBufferWidth * gl.drawingBufferHeight * 4);
      gl.readPixels(0, 0, gl.drawingBufferWidth, gl.drawingBufferHeight, gl.RGBA, gl.UNSIGNED_BYTE, pixels);
      return pixels;
    },
  };
}

try {
  if (typeof DecompressionStream === "undefined") throw new Error("the browser is too old to unpack it");
  const player = new Player();
  window.kelcachePlayer = hook(player);
  player.load().catch(fail);
} catch (problem) {
  fail(problem);
}
