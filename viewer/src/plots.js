// The plots under the picture. A click goes to the moment, a line marks where playing is.

import uPlot from "uplot";

const HEIGHT = 120;
const dark = matchMedia("(prefers-color-scheme: dark)");
const colour = (name) => () => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
const FIRST_COLOURS = ["--accent", "--alarm"];

const shortNumber = (value) => value === null ? "–" : Number(value.toPrecision(4)).toString();

export class Plots {
  constructor(parent, head, go) {
    this.head = head;
    this.go = go;
    this.moment = 0;
    this.times = head.frames.every((frame) => frame !== null) ? head.frames : head.seconds;
    // Samples at one time are told apart by their number.
    if (this.times.some((time, i) => i > 0 && !(time > this.times[i - 1]))) this.times = this.times.map((_, i) => i);
    const { figures } = head;
    this.plots = [
      this.add(parent, "Move since the last sample", [["largest", figures.largestMove], ["mean", figures.meanMove]]),
      this.add(parent, "Size of the box (diagonal)", [["size", figures.boxSize]]),
      this.add(parent, "Elements", [["elements", figures.elements]]),
      this.add(parent, "Values that are not finite", [["values", figures.notFinite]]),
    ];
    dark.addEventListener("change", () => this.plots.forEach((plot) => plot.redraw(false, true)));
  }

  add(parent, title, lines) {
    const box = parent.appendChild(document.createElement("div"));
    box.className = "plot";
    box.appendChild(document.createElement("h2")).textContent = title;
    const largest = lines.map(([name, values]) => `${name} up to ${shortNumber(max(values))}`).join(", ");
    box.setAttribute("role", "img");
    box.setAttribute("aria-label", `${title}: ${largest}`);
    const axis = { stroke: colour("--quiet"), grid: { stroke: colour("--line"), width: 1 }, ticks: { stroke: colour("--line"), width: 1 } };
    const plot = new uPlot({
      width: box.clientWidth || 320, height: HEIGHT,
      scales: { x: { time: false }, y: { range: (_, low, high) => range(low, high) } },
      axes: [{ ...axis, size: 28 }, { ...axis, size: 62, values: (_, ticks) => ticks.map(shortNumber) }],
      legend: { live: false, show: lines.length > 1 },
      cursor: { drag: { x: false, y: false }, points: { show: false } },
      series: [{}, ...lines.map(([label], i) => ({ label, stroke: colour(FIRST_COLOURS[i]), width: 1.5, points: { show: this.times.length === 1 } }))],
      hooks: { draw: [(self) => this.mark(self)] },
    }, [this.times, ...lines.map(([, values]) => values)], box);
    new ResizeObserver(() => {
      if (box.clientWidth && box.clientWidth !== plot.width) plot.setSize({ width: box.clientWidth, height: HEIGHT });
    }).observe(box);
    plot.over.addEventListener("click", (event) => {
      this.go(plot.posToIdx(event.clientX - plot.over.getBoundingClientRect().left));
    });
    const line = plot.over.appendChild(document.createElement("div"));
    Object.assign(line.style, { position: "absolute", top: 0, bottom: 0, width: "2px", background: "var(--front)", pointerEvents: "none" });
    plot.nowLine = line;
    return plot;
  }

  // What was found, as ticks along the top.
  mark(plot) {
    const { ctx, bbox } = plot;
    ctx.save();
    ctx.fillStyle = colour("--alarm")();
    for (const { first, last } of this.head.flags) {
      const from = plot.valToPos(this.times[first], "x", true), to = plot.valToPos(this.times[last], "x", true);
      ctx.fillRect(from - 1.5 * devicePixelRatio, bbox.top, to - from + 3 * devicePixelRatio, 7 * devicePixelRatio);
    }
    ctx.restore();
  }

  setMoment(moment) {
    const time = this.times[moment];
    for (const plot of this.plots) plot.nowLine.style.transform = `translateX(${plot.valToPos(time, "x") - 1}px)`;
  }
}

function max(values) {
  let most = 0;
  for (const value of values) if (value > most) most = value;
  return most;
}

function range(low, high) {
  if (low === null || high === null) return [0, 1];
  const from = Math.min(0, low);
  return [from, high > from ? high + (high - from) * 0.08 : from + 1];
}
