// What the page's tests share: headless Chromium on a closed network, the
// page served from build/page, a world pared in the page and on the command
// line with the same options.
import { spawnSync } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync } from 'node:fs';
import { basename, dirname, join } from 'node:path';
import puppeteer from 'puppeteer-core';
import { serveFolder } from '../serve.mjs';

/// Chromium with a new empty profile, drawing WebGL in software.
export function launch(scratch) {
  const profile = mkdtempSync(join(scratch, 'profile-'));
  return puppeteer.launch({
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
    headless: false,  // the flag itself is among the arguments
    ignoreDefaultArgs: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
      `--user-data-dir=${profile}`, '--use-angle=swiftshader', '--enable-unsafe-swiftshader',
      '--window-size=1400,1000', 'about:blank'],
    defaultViewport: { width: 1400, height: 1000 },
  });
}

/// `promise`, or a failure after `milliseconds`.
export function withinTime(promise, milliseconds, what) {
  let timer;
  const late = new Promise((done, fail) => {
    timer = setTimeout(() => fail(new Error(`${what} took more than ${milliseconds / 1000} s`)), milliseconds);
  });
  return Promise.race([promise, late]).finally(() => clearTimeout(timer));
}

const kTabMilliseconds = 60000;

/// A new tab, or a failure after a minute: a Chromium that does not answer
/// the request for a tab does not answer a second one either.
export function newTab(browser) {
  return withinTime(browser.newPage(), kTabMilliseconds, 'opening a tab');
}

/// Closes the browser, or kills it if it does not close within 10 s.
export async function closeBrowser(browser) {
  try {
    await withinTime(browser.close(), 10000, 'closing the browser');
  } catch {
    browser.process()?.kill('SIGKILL');
  }
}

/// Serves `folder` and opens it in a new tab. `strangers` collects requests
/// to any other host, `errors` the page's uncaught errors.
export async function openPage(browser, folder) {
  const { server, address } = await serveFolder(folder, 0);
  const page = await newTab(browser);
  const strangers = [];
  const errors = [];
  page.on('request', (request) => {
    const url = request.url();
    if (!url.startsWith(address) && !/^(data|blob):/.test(url)) strangers.push(url);
  });
  page.on('pageerror', (error) => errors.push(String(error)));
  await page.goto(address);
  return { page, server, strangers, errors };
}

// A byte field of the last run in the page as a Buffer, through base64 in pieces.
async function bytesOf(page, field) {
  const text = await page.evaluate((name) => {
    const bytes = window.worldPare.last[name];
    let binary = '';
    for (let i = 0; i < bytes.length; i += 0x8000) {
      binary += String.fromCharCode(...bytes.subarray(i, i + 0x8000));
    }
    return btoa(binary);
  }, field);
  return Buffer.from(text, 'base64');
}

/// Drops `input` into the page with the options { vrml97, leniency, digits } set;
/// resolves to the run as the page keeps it, or to { failure } with the
/// status line of a run that broke.
export async function pareInPage(page, input, { vrml97, leniency, digits = 0 }) {
  await page.evaluate((options) => {
    document.getElementById('vrml97').checked = options.vrml97;
    document.getElementById('leniency').checked = options.leniency;
    document.getElementById('digits').value = String(options.digits);
    document.body.dataset.state = 'idle';
    window.worldPare.last = null;
  }, { vrml97, leniency, digits });
  await (await page.$('#file')).uploadFile(input);
  await page.waitForFunction(() => ['done', 'failed'].includes(document.body.dataset.state),
    { timeout: 300000 });
  const run = await page.evaluate(() => {
    const last = window.worldPare.last;
    if (!last) return { failure: document.getElementById('status').textContent };
    const { status, milliseconds, pageMilliseconds, deliveryStackUse, stackSize } = last;
    return { status, milliseconds, pageMilliseconds, deliveryStackUse, stackSize };
  });
  if (run.failure) return run;
  run.output = await bytesOf(page, 'output');
  run.messages = await bytesOf(page, 'messages');
  return run;
}

/// worldPare on `input` in its own folder, with the same options.
export function commandLineRun(input, { vrml97, leniency, digits = 0 }, scratch) {
  const out = join(mkdtempSync(join(scratch, 'out-')), 'out.wrl');
  const args = [...(leniency ? ['-l'] : []), ...(vrml97 ? ['--vrml97'] : []),
    ...(digits ? ['--digits', String(digits)] : []), basename(input), out];
  const started = process.hrtime.bigint();
  const run = spawnSync(join(process.cwd(), 'build/worldPare'), args,
    { cwd: dirname(input), maxBuffer: 1 << 30 });
  const milliseconds = Number(process.hrtime.bigint() - started) / 1e6;
  return {
    status: run.status > 127 ? run.status - 256 : run.status,
    messages: run.stderr,
    output: existsSync(out) ? readFileSync(out) : Buffer.alloc(0),
    milliseconds,
  };
}

/// Where two byte strings part, for a report.
export function firstDifference(a, b) {
  let i = 0;
  while (i < a.length && i < b.length && a[i] === b[i]) i++;
  return `differ at byte ${i}: page ${JSON.stringify(a.subarray(i, i + 60).toString())}, ` +
    `command line ${JSON.stringify(b.subarray(i, i + 60).toString())}`;
}
