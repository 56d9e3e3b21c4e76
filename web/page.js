// The page: takes a dropped or chosen world, has the worker pare it with the
// options set, and shows the status, the messages, the sizes, the downloads
// and both worlds. The last run stays in window.worldPare.last (the test reads
// it); body[data-state] says idle, running, done or failed, and
// body[data-views] whether both worlds have been loaded into their views.
import { SideBySide } from './views.js';

// Worlds larger than this are drawn only on request: X_ITE reads them on the
// page's own thread.
const kDrawLimit = 8 << 20;

const $ = (id) => document.getElementById(id);
const worker = new Worker('worker.js');
const views = new SideBySide($('view-original'), $('view-pared'));
const decoder = new TextDecoder();
let world = null;  // the File last given
let runId = 0;
let downloadUrls = [];

window.worldPare = { last: null };

function baseName(name) {
  return name.replace(/(\.(wrl|vrml))?(\.gz)?$|\.wrz$/i, '') || 'world';
}

function formatBytes(size) {
  return size.toLocaleString('en-US');
}

function formatRatio(part, whole) {
  return whole === 0 ? '' : `${(100 * part / whole).toFixed(1)} %`;
}

function statusText(status) {
  if (status === 1) return 'Status 1: the pared world is written.';
  return `Status ${status} (${status & 255} in a POSIX shell): the run stopped.`;
}

function setDownload(link, bytes, fileName) {
  const url = URL.createObjectURL(new Blob([bytes], { type: 'model/vrml' }));
  downloadUrls.push(url);
  link.href = url;
  link.download = fileName;
}

function clearDownloads() {
  downloadUrls.forEach((url) => URL.revokeObjectURL(url));
  downloadUrls = [];
  for (const link of [$('download-wrl'), $('download-wrz')]) link.removeAttribute('href');
}

let ticker = null;

// The status counts the seconds of a run; the page stays free while the
// worker works.
function showRunning(name, started) {
  document.body.dataset.state = 'running';
  $('result').hidden = false;
  $('status').className = '';
  const tick = () => {
    const seconds = (performance.now() - started) / 1000;
    $('status').textContent = `Paring ${name}… ${seconds.toFixed(1)} s`;
  };
  tick();
  clearInterval(ticker);
  ticker = setInterval(tick, 100);
  $('messages').textContent = '';
  for (const id of ['input-plain', 'input-gzipped', 'output-plain', 'output-gzipped',
    'ratio-plain', 'ratio-gzipped']) {
    $(id).textContent = '';
  }
  $('input-name').textContent = name;
  document.querySelectorAll('.view-note').forEach((note) => { note.textContent = ''; });
  clearDownloads();
}

function showResult(result) {
  clearInterval(ticker);
  const written = result.status === 1;
  $('status').className = written ? 'written' : 'stopped';
  $('status').textContent =
    `${statusText(result.status)} ${Math.round(result.milliseconds)} ms in the browser.`;
  $('messages').textContent = decoder.decode(result.messages);
  $('input-plain').textContent = formatBytes(result.text.length);
  if (written) {
    $('output-plain').textContent = formatBytes(result.output.length);
    $('ratio-plain').textContent = formatRatio(result.output.length, result.text.length);
    setDownload($('download-wrl'), result.output, `${baseName(world.name)}-pared.wrl`);
  }
  document.body.dataset.state = 'done';
}

function showGzipped(gzipped, result) {
  $('input-gzipped').textContent = formatBytes(gzipped.inputSize);
  if (result.status !== 1) return;
  $('output-gzipped').textContent = formatBytes(gzipped.output.length);
  $('ratio-gzipped').textContent = formatRatio(gzipped.output.length, gzipped.inputSize);
  setDownload($('download-wrz'), gzipped.output, `${baseName(world.name)}-pared.wrz`);
}

function showFailure(failure) {
  clearInterval(ticker);
  $('status').className = 'stopped';
  $('status').textContent = /call stack/i.test(failure)
    ? 'The run stopped: this world nests deeper than the browser lets a page go ' +
      `(${failure}). The command line pares it.`
    : `The run stopped in the browser: ${failure}`;
  document.body.dataset.state = 'failed';
}

async function drawWorlds(result) {
  const texts = [result.text, result.status === 1 ? result.output : null];
  const notes = [$('note-original'), $('note-pared')];
  const tooLarge = texts.some((text) => text && text.length > kDrawLimit);
  notes.forEach((note) => { note.textContent = ''; });
  if (tooLarge) {
    notes[0].textContent = 'Too large to draw without holding up the page. ';
    const button = document.createElement('button');
    button.textContent = 'Draw anyway';
    button.onclick = () => { notes[0].textContent = ''; loadViews(texts, notes); };
    notes[0].append(button);
    await views.show(null, null);
    return;
  }
  await loadViews(texts, notes);
}

async function loadViews(texts, notes) {
  document.body.dataset.views = 'loading';
  const errors = await views.show(...texts.map((text) => (text ? decoder.decode(text) : null)));
  errors.forEach((error, index) => {
    if (error) notes[index].textContent = `X_ITE could not load this world: ${error}`;
  });
  if (!texts[1]) notes[1].textContent = 'No pared world: the run stopped.';
  document.body.dataset.views = 'ready';
}

// Pares the world last given.
function pare() {
  if (!world) return;
  const started = performance.now();
  const id = ++runId;
  showRunning(world.name, started);
  document.body.dataset.views = 'waiting';
  views.show(null, null);
  let result = null;
  worker.onmessage = ({ data }) => {
    if (data.id !== id) return;
    if (data.kind === 'failure') {
      showFailure(data.failure);
    } else if (data.kind === 'result') {
      result = data;
      result.pageMilliseconds = performance.now() - started;
      result.name = world.name;
      window.worldPare.last = result;
      showResult(result);
      drawWorlds(result);
    } else if (data.kind === 'gzipped') {
      showGzipped(data, result);
      result.gzipped = data;
    }
  };
  worker.postMessage({
    id,
    file: world,
    leniency: $('leniency').checked,
    vrml97: $('vrml97').checked,
    digits: $('vrml97').checked ? Number($('digits').value) : 0,
  });
}

function take(file) {
  world = file;
  pare();
}

// The picker is emptied, so that picking the same file again pares it again.
$('file').addEventListener('change', () => {
  const file = $('file').files[0];
  $('file').value = '';
  if (file) take(file);
});
// --digits rounds only together with --vrml97.
function showDigits() {
  $('digits').disabled = !$('vrml97').checked;
}
showDigits();
$('vrml97').addEventListener('change', showDigits);
for (const id of ['vrml97', 'leniency', 'digits']) $(id).addEventListener('change', pare);

const drop = $('drop');
for (const type of ['dragenter', 'dragover']) {
  document.addEventListener(type, (event) => {
    event.preventDefault();
    drop.classList.add('over');
  });
}
for (const type of ['dragleave', 'drop']) {
  document.addEventListener(type, (event) => {
    event.preventDefault();
    drop.classList.remove('over');
  });
}
document.addEventListener('drop', (event) => {
  const file = event.dataTransfer.files[0];
  if (file) take(file);
});
