// The samples of the last hour, as far as this page has seen them, ready to be drawn.
//
// Each column is kept in chunks of single precision, with the least and the highest value of each
// block beside it, so that an hour at 1 kHz is drawn from its blocks, and a second from its samples.

const chunkRows = 16384;
const blockRows = 64;
const kept = 3600;  // seconds
export const columns = ['LUMET', 'PFD', 'DC', 'PC', 'REDFRAC', 'BLUEFRAC', 'FARREDFRAC', 'CODE'];
const codeColumn = columns.indexOf('CODE');

class Chunk {
  constructor() {
    this.count = 0;
    this.times = new Float64Array(chunkRows);
    this.values = columns.map(() => new Float32Array(chunkRows));
    this.least = columns.map(() => new Float32Array(chunkRows / blockRows).fill(Infinity));
    this.highest = columns.map(() => new Float32Array(chunkRows / blockRows).fill(-Infinity));
  }
}

export class Store {
  constructor() { this.clear(); }

  clear() {
    this.chunks = [];
    this.first = NaN;
    this.last = -Infinity;  // time of the newest sample
    this.step = 0;
    this.rows = 0;          // taken since the start, without those of the past
    this.longestStep = 0;   // between live rows
  }

  // The head's columns, by which rows are told.
  setColumns(names) {
    this.width = names.length;
    this.sources = columns.map((name) => names.indexOf(name));
  }

  // Takes rows, one after the other. Those of the past are only for a page that is new.
  add(numbers, isPast) {
    if (!this.width) return;
    for (let at = 0; at + this.width <= numbers.length; at += this.width) {
      const time = numbers[at];
      if (time < this.last - 1 && !isPast) this.clear();  // the head's clock was set back
      if (time <= this.last) continue;
      const step = time - this.last;
      // A line across a gap would tell of samples that there were not.
      if (step > 2.5 && step > 5 * this.step && this.last > 0) this.put(this.last + step / 2, () => NaN);
      this.put(time, (column) => numbers[at + this.sources[column]]);
      if (!isPast) {
        if (this.rows++ > 0) this.longestStep = Math.max(this.longestStep, step);
      }
      this.step = step;
      this.last = time;
    }
    while (this.chunks.length > 1 && this.chunks[1].times[0] < this.last - kept) this.chunks.shift();
    if (this.chunks.length > 0) this.first = this.chunks[0].times[0];
  }

  put(time, valueOf) {
    let chunk = this.chunks.at(-1);
    if (!chunk || chunk.count === chunkRows) this.chunks.push(chunk = new Chunk());
    const row = chunk.count++;
    const block = Math.floor(row / blockRows);
    chunk.times[row] = time;
    for (let column = 0; column < columns.length; ++column) {
      const value = valueOf(column);
      chunk.values[column][row] = value;
      if (value < chunk.least[column][block]) chunk.least[column][block] = value;
      if (value > chunk.highest[column][block]) chunk.highest[column][block] = value;
    }
  }

  newest(name) { return this.chunks.at(-1)?.values[columns.indexOf(name)][this.chunks.at(-1).count - 1]; }

  // What lies from `start` to `end`, in at most about `points` points: {times, values, events}, with
  // an array for each column and the spans of time in events.
  between(start, end, points) {
    const rows = this.count(start, end);
    const unit = rows > points * blockRows / 2 ? blockRows : 1;
    const perBucket = Math.max(1, Math.ceil(rows / unit / (points / 2)));
    const result = {times: [], values: columns.map(() => []), events: []};
    const isWhole = unit === 1 && perBucket === 1;
    const bucket = {size: 0, times: [0, 0], least: columns.map(() => Infinity), highest: columns.map(() => -Infinity)};
    const release = () => {
      if (bucket.size === 0) return;
      for (const which of isWhole ? ['least'] : ['least', 'highest']) {
        result.times.push(which === 'least' ? bucket.times[0] : (bucket.times[0] + bucket.times[1]) / 2);
        columns.forEach((_, column) => {
          const value = bucket[which][column];
          result.values[column].push(Number.isFinite(value) ? value : NaN);
        });
      }
      this.noteEvent(result.events, bucket);
      bucket.size = 0;
      bucket.least.fill(Infinity);
      bucket.highest.fill(-Infinity);
    };
    for (const chunk of this.chunks) {
      if (chunk.times[chunk.count - 1] < start) continue;
      if (chunk.times[0] > end) break;
      for (let row = 0; row < chunk.count; row += unit) {
        const last = Math.min(row + unit, chunk.count) - 1;
        if (chunk.times[last] < start) continue;
        if (chunk.times[row] > end) break;
        if (bucket.size === 0) bucket.times[0] = chunk.times[row];
        bucket.times[1] = chunk.times[last];
        for (let column = 0; column < columns.length; ++column) {
          const least = unit === 1 ? chunk.values[column][row] : chunk.least[column][row / unit];
          const highest = unit === 1 ? least : chunk.highest[column][row / unit];
          if (least < bucket.least[column]) bucket.least[column] = least;
          if (highest > bucket.highest[column]) bucket.highest[column] = highest;
        }
        const isGap = bucket.least[0] === Infinity;
        if (++bucket.size === perBucket || isGap) release();
      }
    }
    release();
    return result;
  }

  noteEvent(events, bucket) {
    if (!(bucket.highest[codeColumn] > 1)) return;
    const latest = events.at(-1);
    const gap = Math.max(2 * this.step, 2 * (bucket.times[1] - bucket.times[0]));
    if (latest && bucket.times[0] - latest[1] <= gap) latest[1] = bucket.times[1];
    else events.push([...bucket.times]);
  }

  count(start, end) {
    let rows = 0;
    for (const {times, count} of this.chunks) {
      if (times[count - 1] < start || times[0] > end) continue;
      rows += this.rowAt(times, count, end) - this.rowAt(times, count, start);
    }
    return rows;
  }

  // The first row at or after a time.
  rowAt(times, count, time) {
    let low = 0;
    let high = count;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (times[middle] < time) low = middle + 1;
      else high = middle;
    }
    return low;
  }
}
