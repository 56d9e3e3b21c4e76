// Event chains on fresh machine stacks.
//
// The tool delivers a chain of events by recursion: each delivery nests
// VPNode::receiveEvent and VPNode::sendEvent. A browser gives the WebAssembly
// of a worker a machine stack of well under a megabyte, room for some 3500
// deliveries, where the command line runs chains 100000 deep. The link wraps
// VPNode::receiveEvent (-Wl,--wrap), and every kDeliveriesPerStack nested
// deliveries the next one goes through the import continueOnFreshStack. The
// worker makes that import suspending (JavaScript Promise Integration): it
// runs the delivery through the promising export deliverNested, on a new
// stack, while the calling stack waits; a C++ exception comes back through it
// as thrown. Where the browser has no such integration the import runs the
// delivery in place.
//
// Every level still takes room on the module's own stack in linear memory. A
// delivery that finds too little of it left stops the run with a check, in
// order, before the stack could run into the data below it.
#include <emscripten/emscripten.h>
#include <emscripten/stack.h>

#include <algorithm>
#include <cstdint>

#include "main.h"

struct VPNode;
struct VPFuzzyValue;

extern "C" {
// VPNode::receiveEvent(VPFuzzyValue*, bool) as compiled, and its wrapper; `this` is
// the first argument.
void __real__ZN6VPNode12receiveEventEP12VPFuzzyValueb(VPNode* node, VPFuzzyValue* event,
                                                      bool fromInterface);
void __wrap__ZN6VPNode12receiveEventEP12VPFuzzyValueb(VPNode* node, VPFuzzyValue* event,
                                                      bool fromInterface);

// From freshstack.js, or the worker's suspending replacement.
void continueOnFreshStack(void* delivery);
}

namespace {

// A fresh stack holds this many nested deliveries and whatever each of them
// calls: a few kilobytes each for a chain of plain nodes, more through scripts.
constexpr int kDeliveriesPerStack = 64;

// The linear-memory stack that one delivery, with all it calls short of the
// next delivery, may need at most.
constexpr size_t kStackForOneDelivery = size_t(256) << 10;

struct Delivery {
  VPNode* node;
  VPFuzzyValue* event;
  bool fromInterface;
};

int nestedDeliveries = 0;
uintptr_t lowestStackPointer = UINTPTR_MAX;

struct NestedDelivery {
  NestedDelivery() { nestedDeliveries++; }
  ~NestedDelivery() { nestedDeliveries--; }
  NestedDelivery(const NestedDelivery&) = delete;
  NestedDelivery& operator=(const NestedDelivery&) = delete;
};

}  // namespace

extern "C" {

void __wrap__ZN6VPNode12receiveEventEP12VPFuzzyValueb(VPNode* node, VPFuzzyValue* event,
                                                      bool fromInterface) {
  CHECK(emscripten_stack_get_free() >= kStackForOneDelivery);
  lowestStackPointer = std::min(lowestStackPointer, emscripten_stack_get_current());
  NestedDelivery level;
  if (nestedDeliveries % kDeliveriesPerStack != 0) {
    __real__ZN6VPNode12receiveEventEP12VPFuzzyValueb(node, event, fromInterface);
    return;
  }
  Delivery delivery = {node, event, fromInterface};
  continueOnFreshStack(&delivery);
}

EMSCRIPTEN_KEEPALIVE void deliverNested(void* delivery) {
  auto* nested = static_cast<Delivery*>(delivery);
  __real__ZN6VPNode12receiveEventEP12VPFuzzyValueb(nested->node, nested->event,
                                                   nested->fromInterface);
}

/// The most linear-memory stack that event deliveries have reached down to,
/// counted from the top of the stack, since the module started.
EMSCRIPTEN_KEEPALIVE size_t deliveryStackUse() {
  if (lowestStackPointer == UINTPTR_MAX) return 0;
  return emscripten_stack_get_base() - lowestStackPointer;
}

/// The size of the module's linear-memory stack.
EMSCRIPTEN_KEEPALIVE size_t stackSize() {
  return emscripten_stack_get_base() - emscripten_stack_get_end();
}

}  // extern "C"
