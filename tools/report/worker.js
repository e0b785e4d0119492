// A worker's part of the log: unpacks blocks of lines, keeps their messages and searches them.
// The columns of a block, as they are packed, are described in log_columns.h.

const CHUNK_LINES = 4096;
const SLICE_MS = 8;  // until other requests get their turn

let forms;                 // {pattern, pieces} each
const blocks = new Map();  // number -> {lines, chunks: [{text, starts}]}
let searchId = 0;
const decoder = new TextDecoder('utf-8', {ignoreBOM: true});  // a message may begin with one

async function unpack(base64) {
  const binary = atob(base64);
  const bytes = new Uint8Array(binary.length);
  for (let i = 0; i < bytes.length; i++) bytes[i] = binary.charCodeAt(i);
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate-raw'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

// Milliseconds since the last line of the block before, summed up.
function readTimes(bytes, lines) {
  const times = new Float64Array(lines);
  let at = 0;
  let time = 0;
  for (let line = 0; line < lines; line++) {
    let value = 0;
    let scale = 1;
    let byte;
    do {
      byte = bytes[at++];
      value += (byte & 0x7f) * scale;
      scale *= 128;
    } while (byte > 0x7f);
    time += value % 2 ? -(value + 1) / 2 : value / 2;
    times[line] = time;
  }
  return {times, end: at};
}

function readPlanes(bytes, at, lines) {
  const numbers = new Uint32Array(lines);
  for (let plane = 0; plane < 4; plane++) {
    for (let line = 0; line < lines; line++) numbers[line] |= bytes[at++] << (8 * plane);
  }
  return numbers;
}

// Where each form's share begins in what is ordered by form.
function formStarts(lineForms, size) {
  const counts = new Uint32Array(forms.length);
  for (const form of lineForms) counts[form]++;
  const starts = new Uint32Array(forms.length);
  for (let form = 0, at = 0; form < forms.length; form++) {
    starts[form] = at;
    at += counts[form] * size(forms[form]);
  }
  return {counts, starts};
}

function fillForms(lineForms, text) {
  const values = text.split('\n');
  const {counts, starts} = formStarts(lineForms, (form) => form.pieces.length - 1);
  const seen = new Uint32Array(forms.length);
  const chunks = [];
  for (let first = 0; first < lineForms.length; first += CHUNK_LINES) {
    const messages = [];
    const end = Math.min(first + CHUNK_LINES, lineForms.length);
    const offsets = new Uint32Array(end - first + 1);
    for (let line = first; line < end; line++) {
      const form = lineForms[line];
      const {pieces} = forms[form];
      let at = starts[form] + seen[form]++;
      let message = pieces[0];
      for (let i = 1; i < pieces.length; i++) {
        message += values[at] + pieces[i];
        at += counts[form];
      }
      messages.push(message);
      offsets[line - first + 1] = offsets[line - first] + message.length + 1;
    }
    messages.push('');  // a line feed behind the last one, too
    chunks.push({text: messages.join('\n'), starts: offsets});
  }
  return chunks;
}

async function load({block, lines, columns, text}) {
  const [columnBytes, textBytes] = await Promise.all([unpack(columns), unpack(text)]);
  const {times, end} = readTimes(columnBytes, lines);
  const lineForms = readPlanes(columnBytes, end, lines);
  const byForm = readPlanes(columnBytes, end + 4 * lines, lines);
  const {starts} = formStarts(lineForms, () => 1);
  const patterns = new Uint32Array(lines);
  const sources = new Uint32Array(lines);
  for (let line = 0; line < lines; line++) {
    const form = lineForms[line];
    patterns[line] = forms[form].pattern;
    sources[line] = byForm[starts[form]++];
  }
  blocks.set(block, {lines, chunks: fillForms(lineForms, decoder.decode(textBytes))});
  const buffers = [times.buffer, patterns.buffer, sources.buffer];
  postMessage({loaded: block, times, patterns, sources}, buffers);
}

function messageAt({chunks}, line) {
  const {text, starts} = chunks[Math.floor(line / CHUNK_LINES)];
  const at = line % CHUNK_LINES;
  return text.slice(starts[at], starts[at + 1] - 1);
}

// Marks the lines that the expression matches, each by itself: ^ and $ are the ends of a message.
function searchChunk({text, starts}, expression, mask) {
  for (let line = 0; line + 1 < starts.length; line++) {
    if (expression.test(text.slice(starts[line], starts[line + 1] - 1))) mask[line] = 1;
  }
}

const turn = new MessageChannel();
const waiting = [];
turn.port1.onmessage = () => waiting.shift()();
const nextTurn = () => new Promise((resolve) => {
  waiting.push(resolve);
  turn.port2.postMessage(0);
});

async function search({id, source, flags}) {
  searchId = id;
  postMessage({id});  // begun
  const expression = new RegExp(source, flags);
  let until = performance.now() + SLICE_MS;
  for (const [block, {lines, chunks}] of blocks) {
    const mask = new Uint8Array(lines);
    for (let i = 0; i < chunks.length; i++) {
      searchChunk(chunks[i], expression, mask.subarray(i * CHUNK_LINES));
      if (performance.now() > until) {
        await nextTurn();
        if (searchId !== id) return;
        until = performance.now() + SLICE_MS;
      }
    }
    postMessage({searched: block, id, mask}, [mask.buffer]);
  }
}

let loaded = Promise.resolve();

onmessage = async ({data}) => {
  if (data.forms) {
    forms = data.forms;
  } else if (data.columns) {
    loaded = loaded.then(() => load(data));
    loaded.catch(reportError);
  } else if (data.source !== undefined) {
    await loaded;
    search(data);
  } else {
    await loaded;
    const messages = data.lines.map(({block, line}) => messageAt(blocks.get(block), line));
    postMessage({answered: data.id, messages});
  }
};
