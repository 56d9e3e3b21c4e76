// Serves a folder on localhost: `node web/serve.mjs DIR [PORT]` prints the
// address and serves until stopped. PORT defaults to $PORT, then to 8080; 0
// takes any free port, as the tests do through serveFolder.
import { createServer } from 'node:http';
import { readFile } from 'node:fs/promises';
import { extname, join, normalize, resolve, sep } from 'node:path';
import { fileURLToPath } from 'node:url';

const kTypes = {
  '.html': 'text/html; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.mjs': 'text/javascript; charset=utf-8',
  '.json': 'application/json',
  '.wasm': 'application/wasm',
  '.png': 'image/png',
  '.svg': 'image/svg+xml',
  '.ttf': 'font/ttf',
  '.woff2': 'font/woff2',
};

async function answer(root, request, response) {
  const path = decodeURIComponent(new URL(request.url, 'http://localhost').pathname);
  const file = normalize(join(root, path.endsWith('/') ? `${path}index.html` : path));
  if (file !== root && !file.startsWith(root + sep)) {
    response.writeHead(403).end();
    return;
  }
  try {
    const body = await readFile(file);
    const type = kTypes[extname(file)] || 'application/octet-stream';
    response.writeHead(200, { 'Content-Type': type, 'Cache-Control': 'no-store' }).end(body);
  } catch {
    response.writeHead(404).end();
  }
}

/// Serves `folder` on 127.0.0.1:`port` (0: any free port); resolves to the
/// server and its address.
export function serveFolder(folder, port) {
  const root = resolve(folder);
  const server = createServer((request, response) => answer(root, request, response));
  return new Promise((done, fail) => {
    server.once('error', fail);
    server.listen(port, '127.0.0.1', () => {
      done({ server, address: `http://127.0.0.1:${server.address().port}/` });
    });
  });
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [folder, port] = process.argv.slice(2);
  const { address } = await serveFolder(folder, Number(port || process.env.PORT || 8080));
  console.log(`worldPare page: ${address} (Ctrl-C stops)`);
}
