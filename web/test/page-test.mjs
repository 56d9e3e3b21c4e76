// The page in headless Chromium, against the command line on the same worlds
// with the same options: the status, every message byte and every output
// byte must agree; the downloads must hold the output; where the run wrote a
// world, both views must draw something besides their background, and the
// camera of each must follow the other. Requests may go to the page's own
// server alone. Run from the project root after `make page build`; the
// screenshots go to build/page-test/.
import { execFileSync } from 'node:child_process';
import { copyFileSync, existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync }
  from 'node:fs';
import { tmpdir } from 'node:os';
import { basename, join, resolve } from 'node:path';
import { gunzipSync, gzipSync } from 'node:zlib';
import { commandLineRun, firstDifference, launch, openPage, pareInPage } from './browser.mjs';

const root = resolve('.');
const corpus = resolve(root, process.env.WORLDPARE_CORPUS || '../shared/corpus');
const results = join(root, 'build/page-test');
const scratch = mkdtempSync(join(tmpdir(), 'page-test-'));

// A world file in the scratch folder, made by a golden case's generate.sh or
// copied, or gzip-compressed from a file of the project.
function caseWorld(caseName, file) {
  const folder = mkdtempSync(join(scratch, 'case-'));
  execFileSync('sh', [join(root, 'tests/cases', caseName, 'generate.sh')], { cwd: folder });
  return join(folder, file);
}

function copiedWorld(path, name = basename(path)) {
  const folder = mkdtempSync(join(scratch, 'world-'));
  copyFileSync(path, join(folder, name));
  return join(folder, name);
}

// The file gzip-compressed, its first and second half each a member of its own
// when `members` is 2.
function gzippedWorld(path, name, members = 1) {
  const folder = mkdtempSync(join(scratch, 'world-'));
  const text = readFileSync(path);
  const half = members === 2 ? text.length >> 1 : text.length;
  const parts = [text.subarray(0, half), text.subarray(half)].filter((part) => part.length);
  writeFileSync(join(folder, name),
    Buffer.concat(parts.map((part) => gzipSync(part, { level: 9 }))));
  return join(folder, name);
}

// The worlds: each with the options set in the page, whether the run writes
// a world, and whether its views must draw.
const worlds = [
  { label: 'the lamp', path: () => copiedWorld(join(root, 'examples/lamp.wrl')),
    vrml97: true, leniency: false, written: true, draws: true, screenshot: 'lamp.png',
    downloads: true, follows: true },
  { label: 'a chain of 10000 deliveries that stops on the loop check',
    path: () => caseWorld('route-chain-10000-deliveries-stops', 'in.wrl'),
    vrml97: false, leniency: false, written: false },
  { label: 'the same chain under -l, run to its end 10000 deliveries deep',
    path: () => caseWorld('route-chain-10000-deliveries-stops', 'in.wrl'),
    vrml97: false, leniency: true, written: true, measureStack: true },
  { label: 'a cycle that stops on the check of depth 100000 under -l',
    path: () => caseWorld('exposed-field-cycle-with-leniency-ends-at-depth-100000', 'in.wrl'),
    vrml97: false, leniency: true, written: false },
  { label: 'a .wrz world', path: () => gzippedWorld(join(root, 'examples/lamp.wrl'), 'lamp.wrz'),
    vrml97: true, leniency: false, written: true, draws: true, downloads: true },
  { label: 'a .wrl.gz world of two gzip members',
    path: () => gzippedWorld(join(root, 'examples/lamp.wrl'), 'lamp.wrl.gz', 2),
    vrml97: false, leniency: false, written: true },
  { label: 'a gzip stream cut short',
    path: () => caseWorld('gzip-input-cut-short-stops', 'in.wrl.gz'),
    vrml97: true, leniency: false, written: false, screenshot: 'stopped.png' },
  { label: 'a corpus mesh, its numbers rounded to 4 digits',
    path: () => copiedWorld(join(corpus, 'castle-demo-models/teapot.wrl')), needsCorpus: true,
    vrml97: true, leniency: false, digits: 4, written: true, draws: true },
  // Its script moves a ball and leaves the page alone: what the test sees
  // does not depend on how long it runs.
  { label: 'a corpus world with scripts and textures that are not at hand',
    path: () => copiedWorld(join(corpus, 'freewrl/tests_47.wrl')), needsCorpus: true,
    vrml97: true, leniency: false, written: true, draws: true },
];

const pause = (milliseconds) => new Promise((done) => setTimeout(done, milliseconds));

// The share of each view's pixels that differ from its corner, the background.
async function sharesNow(page) {
  const shares = [];
  for (const id of ['view-original', 'view-pared']) {
    const png = await (await page.$(`#${id}`)).screenshot({ encoding: 'base64' });
    shares.push(await page.evaluate(async (data) => {
      const image = new Image();
      image.src = `data:image/png;base64,${data}`;
      await image.decode();
      const canvas = new OffscreenCanvas(image.width, image.height);
      const context = canvas.getContext('2d');
      context.drawImage(image, 0, 0);
      const pixels = context.getImageData(0, 0, image.width, image.height).data;
      const inside = 4 * (3 * image.width + 3);  // inside the border
      let differing = 0;
      for (let i = 0; i < pixels.length; i += 4) {
        let distance = 0;
        for (let channel = 0; channel < 3; channel++) {
          distance += Math.abs(pixels[i + channel] - pixels[inside + channel]);
        }
        if (distance > 24) differing++;
      }
      return differing / (pixels.length / 4);
    }, png));
  }
  return shares;
}

// The drawn shares once both views have drawn, or after 30 s as they are. A
// view shows X_ITE's loading screen, nearly all background, until its world's
// textures have been tried, which on a busy machine takes seconds after the
// world has loaded.
async function drawnShares(page) {
  await page.waitForFunction(() => document.body.dataset.views === 'ready', { timeout: 60000 });
  let shares = [];
  for (let waited = 0; waited < 30000; waited += 500) {
    await pause(500);
    shares = await sharesNow(page);
    if (shares.every((share) => share > 0.01)) break;
  }
  return shares;
}

// The user position and orientation of each view's viewpoint.
function cameras(page) {
  return page.evaluate(() => ['view-original', 'view-pared'].map((id) => {
    const viewpoint = X3D.getBrowser(document.getElementById(id)).getActiveLayer().getViewpoint();
    const position = viewpoint.getUserPosition();
    const orientation = viewpoint.getUserOrientation();
    return [position.x, position.y, position.z, ...[0, 1, 2, 3].map((i) => orientation[i])]
      .map((number) => number.toFixed(5)).join(' ');
  }));
}

// The cameras once they stand still: the same in two looks a frame or more
// apart, or after 20 s as they are.
async function restingCameras(page) {
  let last = await cameras(page);
  for (let waited = 0; waited < 20000; waited += 250) {
    await pause(250);
    const now = await cameras(page);
    if (now.join() === last.join()) return now;
    last = now;
  }
  return last;
}

// Drags across one view; resolves to the cameras of both views before and
// after. The mouse rests before it lets go, so that the view does not spin on.
async function dragAcross(page, id) {
  const before = await cameras(page);
  const box = await (await page.$(`#${id}`)).boundingBox();
  const y = box.y + box.height / 2;
  await page.mouse.move(box.x + box.width * 0.4, y);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.6, y + 20, { steps: 8 });
  await pause(500);
  await page.mouse.up();
  return { before, after: await restingCameras(page) };
}

// Clicks a download link; resolves to the bytes that the browser saved.
async function downloaded(page, session, linkId, folder) {
  const saved = new Promise((done, fail) => {
    const timer = setTimeout(() => fail(new Error(`nothing downloaded from #${linkId}`)), 20000);
    const progress = (event) => {
      if (event.state !== 'completed') return;
      clearTimeout(timer);
      session.off('Browser.downloadProgress', progress);
      done(readFileSync(join(folder, event.guid)));
    };
    session.on('Browser.downloadProgress', progress);
  });
  await page.click(`#${linkId}`);
  return saved;
}

async function main() {
  mkdirSync(results, { recursive: true });
  const downloads = mkdtempSync(join(scratch, 'downloads-'));
  const browser = await launch(scratch);
  const { page, server, strangers, errors } = await openPage(browser, join(root, 'build/page'));
  // Downloads are saved under their ids, and reported when complete.
  const session = await browser.target().createCDPSession();
  await session.send('Browser.setDownloadBehavior',
    { behavior: 'allowAndName', downloadPath: downloads, eventsEnabled: true });

  let passed = 0;
  let failed = 0;
  let skipped = 0;
  const check = (world, condition, text) => {
    if (condition) return true;
    console.log(`FAIL ${world.label}: ${text}`);
    failed++;
    return false;
  };
  for (const world of worlds) {
    if (world.needsCorpus && !existsSync(corpus)) {
      console.log(`SKIP ${world.label}: no corpus at ${corpus}`);
      skipped++;
      continue;
    }
    const input = world.path();
    const expected = commandLineRun(input, world, scratch);
    const got = await pareInPage(page, input, world);
    const failuresBefore = failed;
    if (!check(world, !got.failure, `the page failed: ${got.failure}`)) continue;
    check(world, got.status === expected.status,
      `status ${got.status}, the command line's ${expected.status}`);
    check(world, (got.status === 1) === world.written, `status ${got.status}`);
    if (!got.messages.equals(expected.messages)) {
      check(world, false, `messages ${firstDifference(got.messages, expected.messages)}`);
    }
    if (!got.output.equals(expected.output)) {
      check(world, false, `output ${firstDifference(got.output, expected.output)}`);
    }
    if (world.measureStack) {
      console.log(`     ${world.label}: event deliveries took ${got.deliveryStackUse} bytes ` +
        `of the module's ${got.stackSize}-byte stack`);
      check(world, got.deliveryStackUse > 0 && got.deliveryStackUse < got.stackSize,
        'no stack use measured');
    }
    if (world.draws) {
      const shares = await drawnShares(page);
      check(world, shares.every((share) => share > 0.01),
        `views drew ${shares.map((share) => `${(100 * share).toFixed(1)} %`).join(' and ')} ` +
        'of their pixels');
    }
    if (world.follows) {
      for (const [index, id] of ['view-original', 'view-pared'].entries()) {
        const { before, after } = await dragAcross(page, id);
        check(world, after[index] !== before[index] && after[0] === after[1],
          `after a drag in ${id} the cameras stand at ${after.join(' and ')}`);
      }
    }
    if (world.screenshot) {
      await page.screenshot({ path: join(results, world.screenshot), fullPage: true });
      console.log(`     screenshot: ${join(results, world.screenshot)}`);
    }
    if (world.downloads) {
      const plain = await downloaded(page, session, 'download-wrl', downloads);
      check(world, plain.equals(expected.output), 'the .wrl download differs');
      await page.waitForSelector('#download-wrz[href]');
      const compressed = await downloaded(page, session, 'download-wrz', downloads);
      check(world, gunzipSync(compressed).equals(expected.output),
        'the .wrz download does not inflate to the output');
    }
    if (failed === failuresBefore) {
      console.log(`ok   ${world.label}`);
      passed++;
    }
  }
  if (strangers.length) {
    console.log(`FAIL requests to other hosts: ${[...new Set(strangers)].join(' ')}`);
    failed++;
  }
  if (errors.length) {
    console.log(`FAIL errors in the page: ${errors.join(' | ')}`);
    failed++;
  }
  await browser.close();
  server.close();
  rmSync(scratch, { recursive: true, force: true });
  console.log(`${passed} passed, ${failed} failed${skipped ? `, ${skipped} skipped` : ''}`);
  process.exitCode = failed === 0 ? 0 : 1;
}

await main();
