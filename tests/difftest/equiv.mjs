// Runs a world and worldPare's output of it side by side in X_ITE (headless
// Chromium) and says whether they behave the same:
//   node tests/difftest/equiv.mjs IN OUT        a report; status 0 same,
//                                               1 differs, 2 IN is faulty
//   node tests/difftest/equiv.mjs --list FILE   for each line "IN OUT REPORT"
//                                               of FILE the report into REPORT,
//                                               two pairs at a time
// Both worlds load with live scripts on a clock that stands still, with the
// same random numbers; their whole states must agree after initialize and
// after each of the events that are then sent, the same to both, from every
// routed eventOut of a built-in node other than Script (a sensor's, a
// timer's, an interpolator's), for a few rounds. What the scripts print, and
// the errors they throw, must agree too. The last line of a report is its verdict:
// "SAME", "DIFFERS: ...", "OUT DOES NOT LOAD: ..." or "IN IS FAULTY: ...".
// A request to any host but the runner's own is a failure of that world.
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, extname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { closeBrowser, launch, newTab, withinTime } from '../../web/test/browser.mjs';
import { compareStates } from './compare.mjs';

const here = dirname(fileURLToPath(import.meta.url));
const xite = resolve(here, '../../web/node_modules/x_ite/dist');
const origin = 'http://difftest.localhost';
const kRounds = 3;
const kTolerance = 1e-5;
const kSeed = 20;
const kPairMilliseconds = 300000;  // a world whose scripts never end fails

const kPage = '<!DOCTYPE html><meta charset="utf-8"><script src="/driver.js"></script>' +
  '<script src="/x_ite/x_ite.min.js"></script>' +
  '<x3d-canvas splashScreen="false" notifications="false" contextMenu="false" ' +
  'style="width:64px;height:64px"></x3d-canvas>';

const kTypes = { '.js': 'text/javascript', '.css': 'text/css', '.html': 'text/html', '.wrl': 'model/vrml' };

// The runner's own host: the page, its driver, X_ITE, and files by their
// absolute paths. Anything else is refused and written down.
function answer(request, strangers) {
  const url = request.url();
  if (/^(data|blob):/.test(url)) return request.continue();
  if (!url.startsWith(`${origin}/`)) {
    strangers.push(url);
    return request.abort();
  }
  const path = decodeURIComponent(new URL(url).pathname);
  const file = path === '/' ? null : path === '/driver.js' ? join(here, 'page-driver.js')
    : path.startsWith('/x_ite/') ? join(xite, path.slice('/x_ite/'.length))
      : path.startsWith('/files/') ? path.slice('/files'.length) : undefined;
  let body;
  try {
    body = file === null ? kPage : readFileSync(file);
  } catch {
    return request.respond({ status: 404, body: '' });
  }
  const type = file === null ? 'text/html' : kTypes[extname(file)] || 'application/octet-stream';
  return request.respond({ status: 200, contentType: type, body });
}

async function openTab(browser) {
  const page = await newTab(browser);
  const strangers = [];
  await page.setRequestInterception(true);
  page.on('request', (request) => answer(request, strangers));
  return { page, strangers };
}

// The value sent from an eventOut of `type` in `round`, the `index`th event of it.
function eventValue(type, round, index) {
  const k = round * 7 + index;
  switch (type) {
    case 'SFTime': return [10 + k];
    case 'SFBool': return [k % 2 === 0];
    case 'SFFloat': case 'SFDouble': return [[0, 0.37, 1, 0.5][k % 4]];
    case 'SFInt32': return [k % 3];
    case 'SFRotation': return [k % 3 === 0 ? 1 : 0, 1, k % 2, 0.25 + 0.5 * k];
    case 'SFColor': return [(k % 5) / 4, 0.5, 1 - (k % 3) / 2];
    case 'SFVec2f': case 'SFVec2d': return [0.5 * k, -k];
    case 'SFVec3f': case 'SFVec3d': return [0.5 * k, 1 - k, 2];
    case 'SFString': return [`event ${k}`];
    default: return null;
  }
}

// What the scripts printed, and the errors they threw (by function and
// message, not by where or by the Script's name); the rest of what the page
// printed is X_ITE's own, as a file it could not load.
function scriptOutput(lines) {
  const output = [];
  lines.forEach((line, i) => {
    if (line.startsWith('log: ') || line.startsWith('info: ')) output.push(line);
    const thrown = /^error: JavaScript Error in Script '.*', (in function '[^']*')/.exec(line);
    if (thrown) output.push(`error ${thrown[1]}: ${(lines[i + 1] ?? '').split('\n')[0]}`);
  });
  return output;
}

async function loadWorld(tab, file) {
  await tab.page.goto(`${origin}/`);
  const { failure } = await tab.page.evaluate((url, seed) => window.difftest.load(url, seed),
    `${origin}/files${file}`, kSeed);
  return failure;
}

const warnings = (lines) => lines.filter((line) => line.startsWith('warn: '));

async function snapshot(tab) {
  const { entries, printed } = await tab.page.evaluate(() => window.difftest.snapshot());
  return { entries, printed: scriptOutput(printed), warnings: warnings(printed) };
}

// The first difference of two states, or null.
function stateDifference(stateIn, stateOut) {
  const [printedIn, printedOut] = [stateIn.printed, stateOut.printed];
  const at = printedIn.findIndex((line, k) => line !== printedOut[k]);
  if (at >= 0 || printedOut.length > printedIn.length) {
    const k = at >= 0 ? at : printedIn.length;
    return `printed ${JSON.stringify(printedIn[k] ?? '(nothing)')} in IN, ` +
      `${JSON.stringify(printedOut[k] ?? '(nothing)')} in OUT`;
  }
  return compareStates(stateIn.entries, stateOut.entries, kTolerance);
}

// Runs IN and OUT in step; resolves to the report's lines.
async function comparePair(tabs, fileIn, fileOut) {
  const [tabIn, tabOut] = tabs;
  const failureIn = await loadWorld(tabIn, fileIn);
  if (failureIn) return [`IN IS FAULTY: IN does not load: ${failureIn}`];
  const failureOut = await loadWorld(tabOut, fileOut);
  if (failureOut) return [`OUT DOES NOT LOAD: ${failureOut}`];
  let stateIn = await snapshot(tabIn);
  let stateOut = await snapshot(tabOut);
  if (stateIn.warnings.length) return [...stateIn.warnings, 'IN IS FAULTY: X_ITE warned about IN'];
  if (stateOut.warnings.length) return [...stateOut.warnings, 'DIFFERS: X_ITE warned about OUT'];
  let difference = stateDifference(stateIn, stateOut);
  if (difference) return [`DIFFERS: after loading and initialize: ${difference}`];
  const outputs = await tabIn.page.evaluate(() => window.difftest.routedOutputs());
  let events = 0;
  for (let round = 0; round < kRounds; round++) {
    for (const [index, [path, name, type]] of outputs.entries()) {
      const value = eventValue(type, round, index);
      if (!value) continue;
      const event = `${path}.${name} sent ${JSON.stringify(value)}`;
      const send = (tab) => tab.page.evaluate((...args) => window.difftest.send(...args), path, name, type, value);
      if (!await send(tabOut)) {
        // A node that OUT does without (in a Switch choice not shown) sends nothing.
        if (await tabOut.page.evaluate((at) => window.difftest.hasNode(at), path)) {
          return [`DIFFERS: OUT cannot send ${event}`];
        }
        continue;
      }
      await send(tabIn);
      events++;
      stateIn = await snapshot(tabIn);
      stateOut = await snapshot(tabOut);
      difference = stateDifference(stateIn, stateOut);
      if (difference) return [`DIFFERS: after ${event}: ${difference}`];
    }
  }
  return [`SAME: ${stateIn.entries.length} entries of state, ${events} events`];
}

// A request to another host fails the world that made it.
async function guardedComparison(tabs, fileIn, fileOut) {
  for (const tab of tabs) tab.strangers.length = 0;
  let lines;
  try {
    lines = await withinTime(comparePair(tabs, resolve(fileIn), resolve(fileOut)), kPairMilliseconds,
      'the pair');
  } catch (error) {
    lines = [`DIFFERS: the runner failed: ${String(error).split('\n')[0]}`];
  }
  const [strangersIn, strangersOut] = tabs.map((tab) => [...new Set(tab.strangers)]);
  if (strangersIn.length) return [...lines, `IN IS FAULTY: requests to other hosts: ${strangersIn.join(' ')}`];
  if (strangersOut.length) return [...lines, `DIFFERS: OUT requests other hosts: ${strangersOut.join(' ')}`];
  return lines;
}

// A lane of comparisons: a Chromium of its own and two tabs. A browser that
// does not give its tabs is killed and launched once more.
async function newLane(scratch) {
  for (let attempt = 1; ; attempt++) {
    const browser = await launch(scratch);
    try {
      return { browser, tabs: [await openTab(browser), await openTab(browser)] };
    } catch (error) {
      await closeBrowser(browser);
      if (attempt === 2) throw error;
    }
  }
}

async function withScratch(work) {
  const scratch = mkdtempSync(join(tmpdir(), 'difftest-'));
  try {
    return await work(scratch);
  } finally {
    rmSync(scratch, { recursive: true, force: true });
  }
}

async function runList(listFile) {
  const pairs = readFileSync(listFile, 'utf8').split('\n').filter(Boolean).map((line) => line.split(' '));
  await withScratch(async (scratch) => {
    let next = 0;
    const lane = async () => {
      let current = await newLane(scratch);
      try {
        while (next < pairs.length) {
          const [fileIn, fileOut, report] = pairs[next++];
          const lines = await guardedComparison(current.tabs, fileIn, fileOut);
          writeFileSync(report, `${lines.join('\n')}\n`);
          // A world that broke the runner leaves the lane a new browser.
          if (lines.at(-1).includes('the runner failed')) {
            await closeBrowser(current.browser);
            current = await newLane(scratch);
          }
        }
      } finally {
        await closeBrowser(current.browser);
      }
    };
    await Promise.all([lane(), lane()]);
  });
}

async function runPair(fileIn, fileOut) {
  const lines = await withScratch(async (scratch) => {
    const { browser, tabs } = await newLane(scratch);
    try {
      return await guardedComparison(tabs, fileIn, fileOut);
    } finally {
      await closeBrowser(browser);
    }
  });
  console.log(lines.join('\n'));
  const verdict = lines.at(-1);
  return verdict.startsWith('SAME') ? 0 : verdict.startsWith('IN IS FAULTY') ? 2 : 1;
}

const args = process.argv.slice(2);
if (args[0] === '--list' && args.length === 2) {
  await runList(args[1]);
} else if (args.length === 2) {
  process.exitCode = await runPair(args[0], args[1]);
} else {
  console.error('usage: equiv.mjs IN OUT | equiv.mjs --list FILE');
  process.exitCode = 2;
}
