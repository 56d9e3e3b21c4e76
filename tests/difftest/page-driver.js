// Runs in the page before X_ITE: the clock stands still, Math.random repeats
// from a seed, frames run only when the runner steps them, and what the page
// prints is kept. Then `window.difftest` loads a world, writes down its whole
// state, and sends events to it.
'use strict';
(() => {
  const kEpochMilliseconds = 1e12;  // the one time of every world
  const kLoadMilliseconds = 60000;  // of real time, for a world to load
  const realNow = performance.now.bind(performance);
  Date.now = () => kEpochMilliseconds;
  performance.now = () => 0;

  // mulberry32: the same numbers in both worlds of a pair.
  let randomState = 0;
  Math.random = () => {
    randomState = (randomState + 0x6d2b79f5) | 0;
    let t = Math.imul(randomState ^ (randomState >>> 15), 1 | randomState);
    t = (t + Math.imul(t ^ (t >>> 7), 61 | t)) ^ t;
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };

  let frameIds = 0;
  const frames = new Map();
  window.requestAnimationFrame = (callback) => {
    frames.set(++frameIds, callback);
    return frameIds;
  };
  window.cancelAnimationFrame = (id) => frames.delete(id);

  const printed = [];
  for (const level of ['log', 'info', 'warn', 'error']) {
    const original = console[level].bind(console);
    console[level] = (...args) => {
      printed.push(`${level}: ${args.map(String).join(' ')}`);
      original(...args);
    };
  }
  // Chromium's notice that the canvas's size settled late is not the world's.
  window.addEventListener('error', (event) => {
    if (!event.message.includes('ResizeObserver')) printed.push(`error: ${event.message}`);
  });
  window.addEventListener('unhandledrejection',
    (event) => printed.push(`error: ${event.reason}`));

  // A turn of the event loop, through a message: timers of a page in the
  // background wait up to a second.
  const channel = new MessageChannel();
  const turns = [];
  channel.port1.onmessage = () => turns.shift()();
  const tick = () => new Promise((done) => { turns.push(done); channel.port2.postMessage(0); });

  // Work that the frame queued behind promises.
  async function settle() {
    for (let i = 0; i < 8; i++) await Promise.resolve();
  }

  // One frame: the callbacks waiting for it, then what they started.
  async function stepFrame() {
    const waiting = [...frames.values()];
    frames.clear();
    for (const callback of waiting) callback(0);
    await settle();
  }

  async function stepFrames(count) {
    for (let i = 0; i < count; i++) await stepFrame();
  }

  const kDisplay = 7;  // X_ITE's TraverseType.DISPLAY
  let browser = null;
  let loading = false;
  let pathsOfNodes = new Map();  // node -> path of its first visit
  let nodesAtPaths = new Map();

  function x3dBrowser() {
    if (browser) return browser;
    browser = X3D.getBrowser(document.querySelector('x3d-canvas'));
    // Time passes for the browser only when it is told so: never here.
    browser.advanceTime = () => true;
    // While a world loads, the frames it takes depend on how fast files
    // come: its timers wait for the load to end.
    const addTaintedField = browser.addTaintedField;
    browser.addTaintedField = function (field, event) {
      if (!(loading && field === this.timeEvents())) addTaintedField.call(this, field, event);
    };
    // Nothing is drawn: the state does not depend on it, and compiling
    // shaders in software takes seconds.
    const world = Object.getPrototypeOf(browser.getWorld());
    const traverse = world.traverse;
    world.traverse = function (type, renderObject) {
      if (type !== kDisplay) traverse.call(this, type, renderObject);
    };
    return browser;
  }

  const inner = (sfnode) => (sfnode && sfnode.getValue ? sfnode.getValue() : sfnode) || null;

  function isScript(node) { return node.getTypeName() === 'Script'; }
  function isInstance(node) { return typeof node.getBody === 'function' && node.getBody(); }
  const hasInterface = (node) => isScript(node) || Boolean(isInstance(node));

  // Values as plain data: numbers stay numbers, so that they can be compared
  // with a tolerance.
  function valueOf(field) {
    const type = field.getTypeName();
    if (type === 'SFBool' || type === 'SFInt32' || type === 'SFFloat' || type === 'SFDouble' ||
        type === 'SFTime') return [Number(field.getValue())];
    if (type === 'SFString') return [String(field.getValue())];
    if (/^MF(Bool|Int32|Float|Double|Time)$/.test(type)) return Array.from(field, Number);
    if (type === 'MFString') return Array.from(field, String);
    if (/^SF(Vec|Color|Rotation)/.test(type)) return Array.from(field, Number);
    if (/^MF(Vec|Color|Rotation)/.test(type)) return Array.from(field).flatMap((v) => Array.from(v, Number));
    return [field.toString()];
  }

  const kNodeTypes = new Set(['SFNode', 'MFNode']);

  // The fields that hold a state: all but events in. A Script or an instance
  // lists its own interface; a built-in node its type's fields.
  function stateFields(node) {
    const fields = isScript(node) || isInstance(node)
      ? [...node.getUserDefinedFields()] : [...node.getFields()];
    return fields.filter((field) => field.getAccessType() !== X3D.X3DConstants.inputOnly &&
      field.getName() !== 'metadata');
  }

  // The state of the node at `path` and everything below it, in the order of
  // a walk: an entry of path, type, kind and fields for each node. A node met again (USE) is walked
  // again, so sharing may differ; a node within its own walk is a cycle.
  function walk(node, path, entries, onStack) {
    if (!node) { entries.push({ path, type: 'NULL', kind: 'null', fields: {} }); return; }
    if (!pathsOfNodes.has(node)) { pathsOfNodes.set(node, path); nodesAtPaths.set(path, node); }
    if (onStack.has(node)) {
      entries.push({ path, type: `cycle to ${pathsOfNodes.get(node)}`, kind: 'cycle', fields: {} });
      return;
    }
    onStack.add(node);
    const values = {};
    const below = [];
    for (const field of stateFields(node)) {
      const name = field.getName();
      if (kNodeTypes.has(field.getTypeName())) below.push(field);
      else values[name] = { type: field.getTypeName(), value: valueOf(field) };
    }
    const kind = isScript(node) ? 'script' : isInstance(node) ? 'instance' : 'node';
    const entry = { path, type: node.getTypeName(), kind, fields: values, nodeFields: below.map((f) => f.getName()) };
    if (entry.type === 'Switch') entry.choice = Number(node.getField('whichChoice').getValue());
    entries.push(entry);
    for (const field of below) {
      const name = field.getName();
      if (field.getTypeName() === 'SFNode') walk(inner(field.getValue()), `${path}.${name}`, entries, onStack);
      else Array.from(field.getValue(), (child, i) => walk(inner(child), `${path}.${name}.${i}`, entries, onStack));
    }
    if (isInstance(node)) walkContext(node.getBody(), `${path}{}`, entries, onStack);
    onStack.delete(node);
  }

  function walkContext(context, path, entries, onStack) {
    Array.from(context.getRootNodes().getValue(),
      (root, i) => walk(inner(root), `${path}${i}`, entries, onStack));
    const routes = [];
    for (const route of context.getRoutes()) {
      const source = inner(route.getSourceNode());
      const destination = inner(route.getDestinationNode());
      routes.push({
        from: pathsOfNodes.get(source), fromField: route.getSourceField(),
        to: pathsOfNodes.get(destination), toField: route.getDestinationField(),
        throughInterface: hasInterface(source) || hasInterface(destination),
      });
    }
    entries.push({ path: `${path}routes`, type: 'ROUTES', kind: 'routes', fields: {}, routes });
  }

  // The whole state of the world, and what it printed since the last look.
  function snapshot() {
    pathsOfNodes = new Map();
    nodesAtPaths = new Map();
    const entries = [];
    walkContext(x3dBrowser().currentScene, '', entries, new Set());
    return { entries, printed: printed.splice(0) };
  }

  // The scene and the body of every instance in it.
  function contexts() {
    const bodies = [...nodesAtPaths.values()].filter(isInstance).map((node) => node.getBody());
    return [x3dBrowser().currentScene, ...bodies];
  }

  // Every routed eventOut of a built-in node other than Script, once each:
  // [path, field, type]. These are what a user, the clock or the viewer set
  // off; an exposedField changes only when an event comes in, and an
  // instance sends only what its body sends.
  function routedOutputs() {
    const outputs = new Map();
    for (const context of contexts()) {
      for (const route of context.getRoutes()) {
        const node = inner(route.getSourceNode());
        if (hasInterface(node)) continue;
        const field = node.getField(route.getSourceField());
        if (field.getAccessType() !== X3D.X3DConstants.outputOnly) continue;
        const type = field.getTypeName();
        if (type.startsWith('MF') || type === 'SFNode') continue;
        outputs.set(`${pathsOfNodes.get(node)} ${field.getName()}`, [pathsOfNodes.get(node), field.getName(), type]);
      }
    }
    return [...outputs.values()];
  }

  function fieldValue(type, value) {
    if (/^SF(Vec|Color|Rotation)/.test(type)) return new X3D[type](...value);
    return value[0];
  }

  window.difftest = {
    async load(url, seed) {
      randomState = seed;
      loading = true;
      const loaded = x3dBrowser().loadURL(new X3D.MFString(url)).then(() => 'loaded', (error) => error);
      let outcome = null;
      loaded.then((result) => { outcome = result; });
      const deadline = realNow() + kLoadMilliseconds;
      while (outcome === null && realNow() < deadline) {
        await stepFrame();
        await tick();
      }
      loading = false;
      if (outcome !== 'loaded') return { failure: String(outcome ?? 'the world did not load in time') };
      await stepFrames(4);
      return { failure: null };
    },
    snapshot,
    routedOutputs,
    hasNode: (path) => nodesAtPaths.has(path),
    // Sends `value` from the eventOut `name` of the node at `path` along
    // its routes; false when there is no such node or field.
    async send(path, name, type, value) {
      const node = nodesAtPaths.get(path);
      const field = node && node.getFields().find((f) => f.getName() === name);
      if (!field || field.getTypeName() !== type) return false;
      for (const context of contexts()) {
        for (const route of context.getRoutes()) {
          if (inner(route.getSourceNode()) !== node || node.getField(route.getSourceField()) !== field) continue;
          inner(route.getDestinationNode()).getField(route.getDestinationField()).setValue(fieldValue(type, value));
        }
      }
      await stepFrames(3);
      return true;
    },
  };
})();
