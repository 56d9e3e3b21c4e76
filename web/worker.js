// The run, away from the page: inflates a compressed world, pares it in the
// WebAssembly module and measures what came out. For each message in,
//   { id, file, leniency, vrml97, digits },
// it answers { id, kind: 'result', status, output, messages, text, milliseconds, ... }
// and then { id, kind: 'gzipped', inputSize, output } with the output
// gzip-compressed; or else { id, kind: 'failure', failure }.
// A run that breaks the module (a stack that the browser would not let grow)
// answers with a failure; the next run gets a new module.
'use strict';

importScripts('worldpare.js');

const jspi = typeof WebAssembly.Suspending === 'function' &&
  typeof WebAssembly.promising === 'function';

// Instantiates the module; with JavaScript Promise Integration, event chains
// continue on fresh stacks (event_stacks.cpp) and the run is a promise.
// Resolves to the module and its run, or fails as its instantiation did.
function loadModule() {
  return new Promise((resolve, reject) => {
    createWorldPare({
      instantiateWasm(imports, receiveInstance) {
        let deliverNested;
        if (jspi) {
          // The delivery starts from a job of its own, so that the machine
          // stack of the worker's JavaScript does not grow with the chain.
          imports.env.continueOnFreshStack = new WebAssembly.Suspending(async (delivery) => {
            await null;
            return deliverNested(delivery);
          });
        }
        WebAssembly.instantiateStreaming(fetch('worldpare.wasm'), imports).then(({ instance }) => {
          if (jspi) deliverNested = WebAssembly.promising(instance.exports.deliverNested);
          receiveInstance(instance);
        }).catch(reject);
        return {};
      },
    }).then(resolve, reject);
  }).then((module) => {
    const pare = jspi ? WebAssembly.promising(module.asm.pareForPage) : module.asm.pareForPage;
    return { module, pare };
  });
}

let loading = loadModule();

function isGzip(bytes) {
  return bytes.length >= 2 && bytes[0] === 0x1f && bytes[1] === 0x8b;
}

async function gzipOf(blob) {
  const piped = blob.stream().pipeThrough(new CompressionStream('gzip'));
  return new Uint8Array(await new Response(piped).arrayBuffer());
}

function joined(pieces) {
  const whole = new Uint8Array(pieces.reduce((size, piece) => size + piece.length, 0));
  let offset = 0;
  for (const piece of pieces) {
    whole.set(piece, offset);
    offset += piece.length;
  }
  return whole;
}

// Inflates gzip bytes; resolves to what came out before the stream ended or
// broke, and whether it ended whole.
async function inflate(bytes) {
  const reader = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'))
    .getReader();
  const pieces = [];
  try {
    for (let read = await reader.read(); !read.done; read = await reader.read()) {
      pieces.push(read.value);
    }
    return { text: joined(pieces), whole: true };
  } catch {
    return { text: joined(pieces), whole: false };
  }
}

// The browser's stream inflates one gzip member and breaks on any bytes after
// it. A member ends where its trailer holds the size inflated (modulo 2^32)
// and the next member's signature follows, and the bytes up to there must
// inflate whole.
async function nextMember(bytes, start) {
  const first = await inflate(bytes.subarray(start));
  if (first.whole) return { text: first.text, end: bytes.length };
  const size = first.text.length >>> 0;
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  for (let end = start + 18; end + 1 < bytes.length; end++) {
    if (bytes[end] !== 0x1f || bytes[end + 1] !== 0x8b || view.getUint32(end - 4, true) !== size) {
      continue;
    }
    const member = await inflate(bytes.subarray(start, end));
    if (member.whole && member.text.length === first.text.length) return { text: member.text, end };
  }
  return null;
}

// The world as plain text: gzip members inflated one after another, as the
// command line reads them. A stream that the browser cannot inflate goes to
// the run as it is, which then stops as the command line does.
async function worldText(bytes) {
  if (!isGzip(bytes)) return bytes;
  const pieces = [];
  for (let start = 0; start < bytes.length;) {
    const member = await nextMember(bytes, start);
    if (!member) return bytes;
    pieces.push(member.text);
    start = member.end;
  }
  return joined(pieces);
}

function copyIn(module, bytes) {
  const address = module._malloc(bytes.length + 1);
  module.HEAPU8.set(bytes, address);
  module.HEAPU8[address + bytes.length] = 0;
  return address;
}

function copyOut(module, address, size) {
  return module.HEAPU8.slice(address, address + size);
}

async function pare({ file, leniency, vrml97, digits }) {
  const { module, pare: run } = await loading;
  const text = await worldText(new Uint8Array(await file.arrayBuffer()));
  const input = copyIn(module, text);
  const inputName = copyIn(module, new TextEncoder().encode(file.name));
  const started = performance.now();
  try {
    await run(input, text.length, leniency ? 1 : 0, vrml97 ? 1 : 0, digits, inputName);
  } finally {
    module._free(input);
    module._free(inputName);
  }
  const milliseconds = performance.now() - started;
  return {
    status: module._resultStatus(),
    output: copyOut(module, module._resultOutput(), module._resultOutputSize()),
    messages: copyOut(module, module._resultMessages(), module._resultMessagesSize()),
    text,
    milliseconds,
    deliveryStackUse: module._deliveryStackUse(),
    stackSize: module._stackSize(),
  };
}

// The input's gzipped size and the output gzipped, from copies of both.
async function gzipped(id, text, output) {
  const [input, pared] = await Promise.all([text, output].map(gzipOf));
  postMessage({ id, kind: 'gzipped', inputSize: input.length, output: pared }, [pared.buffer]);
}

async function answer(data) {
  let result;
  try {
    result = await pare(data);
  } catch (error) {
    loading = loadModule();
    postMessage({ id: data.id, kind: 'failure', failure: String(error && error.message || error) });
    return;
  }
  const copies = [new Blob([result.text]), new Blob([result.output])];
  postMessage({ id: data.id, kind: 'result', ...result },
    [result.output.buffer, result.messages.buffer, result.text.buffer]);
  await gzipped(data.id, ...copies);
}

// Runs go one after another: a run waiting for a fresh stack lets messages
// in, and the module runs one world at a time. A run that a later message
// made stale is skipped.
let latest = null;
let queue = Promise.resolve();
onmessage = ({ data }) => {
  latest = data.id;
  queue = queue.then(() => (data.id === latest ? answer(data) : undefined));
};
