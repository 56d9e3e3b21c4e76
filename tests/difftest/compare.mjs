// How two states of a world compare: the walk of each (entries of path,
// node type, field values) in step, numbers within a relative tolerance,
// rotations as the turns they are. What worldPare may cut is let through: a
// Script's or an instance's interface field (and the nodes it held), a route
// from or into a Script or an instance or from or to a node that is gone, a Switch choice not shown
// written as an empty Group, a NULL among nodes written as an empty Group.

/// A rotation as a unit quaternion [x, y, z, w]; the identity for a zero
/// axis or angle.
export function quaternion([x, y, z, angle]) {
  const length = Math.hypot(x, y, z);
  if (length === 0 || !Number.isFinite(length)) return [0, 0, 0, 1];
  const s = Math.sin(angle / 2) / length;
  return [x * s, y * s, z * s, Math.cos(angle / 2)];
}

function sameNumbers(a, b, tolerance) {
  const scale = Math.max(...a.map(Math.abs), ...b.map(Math.abs), 1e-30);
  return a.every((value, i) => Math.abs(value - b[i]) <= tolerance * scale ||
    (Number.isNaN(value) && Number.isNaN(b[i])));
}

// q and -q are the same turn.
function sameRotation(a, b, tolerance) {
  const p = quaternion(a);
  const q = quaternion(b);
  return sameNumbers(p, q, tolerance) || sameNumbers(p, q.map((v) => -v), tolerance);
}

/// Whether two values of a field of `type` are the same.
export function sameValue(type, a, b, tolerance) {
  if (a.length !== b.length) return false;
  if (typeof a[0] !== 'number') return a.every((value, i) => value === b[i]);
  if (!type.endsWith('Rotation')) return sameNumbers(a, b, tolerance);
  for (let i = 0; i < a.length; i += 4) {
    if (!sameRotation(a.slice(i, i + 4), b.slice(i, i + 4), tolerance)) return false;
  }
  return true;
}

function compareFields(entry, other, tolerance) {
  const { path, type, fields } = entry;
  // A Script or an instance may lose interface fields.
  const mayLose = entry.kind === 'script' || entry.kind === 'instance';
  for (const name of Object.keys(other.fields)) {
    if (!(name in fields)) return `${path} (${type}): OUT has a field ${name} that IN lacks`;
  }
  for (const [name, field] of Object.entries(fields)) {
    const theirs = other.fields[name];
    if (!theirs) {
      if (mayLose) continue;
      return `${path} (${type}): OUT lacks the field ${name}`;
    }
    if (theirs.type !== field.type) return `${path}.${name}: ${field.type} in IN, ${theirs.type} in OUT`;
    if (!sameValue(field.type, field.value, theirs.value, tolerance)) {
      return `${path}.${name}: ${JSON.stringify(field.value)} in IN, ${JSON.stringify(theirs.value)} in OUT`;
    }
  }
  return null;
}

const plainField = (name) => name.replace(/^set_/, '').replace(/_changed$/, '');
const routeKey = (route) =>
  `${route.from}.${plainField(route.fromField)} TO ${route.to}.${plainField(route.toField)}`;

function compareRoutes(path, routesIn, routesOut, pathsOut) {
  const keysIn = new Set(routesIn.map(routeKey));
  const added = routesOut.find((route) => !keysIn.has(routeKey(route)));
  if (added) return `${path}: OUT has a ROUTE ${routeKey(added)} that IN lacks`;
  const keysOut = new Set(routesOut.map(routeKey));
  const lost = routesIn.find((route) => !keysOut.has(routeKey(route)) && !route.throughInterface &&
    pathsOut.has(route.from) && pathsOut.has(route.to));
  return lost ? `${path}: OUT lacks the ROUTE ${routeKey(lost)}` : null;
}

const isBelow = (path, entry) => entry.path.startsWith(`${path}.`) || entry.path.startsWith(`${path}{}`);

// The index past the entry at `index` and all below it.
function pastSubtree(entries, index) {
  let next = index + 1;
  while (next < entries.length && isBelow(entries[index].path, entries[next])) next++;
  return next;
}

// A choice of a Switch that does not show it.
function isHiddenChoice(path, choices) {
  const match = /^(.*)\.children\.(\d+)$/.exec(path);
  return Boolean(match) && choices.has(match[1]) && choices.get(match[1]) !== Number(match[2]);
}

// worldPare may write a NULL among nodes, or a choice not shown, as `Group {}`.
function isAllowedHole(entry, entriesOut, j, choices) {
  const out = entriesOut[j];
  const empty = out.type === 'Group' && !(entriesOut[j + 1] && isBelow(out.path, entriesOut[j + 1]));
  return empty && entry.type !== 'Group' && (entry.type === 'NULL' || isHiddenChoice(entry.path, choices));
}

/// The first difference between two states (the entries of their walks), or null.
export function compareStates(entriesIn, entriesOut, tolerance) {
  const pathsOut = new Set(entriesOut.map((entry) => entry.path));
  const choices = new Map();
  let i = 0;
  let j = 0;
  const lostFields = [];
  while (i < entriesIn.length && j < entriesOut.length) {
    const entry = entriesIn[i];
    const out = entriesOut[j];
    if (lostFields.some((path) => entry.path.startsWith(path))) {
      i++;
      continue;
    }
    if (out.path !== entry.path) return `IN has ${entry.path} (${entry.type}) where OUT has ${out.path} (${out.type})`;
    if (entry.type === 'Switch') choices.set(entry.path, entry.choice);
    if (isAllowedHole(entry, entriesOut, j, choices)) {
      i = pastSubtree(entriesIn, i);
      j += 1;
      continue;
    }
    if (entry.type !== out.type) return `${entry.path}: ${entry.type} in IN, ${out.type} in OUT`;
    if (entry.kind === 'script' || entry.kind === 'instance') {
      const kept = new Set(out.nodeFields);
      for (const name of entry.nodeFields) if (!kept.has(name)) lostFields.push(`${entry.path}.${name}`);
    }
    const difference = entry.kind === 'routes' ? compareRoutes(entry.path, entry.routes, out.routes, pathsOut)
      : compareFields(entry, out, tolerance);
    if (difference) return difference;
    i++;
    j++;
  }
  while (i < entriesIn.length && lostFields.some((path) => entriesIn[i].path.startsWith(path))) i++;
  if (i < entriesIn.length) return `OUT lacks ${entriesIn[i].path} (${entriesIn[i].type})`;
  if (j < entriesOut.length) return `OUT has ${entriesOut[j].path} (${entriesOut[j].type}) that IN lacks`;
  return null;
}
