// Both worlds side by side in X_ITE, the camera of one following the other:
// whichever view the user last moves in leads, and the other takes its
// viewpoint's user position, orientation, centre of rotation and zoom each
// frame. Both worlds bind the same viewpoints, so the same offsets show the
// same place.
'use strict';

// A world's text as X_ITE loads it; its relative urls (textures, Inlines)
// point next to the page, where they are not, and X_ITE draws the rest.
async function loadWorld(browser, text) {
  const scene = await browser.createX3DFromString(text);
  await browser.replaceWorld(scene);
}

// Empties a view. X_ITE rejects a replacement that a later one cut short,
// which is what a view emptied for the next world expects.
function empty(browser) {
  Promise.resolve(browser.replaceWorld(null)).catch(() => {});
}

function activeViewpoint(browser) {
  const layer = browser.getActiveLayer && browser.getActiveLayer();
  return layer ? layer.getViewpoint() : null;
}

function cameraOf(viewpoint) {
  return {
    position: viewpoint.getUserPosition().copy(),
    orientation: viewpoint.getUserOrientation().copy(),
    centerOfRotation: viewpoint.getUserCenterOfRotation().copy(),
    fieldOfViewScale: viewpoint.getFieldOfViewScale(),
  };
}

function sameCamera(a, b) {
  return a && b && a.position.equals(b.position) && a.orientation.equals(b.orientation) &&
    a.centerOfRotation.equals(b.centerOfRotation) && a.fieldOfViewScale === b.fieldOfViewScale;
}

function placeCamera(viewpoint, camera) {
  viewpoint.setUserPosition(camera.position);
  viewpoint.setUserOrientation(camera.orientation);
  viewpoint.setUserCenterOfRotation(camera.centerOfRotation);
  viewpoint.setFieldOfViewScale(camera.fieldOfViewScale);
}

export class SideBySide {
  constructor(leftCanvas, rightCanvas) {
    this.canvases = [leftCanvas, rightCanvas];
    this.browsers = this.canvases.map((canvas) => X3D.getBrowser(canvas));
    this.leader = 0;
    this.lastCamera = null;
    this.generation = 0;
    this.empty = [true, true];
    this.canvases.forEach((canvas, index) => {
      for (const type of ['pointerdown', 'wheel', 'keydown', 'touchstart']) {
        canvas.addEventListener(type, () => { this.leader = index; }, { passive: true });
      }
    });
    requestAnimationFrame(() => this.follow());
  }

  // Loads the worlds; a null text leaves that view empty. Resolves when both
  // are loaded, to the error text of each view (null where it loaded, or where
  // a later call took the view over).
  async show(leftText, rightText) {
    const generation = ++this.generation;
    const loads = [leftText, rightText].map(async (text, index) => {
      const browser = this.browsers[index];
      const wasEmpty = this.empty[index];
      this.empty[index] = text === null;
      if (text === null) {
        // An empty view is left alone: drawing it again would take the page's
        // thread for nothing.
        if (!wasEmpty) empty(browser);
        return null;
      }
      try {
        await loadWorld(browser, text);
        return null;
      } catch (error) {
        if (generation !== this.generation) return null;
        empty(browser);
        this.empty[index] = true;
        return String(error && error.message ? error.message : error);
      }
    });
    this.lastCamera = null;
    return Promise.all(loads);
  }

  follow() {
    try {
      const leading = activeViewpoint(this.browsers[this.leader]);
      const following = activeViewpoint(this.browsers[1 - this.leader]);
      if (leading && following) {
        const camera = cameraOf(leading);
        if (!sameCamera(camera, this.lastCamera)) {
          placeCamera(following, camera);
          this.lastCamera = camera;
        }
      }
    } finally {
      requestAnimationFrame(() => this.follow());
    }
  }
}
