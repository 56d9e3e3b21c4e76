// Paring the 20 MB benchmark world (`make bench`) in the page against the
// command line: the page may take at most three times as long, from the file
// given to the result shown, and the page's own thread must answer within
// kLongestPause all the while. Both runs use --vrml97, the page's default;
// each side runs three times and its median counts.
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { commandLineRun, firstDifference, launch, openPage, pareInPage } from './browser.mjs';

const kRuns = 3;
const kMostTimes = 3;
const kLongestPause = 200;  // milliseconds
const world = resolve('build/bench/bench-20mb.wrl');
const options = { vrml97: true, leniency: false };
const scratch = mkdtempSync(join(tmpdir(), 'bench-page-'));

const median = (values) => [...values].sort((a, b) => a - b)[values.length >> 1];

// Counts the page's longest pause between ticks of a 10 ms interval timer,
// until the run is done.
function watchPauses(page) {
  return page.evaluate(() => {
    document.body.dataset.state = 'idle';
    const pauses = { longest: 0, last: performance.now() };
    window.pauses = pauses;
    pauses.timer = setInterval(() => {
      const now = performance.now();
      pauses.longest = Math.max(pauses.longest, now - pauses.last);
      pauses.last = now;
      if (['done', 'failed'].includes(document.body.dataset.state)) clearInterval(pauses.timer);
    }, 10);
  });
}

function longestPause(page) {
  return page.evaluate(() => window.pauses.longest);
}

const commandLine = [];
let expected;
for (let i = 0; i < kRuns; i++) {
  expected = commandLineRun(world, options, scratch);
  commandLine.push(expected.milliseconds);
}
const browser = await launch(scratch);
const { page, server } = await openPage(browser, 'build/page');
const pageRuns = [];
const pauses = [];
let same = true;
for (let i = 0; i < kRuns; i++) {
  await watchPauses(page);
  const run = await pareInPage(page, world, options);
  pauses.push(await longestPause(page));
  if (run.failure) throw new Error(`the page failed: ${run.failure}`);
  // The worker compresses both worlds for their gzipped sizes; the next run waits.
  await page.waitForFunction(() => window.worldPare.last.gzipped, { timeout: 60000 });
  pageRuns.push(run);
  if (!run.output.equals(expected.output)) {
    console.log(`output ${firstDifference(run.output, expected.output)}`);
    same = false;
  }
}
await browser.close();
server.close();
rmSync(scratch, { recursive: true, force: true });

const cli = median(commandLine);
const shown = median(pageRuns.map((run) => run.pageMilliseconds));
const worker = median(pageRuns.map((run) => run.milliseconds));
const pause = Math.max(...pauses);
console.log(`command line ${cli.toFixed(0)} ms; page ${shown.toFixed(0)} ms from the file to the ` +
  `result (${worker.toFixed(0)} ms in the module), ${(shown / cli).toFixed(2)} times; ` +
  `longest pause of the page ${pause.toFixed(0)} ms`);
const passed = [same, shown <= kMostTimes * cli, pause <= kLongestPause];
console.log(`${passed.filter(Boolean).length} passed, ${passed.filter((ok) => !ok).length} failed`);
process.exitCode = passed.every(Boolean) ? 0 : 1;
