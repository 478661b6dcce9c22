// Which moment is shown, and when the next one is due.

const ASSUMED_INTERVAL = 1 / 24;  // seconds, where samples have no times of their own

export class Playback {
  // `go` is told the moment to show, `state` that playing began or ended.
  constructor(head, store, go, state) {
    this.store = store;
    this.go = go;
    this.state = state;
    this.count = head.moments;
    this.seconds = head.seconds.map((seconds) => seconds - head.seconds[0]);
    const spans = this.seconds[this.count - 1] > 0;
    if (!spans) this.seconds = this.seconds.map((_, i) => i * ASSUMED_INTERVAL);
    const last = this.seconds[this.count - 1];
    // The last moment lasts as long as the others do.
    this.length = last + (this.count > 1 ? last / (this.count - 1) : ASSUMED_INTERVAL);
    this.moment = 0;
    this.playing = false;
    this.loop = true;
    this.speed = 1;
    this.shown = 0;  // moments shown since playing began
    this.began = 0;
  }

  set(moment) {
    const last = Math.max(this.store.ready - 1, 0);
    this.moment = Math.min(Math.max(Math.round(moment), 0), last);
    this.at = this.seconds[this.moment];
    this.go(this.moment);
  }

  step(by) {
    this.pause();
    this.set(this.loop ? (this.moment + by + this.count) % this.count : this.moment + by);
  }

  toggle() { this.playing ? this.pause() : this.play(); }

  play() {
    if (this.count < 2) return;
    if (!this.loop && this.moment === this.count - 1) this.set(0);
    this.playing = true;
    this.at = this.seconds[this.moment];
    this.last = this.began = performance.now();
    this.shown = 0;
    this.state();
  }

  pause() {
    if (!this.playing) return;
    this.playing = false;
    this.state();
  }

  // Moments shown a second since playing began.
  get rate() { return this.shown / Math.max((this.last - this.began) / 1000, 1e-3); }

  // Called once for each picture that the browser draws.
  tick(now) {
    if (!this.playing) return;
    this.at += (now - this.last) / 1000 * this.speed;
    this.last = now;
    if (this.at >= this.length) {
      if (!this.loop) {
        this.set(this.count - 1);
        return this.pause();
      }
      this.at %= this.length;
    }
    const moment = this.momentAt(this.at);
    if (moment >= this.store.ready) {  // not unpacked yet
      this.at = this.seconds[this.moment];
      return;
    }
    if (moment === this.moment) return;
    this.moment = moment;
    ++this.shown;
    this.go(moment);
  }

  // The last moment at or before a time; the search begins where playing is.
  momentAt(at) {
    let moment = this.seconds[this.moment] <= at ? this.moment : 0;
    while (moment + 1 < this.count && this.seconds[moment + 1] <= at) ++moment;
    return moment;
  }
}
