// Workers that hold the messages, each some of the blocks.

import {element} from './dom.js';

const PATIENCE_MS = 10000;  // for one expression in one block
const CACHED_MESSAGES = 20000;

export class Workers {
  constructor(log, forms) {
    this.log = log;
    this.forms = forms.pattern.map((pattern, i) => ({pattern, pieces: forms.pieces[i]}));
    const source = new Blob([element('worker').textContent], {type: 'text/javascript'});
    this.url = URL.createObjectURL(source);
    this.cache = new Map();
    this.questions = new Map();
    this.asked = 0;
    this.searches = 0;
  }

  // Has all blocks unpacked, and what was asked of workers before answered.
  async start() {
    const {blocks} = this.log;
    const count = Math.max(1, Math.min(4, navigator.hardwareConcurrency, blocks.length));
    this.workers = Array.from({length: count}, () => {
      const worker = new Worker(this.url);
      worker.onmessage = ({data}) => this.take(data);
      worker.postMessage({forms: this.forms});
      return worker;
    });
    await new Promise((resolve, reject) => {
      this.missing = blocks.length;
      this.done = resolve;
      if (!this.missing) resolve();
      for (const worker of this.workers) worker.onerror = reject;
      blocks.forEach((lines, block) => {
        const columns = element(`columns-${block}`).textContent;
        const text = element(`text-${block}`).textContent;
        this.workers[block % count].postMessage({block, lines, columns, text});
      });
      for (const {worker, question} of this.questions.values()) {
        this.workers[worker].postMessage(question);
      }
    });
  }

  take(data) {
    if (data.loaded !== undefined) {
      if (!this.log.at) this.log.take(data);  // once, however often workers are new
      if (--this.missing === 0) this.done();
    } else if (data.answered === undefined) {
      this.onSearch?.(data);
    } else {
      this.questions.get(data.answered)?.resolve(data.messages);
      this.questions.delete(data.answered);
    }
  }

  // Messages of lines, in their order; unless told otherwise they are kept for the next one who
  // asks.
  async messages(lines, keep = true) {
    if (keep && this.cache.size > CACHED_MESSAGES) this.cache.clear();
    const messages = lines.map((line) => this.cache.get(line));
    const byWorker = this.workers.map(() => []);
    lines.forEach((line, i) => {
      if (messages[i] !== undefined) return;
      const block = this.blockOf(line);
      const entry = {block, line: line - this.log.blockStarts[block]};
      byWorker[block % this.workers.length].push([i, entry]);
    });
    await Promise.all(byWorker.map(async (entries, worker) => {
      if (!entries.length) return;
      const answer = await new Promise((resolve) => {
        const question = {id: ++this.asked, lines: entries.map(([, entry]) => entry)};
        this.questions.set(this.asked, {worker, question, resolve});
        this.workers[worker].postMessage(question);
      });
      answer.forEach((message, k) => {
        const [i] = entries[k];
        messages[i] = message;
        if (keep) this.cache.set(lines[i], message);
      });
    }));
    return messages;
  }

  blockOf(line) {
    let block = this.log.blockStarts.length - 1;
    while (this.log.blockStarts[block] > line) block--;
    return block;
  }

  // A mask of the lines that match; null when it is cancelled, as it has to be before the next one.
  // Throws an Error when the expression takes too long: the workers are new then.
  search(expression) {
    const id = ++this.searches;
    const {source, flags} = expression;
    const mask = new Uint8Array(this.log.lines);
    return new Promise((resolve, reject) => {
      // The workers may be stuck in what is cancelled: they are watched until they are through.
      this.cancel = () => resolve(null);
      const begin = () => {
        let waiting = this.workers.length;  // that have yet to begin
        let missing = this.log.blocks.length;
        const wait = () => {
          clearTimeout(this.timer);
          if (!missing) return resolve(mask);
          this.timer = setTimeout(async () => {
            this.onSearch = null;
            this.workers.forEach((worker) => worker.terminate());
            await this.start();
            if (!waiting)
              reject(new Error('This expression takes too long.'));
            else if (id === this.searches)  // stuck in the one before
              begin();
          }, PATIENCE_MS);
        };
        this.onSearch = (data) => {
          if (data.id !== id) return;
          if (data.mask) {
            mask.set(data.mask, this.log.blockStarts[data.searched]);
            missing--;
          } else {
            waiting--;
          }
          wait();
        };
        wait();
        this.workers.forEach((worker) => worker.postMessage({id, source, flags}));
      };
      begin();
    });
  }
}
