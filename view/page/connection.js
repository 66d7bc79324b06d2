// The web socket to lumet-view: made again by itself, with answers to what was asked.

const retryAfter = 1000;  // ms
const answerLimit = 15000;

export class Connection {
  // `heard` has a function for each name of a message, and `rows`, `opened` and `closed`.
  constructor(heard) {
    this.heard = heard;
    this.waiting = new Map();
    this.lastId = 0;
    const [, token] = location.hash.match(/token=([^&]*)/) ?? [];
    if (token) {
      sessionStorage.setItem('token', decodeURIComponent(token));
      history.replaceState(null, '', location.pathname);
    }
    this.open();
  }

  open() {
    const scheme = location.protocol === 'https:' ? 'wss' : 'ws';
    this.socket = new WebSocket(`${scheme}://${location.host}/`, 'lumet-view');
    this.socket.binaryType = 'arraybuffer';
    this.socket.onopen = () => {
      this.heard.opened();
      const token = sessionStorage.getItem('token');
      if (token) this.send({token});
    };
    this.socket.onmessage = ({data}) => this.take(data);
    this.socket.onclose = () => {
      for (const settle of this.waiting.values()) settle({error: 'The connection was lost before the answer came.'});
      this.waiting.clear();
      this.heard.closed();
      setTimeout(() => this.open(), retryAfter);
    };
  }

  take(data) {
    if (typeof data !== 'string') {
      const [kind] = new Float64Array(data, 0, 1);
      this.heard.rows(new Float64Array(data, 8), kind === 1);
      return;
    }
    for (const [name, value] of Object.entries(JSON.parse(data))) {
      if (name === 'answer') this.settle(value);
      else this.heard[name]?.(value);
    }
  }

  settle(answer) {
    this.waiting.get(answer.id)?.(answer);
    this.waiting.delete(answer.id);
  }

  send(message) {
    if (this.socket.readyState === WebSocket.OPEN) this.socket.send(JSON.stringify(message));
  }

  enterToken(token) {
    sessionStorage.setItem('token', token);
    this.send({token});
  }

  // Sets settings together: [{path, value}]. The answer has `error` and `results`.
  set(assignments) {
    if (this.socket.readyState !== WebSocket.OPEN)
      return Promise.resolve({error: 'The page is not connected.', results: []});
    const id = ++this.lastId;
    return new Promise((resolve) => {
      this.waiting.set(id, resolve);
      this.send({id, set: assignments});
      setTimeout(() => this.settle({id, error: 'No answer came.', results: []}), answerLimit);
    });
  }
}

// The document that sets them, in the language of the head.
export function documentOf(assignments) {
  const escaped = (text) => text.replace(/[&<>"']/g, (letter) => `&#${letter.charCodeAt(0)};`);
  const nested = assignments.map(({path, value}) => {
    const tags = path.split('/');
    return tags.map((tag) => `<${tag}>`).join('') + escaped(value) +
        tags.reverse().map((tag) => `</${tag}>`).join('');
  });
  return `<nemra><tavo>${nested.join('')}</tavo></nemra>`;
}

// What became of an assignment, in a sentence, and whether it is done.
export function outcomeText({error, results = []}) {
  const parts = error ? [error] : [];
  for (const {path, asked, value, refusal, done} of results) {
    if (error || done) continue;
    const name = path.replace(/^cfg\//, '');
    parts.push(refusal ? `The head says of ${name} = ${asked}: ${refusal.trim()}. It holds ${value || 'nothing'}.`
                       : `${name}: asked for ${asked}, the head holds ${value}.`);
  }
  return {done: parts.length === 0, text: parts.join(' ')};
}
