// What the page was given: a head as JSON, and chunks of samples, each some moments of all objects.

// How a record's positions are predicted, and whether faces come with it.
const POINT_BEFORE = 0, SAMPLE_BEFORE = 1, EQUAL = 3, FACES_FOLLOW = 16;

export const NOWHERE = 65535;  // all three places of a point that is not finite

export function readHead() {
  const head = JSON.parse(document.getElementById("head").textContent);
  head.moments = head.frames.length;
  head.colourScale = 2 * head.typicalMove;
  // The sample of each clock that is current at each moment, -1 for none.
  head.current = head.clocks.map((begins) => {
    const current = new Int32Array(head.moments).fill(-1);
    for (let i = 0; i < begins.length; ++i) current.fill(i, begins[i]);
    return current;
  });
  return head;
}

// The samples of one object: where its places lie, 3 x `count` of them, x of all points, then y,
// then z.
class Samples {
  constructor(count) {
    this.places = new Array(count).fill(null);
    this.offset = new Uint32Array(count);
    this.count = new Uint32Array(count);
    this.faces = new Int32Array(count).fill(-1);
  }
}

export class Store {
  constructor(head) {
    this.head = head;
    this.objects = head.objects.map((object) => new Samples(head.clocks[object.clock].length));
    this.faces = head.objects.map(() => []);  // of each object { counts, indices }, as they change
    this.ready = 0;  // moments that can be shown
  }

  sampleAt(object, moment) {
    return this.head.current[this.head.objects[object].clock][moment];
  }

  // Positions in the cache's unit: x0 y0 z0 x1 ...; not finite where the point is not.
  positions(object, moment) {
    const sample = this.sampleAt(object, moment);
    if (sample < 0 || moment >= this.ready) return null;
    const { places, offset, count } = this.objects[object];
    const points = count[sample];
    const values = new Float64Array(points * 3);
    for (let i = 0; i < points; ++i) {
      for (let k = 0; k < 3; ++k) {
        const place = places[sample][offset[sample] + k * points + i];
        values[i * 3 + k] = place === NOWHERE ? NaN : this.head.low[k] + place * this.head.step[k];
      }
    }
    return values;
  }

  // Unpacks all chunks in their order, the next one while this one is taken; `told` hears of each.
  async unpack(told) {
    const elements = [...document.querySelectorAll('script[type="application/x-kelcache-chunk"]')];
    let next = inflate(elements[0]);
    for (let i = 0; i < elements.length; ++i) {
      const { first, moments, values } = elements[i].dataset;
      const bytes = await next;
      if (i + 1 < elements.length) next = inflate(elements[i + 1]);
      this.take(bytes, Number(first), Number(moments), Number(values));
      this.ready = Number(first) + Number(moments);
      told();
    }
  }

  take(bytes, first, moments, values) {
    const cursor = { bytes, view: new DataView(bytes.buffer, bytes.byteOffset), at: 0 };
    const places = new Uint16Array(values);
    const base = this.objects.map((samples, i) => first === 0 ? 0 : this.sampleAt(i, first - 1) + 1);
    let used = 0;
    for (let moment = first; moment < first + moments; ++moment) {
      for (let i = 0; i < this.objects.length; ++i) {
        const sample = this.sampleAt(i, moment);
        if (sample < 0 || (moment > 0 && this.sampleAt(i, moment - 1) === sample)) continue;
        used += this.takeRecord(cursor, i, sample, base[i], places, used);
      }
    }
    if (cursor.at !== bytes.length || used !== values) throw new Error("a chunk is damaged");
  }

  takeRecord(cursor, object, sample, base, places, at) {
    const samples = this.objects[object];
    const kind = cursor.bytes[cursor.at++];
    if (kind & FACES_FOLLOW) this.faces[object].push(takeFaces(cursor));
    samples.faces[sample] = this.faces[object].length - 1;
    const prediction = kind & ~FACES_FOLLOW;
    if (prediction === EQUAL) {
      samples.places[sample] = samples.places[sample - 1];
      samples.offset[sample] = samples.offset[sample - 1];
      samples.count[sample] = samples.count[sample - 1];
      return 0;
    }
    const points = takeNumber(cursor);
    samples.places[sample] = places;
    samples.offset[sample] = at;
    samples.count[sample] = points;
    // Predictions reach no further back than the chunk, whose places are one array.
    const last = sample > base ? samples.offset[sample - 1] : 0;
    const before = sample > base + 1 ? samples.offset[sample - 2] : 0;
    for (let k = 0; k < 3; ++k) {
      const from = k * points;
      takePlaces(cursor, points, prediction, places, at + from, last + from, before + from);
    }
    return points * 3;
  }
}

function takeNumber(cursor) {
  cursor.at += 4;
  return cursor.view.getUint32(cursor.at - 4, true);
}

// `last` and `before`: where the predicting samples lie.
function takePlaces(cursor, points, prediction, places, at, last, before) {
  const { bytes } = cursor;
  const low = cursor.at, high = cursor.at + points;
  cursor.at += 2 * points;
  if (prediction === POINT_BEFORE) {
    for (let i = 0, place = 0; i < points; ++i) {
      const zigzag = bytes[low + i] | bytes[high + i] << 8;
      places[at + i] = place += (zigzag >> 1) ^ -(zigzag & 1);
    }
  } else if (prediction === SAMPLE_BEFORE) {
    for (let i = 0; i < points; ++i) {
      const zigzag = bytes[low + i] | bytes[high + i] << 8;
      places[at + i] = places[last + i] + ((zigzag >> 1) ^ -(zigzag & 1));
    }
  } else {
    for (let i = 0; i < points; ++i) {
      const zigzag = bytes[low + i] | bytes[high + i] << 8;
      places[at + i] = 2 * places[last + i] - places[before + i] + ((zigzag >> 1) ^ -(zigzag & 1));
    }
  }
}

function takeFaces(cursor) {
  const faces = takeNumber(cursor), indices = takeNumber(cursor);
  return { counts: takeDifferences(cursor, faces), indices: takeDifferences(cursor, indices) };
}

function takeDifferences(cursor, count) {
  const values = new Uint32Array(count);
  const { bytes, at } = cursor;
  for (let i = 0, value = 0; i < count; ++i) {
    const zigzag = bytes[at + i] | bytes[at + count + i] << 8 | bytes[at + 2 * count + i] << 16 |
        bytes[at + 3 * count + i] << 24;
    values[i] = value = value + ((zigzag >>> 1) ^ -(zigzag & 1)) >>> 0;
  }
  cursor.at += 4 * count;
  return values;
}

function fromBase64(text) {
  if (Uint8Array.fromBase64) return Uint8Array.fromBase64(text);
  const letters = atob(text);
  const bytes = new Uint8Array(letters.length);
  for (let i = 0; i < letters.length; ++i) bytes[i] = letters.charCodeAt(i);
  return bytes;
}

// The bytes of a chunk, whose element is then of no more use.
async function inflate(element) {
  const size = Number(element.dataset.bytes);
  const packed = fromBase64(element.textContent);
  element.remove();
  const reader = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate")).getReader();
  const bytes = new Uint8Array(size);
  let at = 0;
  for (let part = await reader.read(); !part.done; part = await reader.read()) {
    bytes.set(part.value, at);
    at += part.value.length;
  }
  if (at !== size) throw new Error("a chunk is cut short");
  return bytes;
}
