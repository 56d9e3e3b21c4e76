// The import through which the module continues an event chain on a fresh
// stack (event_stacks.cpp). The worker puts a suspending import in its place
// where the browser can; this one runs the delivery on the same stack.
mergeInto(LibraryManager.library, {
  continueOnFreshStack: function (delivery) {
    Module['asm']['deliverNested'](delivery);
  },
});
