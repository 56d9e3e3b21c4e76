// The runner on small pairs of worlds (tests/difftest/pairs/NAME.in.wrl and
// NAME.out.wrl) with a known answer: each verdict must be the one below.
// Prints a line per pair and fails when any verdict is another.
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const pairs = join(here, 'pairs');

const kExpected = {
  'same-rotation-written-two-ways': /^SAME/,
  'same-cuts-that-change-nothing': /^SAME: .*, 3 events$/,
  'same-script-error-thrown-from-another-line': /^SAME/,
  'differs-field-value-changed':
    /^DIFFERS: after loading and initialize: 0\.appearance\.material\.diffuseColor: \[1,0,0\] in IN, \[1,0,0\.01\] in OUT$/,
  'differs-route-missing': /^DIFFERS: after loading and initialize: routes: OUT lacks the ROUTE 1\.value TO 2\.rotation$/,
  'differs-script-handler-computes-differently':
    /^DIFFERS: after 0\.touchTime sent \[10\]: 1\.translation: \[20,0,0\] in IN, \[30,0,0\] in OUT$/,
  'differs-script-prints-differently': /^DIFFERS: .*printed "log: count 4" in IN, "log: count 5" in OUT$/,
  'differs-instance-is-value-changed': /^DIFFERS: .*0\{\}0\.appearance\.material\.diffuseColor: \[0,1,0\] in IN, \[0,1,0\.5\] in OUT$/,
  'differs-switch-hole-shown': /^DIFFERS: after loading and initialize: 0\.children\.1: Shape in IN, Group in OUT$/,
  'differs-switch-hole-shown-by-an-event': /^DIFFERS: after 0\.isActive sent \[true\]: 2\.children\.1: Shape in IN, Group in OUT$/,
  'differs-script-throws-another-error':
    /^DIFFERS: .*"error in function 'initialize': error: ReferenceError: missingFunction is not defined" in IN, "error in function 'initialize': error: ReferenceError: otherMissingFunction is not defined" in OUT$/,
  'differs-output-requests-another-host': /^DIFFERS: OUT requests other hosts: http:\/\/example\.com\/elsewhere\.wrl$/,
};

const names = readdirSync(pairs).filter((file) => file.endsWith('.in.wrl')).map((file) => file.slice(0, -7)).sort();
const scratch = mkdtempSync(join(tmpdir(), 'difftest-pairs-'));
const list = join(scratch, 'pairs');
writeFileSync(list, names.map((name) =>
  `${join(pairs, `${name}.in.wrl`)} ${join(pairs, `${name}.out.wrl`)} ${join(scratch, `${name}.report`)}\n`).join(''));
execFileSync('node', [join(here, 'equiv.mjs'), '--list', list], { stdio: 'inherit' });

let failed = 0;
for (const name of names) {
  const verdict = readFileSync(join(scratch, `${name}.report`), 'utf8').trimEnd().split('\n').at(-1);
  const expected = kExpected[name];
  const ok = Boolean(expected) && expected.test(verdict);
  if (!ok) failed++;
  console.log(`${ok ? 'ok  ' : 'FAIL'} ${name}: ${verdict}`);
}
const missing = Object.keys(kExpected).filter((name) => !names.includes(name));
for (const name of missing) console.log(`FAIL ${name}: no such pair in ${pairs}`);
rmSync(scratch, { recursive: true, force: true });
console.log(`runner self-test: ${names.length - failed} of ${names.length} pairs as expected`);
process.exitCode = failed + missing.length === 0 ? 0 : 1;
