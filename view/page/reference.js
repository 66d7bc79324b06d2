// The flash of the dark-adapted leaf that others are compared with, kept by this browser for each
// head.

import {dateText} from './format.js';

export class Reference {
  of(device) { return JSON.parse(localStorage.getItem(`reference ${device}`)); }

  take(event, Fm) {
    const {DEVICE, DATE, TIME, TIMESTAMP} = event.values;
    const kept = {Fo: event.before.F, Fm, taken: `${dateText(DATE)} ${TIME}`, timestamp: TIMESTAMP};
    localStorage.setItem(`reference ${DEVICE}`, JSON.stringify(kept));
  }

  drop(device) { localStorage.removeItem(`reference ${device}`); }
}
