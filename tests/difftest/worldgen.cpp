// worldgen SEED: writes a random VRML97 world to standard output, and on the
// error stream one line "features: ..." naming what the world holds. The same
// seed gives the same world on every machine: the numbers come from
// splitmix64, and every value is printed from integers.
//
// Every world is meant to load without warnings and to behave the same on
// every run: ROUTE ends and IS links have matching types and kinds, DEF names
// are unique in their scope and used only after their DEF, and events run in
// a circle only between two Transforms routed to each other.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }
  int below(int n) { return int(next() % uint64_t(n)); }
  int range(int low, int high) { return low + below(high - low + 1); }
  bool chance(int percent) { return below(100) < percent; }
  template <class T>
  const T& pick(const std::vector<T>& items) { return items[below(int(items.size()))]; }

 private:
  uint64_t state_;
};

enum Kind { FIELD, EXPOSED, EVENT_IN, EVENT_OUT };
const char* const kKindWords[] = {"field", "exposedField", "eventIn", "eventOut"};
const char* const kNamePrefixes[] = {"f", "e", "in", "out"};

struct Field {
  Kind kind;
  std::string type, name;
  std::string end = "";  // for a script's write through a node field: "node.field" of the scope
};
using Fields = std::vector<Field>;

bool sends(Kind kind) { return kind == EXPOSED || kind == EVENT_OUT; }
bool receives(Kind kind) { return kind == EXPOSED || kind == EVENT_IN; }
// A body exposedField may stand for any kind of interface field; others only for their own kind.
bool mayBeIs(Kind body, Kind interface) { return body == EXPOSED || body == interface; }

const std::vector<std::string> kTypes = {"SFFloat", "SFBool",     "SFVec3f", "SFTime",
                                         "SFInt32", "SFRotation", "SFColor"};

struct NodeType {
  std::string name;
  Fields fields;
};
const NodeType kTransform{"Transform",
                          {{EXPOSED, "SFVec3f", "translation"},
                           {EXPOSED, "SFRotation", "rotation"},
                           {EXPOSED, "SFVec3f", "scale"}}};
const NodeType kMaterial{"Material",
                         {{EXPOSED, "SFColor", "diffuseColor"}, {EXPOSED, "SFFloat", "transparency"}}};
const NodeType kSwitch{"Switch", {{EXPOSED, "SFInt32", "whichChoice"}}};
NodeType interpolator(const std::string& name, const std::string& type) {
  return {name, {{EVENT_IN, "SFFloat", "set_fraction"}, {EVENT_OUT, type, "value_changed"}}};
}
const std::vector<NodeType> kLeaves = {
    {"TouchSensor",
     {{EXPOSED, "SFBool", "enabled"},
      {EVENT_OUT, "SFBool", "isActive"},
      {EVENT_OUT, "SFBool", "isOver"},
      {EVENT_OUT, "SFTime", "touchTime"},
      {EVENT_OUT, "SFVec3f", "hitPoint_changed"}}},
    {"TimeSensor",
     {{EXPOSED, "SFTime", "cycleInterval"},
      {EXPOSED, "SFBool", "loop"},
      {EXPOSED, "SFBool", "enabled"},
      {EVENT_OUT, "SFFloat", "fraction_changed"},
      {EVENT_OUT, "SFTime", "cycleTime"},
      {EVENT_OUT, "SFBool", "isActive"}}},
    {"PlaneSensor",
     {{EXPOSED, "SFVec3f", "offset"},
      {EXPOSED, "SFBool", "autoOffset"},
      {EVENT_OUT, "SFVec3f", "translation_changed"},
      {EVENT_OUT, "SFBool", "isActive"}}},
    {"ProximitySensor",
     {{EXPOSED, "SFVec3f", "center"},
      {EXPOSED, "SFVec3f", "size"},
      {EVENT_OUT, "SFBool", "isActive"},
      {EVENT_OUT, "SFVec3f", "position_changed"},
      {EVENT_OUT, "SFRotation", "orientation_changed"},
      {EVENT_OUT, "SFTime", "enterTime"}}},
    {"PointLight",
     {{EXPOSED, "SFBool", "on"},
      {EXPOSED, "SFFloat", "intensity"},
      {EXPOSED, "SFColor", "color"},
      {EXPOSED, "SFVec3f", "location"}}},
    interpolator("ScalarInterpolator", "SFFloat"),
    interpolator("PositionInterpolator", "SFVec3f"),
    interpolator("OrientationInterpolator", "SFRotation"),
    interpolator("ColorInterpolator", "SFColor"),
};

struct Proto {
  std::string name;
  Fields interface;
  std::vector<int> depth;  // per interface field: how many IS levels lead to a standard node
  bool external = false;
  bool target = false;  // has "field SFNode target", a Transform that body scripts may set
  int uses = 0;
};

const size_t kNone = SIZE_MAX;
struct Endpoint {
  size_t node = kNone, field = kNone;
};

// A node with a DEF name, which ROUTEs and Script fields can name.
struct Named {
  std::string name, type;
  Fields fields;
  const Proto* proto;
};

// A scope of DEF names: the top level or one PROTO body.
struct Scope {
  Proto* proto = nullptr;  // whose body this is
  size_t visibleProtos = 0;
  std::vector<Named> nodes;
  std::vector<std::vector<size_t>> flows;  // node index -> nodes its events reach
  std::set<std::string> linked;            // "node.field" ends of ROUTEs, IS links and writes
  std::set<std::string> routeKeys;
  int nextName = 0;
};

// The script text of one Script node as it is being made.
struct Js {
  std::string tag;
  Fields reads, writes;  // expressions that give and take values of a type
  std::set<std::string>* linked;
};

std::string tenths(int value) {
  std::string text = (value < 0 ? "-" : "") + std::to_string(std::abs(value) / 10);
  return std::abs(value) % 10 ? text + "." + std::to_string(std::abs(value) % 10) : text;
}

class Generator {
 public:
  explicit Generator(uint64_t seed) : random_(seed) {}

  void world() {
    put("#VRML V2.0 utf8");
    if (random_.chance(30)) externProto();
    for (int count = random_.range(0, 3); count > 0; count--) proto();
    Scope top;
    top.visibleProtos = protos_.size();
    for (int count = random_.range(1, 2); count > 0; count--) leaf(top);
    for (int count = random_.range(2, 5); count > 0; count--) child(top, 0);
    routes(top);
    summarize(top);
  }

  std::string text;
  std::set<std::string> features;

 private:
  void put(const std::string& line) { text += std::string(indent_ * 2, ' ') + line + "\n"; }
  void open(const std::string& line) { put(line), indent_++; }
  void close(const std::string& line) { indent_--, put(line); }

  std::string literal(const std::string& type, const std::string& name = "") {
    if (type == "SFBool") return random_.chance(50) ? "TRUE" : "FALSE";
    if (type == "SFInt32") return std::to_string(random_.range(-1, 2));
    if (type == "SFFloat") return tenths(random_.range(0, 10));
    if (type == "SFTime") return tenths(random_.range(1, 30));
    if (type == "SFRotation")
      return random_.pick<std::string>({"0 1 0 ", "1 0 0 ", "0 0 1 "}) + tenths(random_.range(0, 31));
    bool positive = type == "SFColor" || name == "scale" || name == "size";
    std::string vector;
    for (int axis = 0; axis < 3; axis++)
      vector += (axis ? " " : "") + tenths(positive ? random_.range(1, 10) : random_.range(-20, 20));
    return vector;
  }

  std::string jsLiteral(const std::string& type) {
    std::string value = literal(type);
    if (type == "SFBool") return value == "TRUE" ? "true" : "false";
    if (type == "SFFloat" || type == "SFTime" || type == "SFInt32") return value;
    for (size_t at = value.find(' '); at != std::string::npos; at = value.find(' ', at + 2))
      value.replace(at, 1, ", ");
    return "new " + type + "(" + value + ")";
  }

  std::string newName(Scope& scope, const std::string& prefix) {
    return prefix + std::to_string(scope.nextName++);
  }

  size_t add(Scope& scope, const std::string& name, const std::string& type, const Fields& fields,
             const Proto* proto = nullptr) {
    scope.nodes.push_back({name, type, fields, proto});
    scope.flows.emplace_back();
    return scope.nodes.size() - 1;
  }

  // "name IS x" for an interface field of the body's PROTO that may stand for this field, or "".
  std::string isLink(Scope& scope, const Field& field, int depth) {
    if (scope.proto == nullptr) return "";
    std::vector<size_t> fits;
    for (size_t i = 0; i < scope.proto->interface.size(); i++) {
      const Field& candidate = scope.proto->interface[i];
      if (candidate.type == field.type && mayBeIs(field.kind, candidate.kind)) fits.push_back(i);
    }
    if (fits.empty()) return "";
    size_t chosen = random_.pick(fits);
    scope.proto->depth[chosen] = std::max(scope.proto->depth[chosen], depth + 1);
    return field.name + " IS " + scope.proto->interface[chosen].name;
  }

  // The values (or IS links) of the fields of a node or of an instance of `proto`.
  void fieldLines(Scope& scope, const Fields& fields, const Proto* proto) {
    for (size_t i = 0; i < fields.size(); i++) {
      const Field& field = fields[i];
      if (field.type == "SFNode") continue;
      std::string link = random_.chance(proto ? 70 : 40) ? isLink(scope, field, proto ? proto->depth[i] : 0) : "";
      if (!link.empty())
        put(link);
      else if ((field.kind == FIELD || field.kind == EXPOSED) && random_.chance(50))
        put(field.name + " " + literal(field.type, field.name));
    }
  }

  void child(Scope& scope, int depth) {
    int draw = random_.below(100);
    std::vector<std::string> transforms;
    for (const Named& node : scope.nodes)
      if (node.type == "Transform") transforms.push_back(node.name);
    if (draw < 15 && depth < 2) return transform(scope, depth);
    if (draw < 22 && depth < 2) return switchNode(scope, depth);
    if (draw < 45) return script(scope);
    if (draw < 63 && scope.visibleProtos > 0) return instance(scope);
    if (draw < 68 && !transforms.empty()) {
      put("USE " + random_.pick(transforms));
      features.insert("def-use");
      return;
    }
    leaf(scope);
  }

  void transform(Scope& scope, int depth) {
    std::string name = newName(scope, "T");
    open("DEF " + name + " Transform {");
    fieldLines(scope, kTransform.fields, nullptr);
    open("children [");
    shape(scope);
    for (int count = random_.range(0, 2); count > 0; count--) child(scope, depth + 1);
    close("]");
    close("}");
    add(scope, name, kTransform.name, kTransform.fields);
  }

  void shape(Scope& scope) {
    open("Shape {");
    open("appearance Appearance {");
    std::vector<std::string> materials;
    for (const Named& node : scope.nodes)
      if (node.type == "Material") materials.push_back(node.name);
    if (!materials.empty() && random_.chance(25)) {
      put("material USE " + random_.pick(materials));
      features.insert("def-use");
    } else {
      std::string name = newName(scope, "M");
      open("material DEF " + name + " Material {");
      fieldLines(scope, kMaterial.fields, nullptr);
      close("}");
      add(scope, name, kMaterial.name, kMaterial.fields);
    }
    close("}");
    put("geometry " + random_.pick<std::string>({"Box { }", "Sphere { radius 0.5 }", "Cone { }"}));
    close("}");
  }

  void switchNode(Scope& scope, int depth) {
    std::string name = newName(scope, "W");
    open("DEF " + name + " Switch {");
    int choices = random_.range(2, 3);
    std::string link = random_.chance(30) ? isLink(scope, kSwitch.fields[0], 0) : "";
    if (!link.empty()) scope.linked.insert(name + ".whichChoice");
    put(link.empty() ? "whichChoice " + std::to_string(random_.range(-1, choices - 1)) : link);
    open("choice [");
    for (int count = choices; count > 0; count--) child(scope, depth + 1);
    close("]");
    close("}");
    add(scope, name, kSwitch.name, kSwitch.fields);
  }

  void leaf(Scope& scope) {
    const NodeType& type = random_.pick(kLeaves);
    std::string name = newName(scope, "N");
    open("DEF " + name + " " + type.name + " {");
    if (type.name.find("Interpolator") != std::string::npos) {
      const std::string& valueType = type.fields[1].type;
      put("key [ 0 1 ]");
      put("keyValue [ " + literal(valueType) + ", " + literal(valueType) + " ]");
    }
    fieldLines(scope, type.fields, nullptr);
    close("}");
    add(scope, name, type.name, type.fields);
  }

  void instance(Scope& scope) {
    // In a body mostly the PROTO declared last, whose fields lead furthest by IS.
    bool latest = scope.proto != nullptr && random_.chance(60);
    Proto& proto = protos_[latest ? scope.visibleProtos - 1 : random_.below(int(scope.visibleProtos))];
    proto.uses++;
    if (scope.proto) features.insert("instance-in-body");
    if (proto.external) features.insert("externproto-instance");
    std::string name = newName(scope, "I");
    open("DEF " + name + " " + proto.name + " {");
    fieldLines(scope, proto.interface, &proto);
    int target = -1;
    if (proto.target && scope.proto && scope.proto->target && random_.chance(50)) {
      put("target IS target");
    } else if (proto.target && random_.chance(70)) {
      for (size_t i = 0; i < scope.nodes.size(); i++)
        if (scope.nodes[i].type == "Transform") target = int(i);
      if (target >= 0) {
        put("target USE " + scope.nodes[target].name);
        features.insert("node-into-body");
      }
    }
    close("}");
    size_t index = add(scope, name, proto.name, proto.interface, &proto);
    if (target >= 0) scope.flows[index].push_back(size_t(target));
  }

  // Mostly the type of a field of `kind` that a node of the scope has, so that ROUTEs can join them.
  std::string typeAround(const Scope& scope, Kind kind) {
    std::vector<std::string> types;
    for (const Named& node : scope.nodes)
      for (const Field& field : node.fields)
        if (field.kind == kind && field.type != "SFNode") types.push_back(field.type);
    return types.empty() || random_.chance(25) ? random_.pick(kTypes) : random_.pick(types);
  }

  // Where a script may read and write through a node-valued field `ref` that holds `node`.
  void nodeAccess(Js& js, const std::string& ref, const Named& node, bool direct) {
    for (const Field& field : node.fields) {
      if (field.type == "SFNode") continue;
      if (field.kind == EXPOSED) {
        js.reads.push_back({FIELD, field.type, ref + "." + field.name});
        if (!node.proto) js.reads.push_back({FIELD, field.type, ref + "." + field.name + "_changed"});
      }
      if (!direct || !receives(field.kind)) continue;
      std::string end = node.name + "." + field.name;
      js.writes.push_back({FIELD, field.type, ref + "." + field.name, end});
      if (field.kind == EXPOSED && !beside(node, field)) js.writes.push_back({FIELD, field.type, ref + ".set_" + field.name, end});
    }
  }

  void script(Scope& scope) {
    std::string name = newName(scope, "S");
    Fields fields;
    std::vector<std::string> declarations;
    Js js{name, {}, {}, &scope.linked};
    auto declare = [&](Kind kind, const std::string& type, const std::string& field, std::string value) {
      std::string link = random_.chance(40) ? isLink(scope, {kind, type, field}, 0) : "";
      if (!link.empty()) scope.linked.insert(name + "." + field);
      declarations.push_back(std::string(kKindWords[kind]) + " " + type + " " +
                             (link.empty() ? field + value : link));
      fields.push_back({kind, type, field});
    };
    int inputs = random_.range(1, 3), outputs = random_.range(0, 3);
    for (int i = 0; i < inputs; i++) declare(EVENT_IN, typeAround(scope, EVENT_OUT), "in" + std::to_string(i), "");
    for (int i = 0; i < outputs; i++) {
      std::string type = random_.chance(20) ? "SFInt32" : typeAround(scope, EVENT_IN);
      declare(EVENT_OUT, type, "out" + std::to_string(i), "");
      js.writes.push_back({FIELD, type, "out" + std::to_string(i)});
    }
    for (const std::string& type : kTypes) {
      if (type == "SFTime" || type == "SFRotation" || !random_.chance(35)) continue;
      std::string own = type == "SFInt32" ? "count" : "my" + type.substr(2);
      declare(FIELD, type, own, " " + literal(type));
      js.reads.push_back({FIELD, type, own});
      js.writes.push_back({FIELD, type, own});
    }
    std::vector<size_t> held;
    for (size_t i = 0; i < scope.nodes.size(); i++)
      if (scope.nodes[i].type != "Script" && random_.chance(30) && held.size() < 2) held.push_back(i);
    bool target = scope.proto && scope.proto->target && random_.chance(60);
    bool direct = (!held.empty() || target) && random_.chance(75);
    for (size_t i = 0; i < held.size(); i++) {
      const Named& node = scope.nodes[held[i]];
      std::string ref = "ref" + std::to_string(i);
      declarations.push_back("field SFNode " + ref + " USE " + node.name);
      nodeAccess(js, ref, node, direct);
      features.insert(std::string(scope.proto ? "ref-in-body" : "ref-top") + (node.proto ? "-instance" : ""));
    }
    if (target) {
      declarations.push_back("field SFNode target IS target");
      nodeAccess(js, "target", {"target", "Transform", kTransform.fields, nullptr}, direct);
      features.insert("ref-outside-from-body");
    }
    if (direct) {
      declarations.push_back("directOutput TRUE");
      features.insert("directOutput");
    }
    open("DEF " + name + " Script {");
    for (const std::string& line : declarations) put(line);
    open("url \"javascript:");
    code(js, fields);
    close("\"");
    close("}");
    size_t index = add(scope, name, "Script", fields);
    if (direct)
      for (size_t node : held) scope.flows[index].push_back(node);
    features.insert(scope.proto ? "script-in-body" : "script-top");
  }

  void code(Js& js, const Fields& fields) {
    if (random_.chance(50)) function(js, "initialize", "", "");
    for (const Field& field : fields)
      if (field.kind == EVENT_IN) function(js, field.name, "value", field.type);
    if (random_.chance(25)) function(js, "eventsProcessed", "", "");
  }

  void function(Js& js, const std::string& name, const std::string& parameter, const std::string& type) {
    if (name == "initialize" || name == "eventsProcessed") features.insert(name);
    Js inner = js;
    inner.tag = js.tag + "." + name;
    if (!parameter.empty()) inner.reads.push_back({FIELD, type, parameter});
    open("function " + name + "(" + parameter + ") {");
    if (!parameter.empty() && random_.chance(40)) put("print('" + inner.tag + " ' + " + parameter + ");");
    for (int count = random_.range(1, 2); count > 0; count--) put(statement(inner, 0));
    close("}");
  }

  std::string statement(Js& js, int depth) {
    int draw = random_.below(100);
    if (draw < 15 && depth < 1)
      return "if (" + expression(js, "SFBool", 0) + ") { " + statement(js, depth + 1) + " } else { " +
             statement(js, depth + 1) + " }";
    if (draw < 40 || js.writes.empty()) {
      features.insert("print");
      std::string type = !js.reads.empty() && random_.chance(75) ? random_.pick(js.reads).type : random_.pick(kTypes);
      return "print('" + js.tag + " ' + " + expression(js, type, 1) + ");";
    }
    const Field& target = random_.pick(js.writes);
    if (!target.end.empty()) js.linked->insert(target.end);
    if (target.name.find(".set_") != std::string::npos) features.insert("set-assign");
    else if (target.name.find('.') != std::string::npos) features.insert("field-assign");
    std::string value = expression(js, target.type, 0);
    if (value == target.name) value = expression(js, target.type, 0);
    return target.name + " = " + value + ";";
  }

  std::string expression(Js& js, const std::string& type, int depth) {
    std::vector<std::string> options = {jsLiteral(type)};
    for (const Field& read : js.reads)
      if (read.type == type) options.insert(options.end(), read.name == "value" ? 4 : 1, read.name);
    auto sub = [&](const std::string& subType) { return expression(js, subType, depth + 1); };
    if (depth < 2) {
      if (type == "SFFloat") {
        options.push_back("(" + sub("SFFloat") + " * 0.5 + 0.25)");
        options.push_back(sub("SFVec3f") + ".x");
        options.push_back(sub("SFInt32") + " * 0.5");
      } else if (type == "SFVec3f") {
        options.push_back(sub("SFVec3f") + ".add(" + sub("SFVec3f") + ")");
        options.push_back(sub("SFVec3f") + ".multiply(" + sub("SFFloat") + ")");
        options.push_back("new SFVec3f(" + sub("SFFloat") + ", 0, 1)");
      } else if (type == "SFRotation") {
        options.push_back("new SFRotation(0, 1, 0, " + sub("SFFloat") + ")");
      } else if (type == "SFColor") {
        options.push_back("new SFColor(" + sub("SFFloat") + ", 0.5, 0.25)");
      } else if (type == "SFBool") {
        options.push_back("!" + sub("SFBool"));
        options.push_back("(" + sub("SFFloat") + " > 0.5)");
      } else if (type == "SFInt32") {
        options.push_back("(" + sub("SFInt32") + " + 1) % 3");
      } else if (type == "SFTime") {
        options.push_back(sub("SFTime") + " + 1");
      }
    }
    std::string chosen = random_.pick(options);
    if (chosen.find("_changed") != std::string::npos) features.insert("changed-read");
    return chosen;
  }

  Fields randomInterface(bool external) {
    Fields fields;
    std::vector<Field> linked;  // fields of earlier PROTOs that lead to a node: to be passed on by IS
    for (const Proto& earlier : protos_)
      for (size_t i = 0; i < earlier.interface.size(); i++)
        if (earlier.depth[i] > 0) linked.push_back(earlier.interface[i]);
    for (int i = random_.range(1, 5); i > 0; i--) {
      Field field{random_.pick<Kind>({FIELD, EXPOSED, EXPOSED, EVENT_IN, EVENT_OUT}), random_.pick(kTypes), ""};
      if (!external && !linked.empty() && random_.chance(50)) field = random_.pick(linked);
      field.name = kNamePrefixes[field.kind] + std::to_string(fields.size());
      fields.push_back(field);
    }
    if (!external && random_.chance(30)) {
      std::string type = random_.pick(kTypes), name = "x" + std::to_string(fields.size());
      fields.push_back({EXPOSED, type, name});
      fields.push_back({EVENT_IN, type, "set_" + name});
      features.insert("set-beside-exposed");
    }
    return fields;
  }

  std::string declaration(const Field& field, bool withValue) {
    std::string head = std::string(kKindWords[field.kind]) + " " + field.type + " " + field.name;
    if (!withValue || field.kind == EVENT_IN || field.kind == EVENT_OUT) return head;
    return head + " " + (field.type == "SFNode" ? "Transform { }" : literal(field.type));
  }

  void externProto() {
    Proto proto;
    proto.name = "X" + std::to_string(protos_.size());
    proto.external = true;
    proto.interface = randomInterface(true);
    proto.depth.assign(proto.interface.size(), 0);
    open("EXTERNPROTO " + proto.name + " [");
    for (const Field& field : proto.interface) put(declaration(field, false));
    close("] \"" + proto.name + "_missing.wrl\"");
    protos_.push_back(proto);
    features.insert("externproto");
  }

  void proto() {
    Proto proto;
    proto.name = "P" + std::to_string(protos_.size());
    proto.interface = randomInterface(false);
    proto.target = random_.chance(20);
    if (proto.target) proto.interface.push_back({FIELD, "SFNode", "target"});
    proto.depth.assign(proto.interface.size(), 0);
    open("PROTO " + proto.name + " [");
    for (const Field& field : proto.interface) put(declaration(field, true));
    close("] {");
    indent_++;
    Scope body;
    body.proto = &proto;
    body.visibleProtos = protos_.size();
    if (random_.chance(50)) leaf(body);
    for (int count = random_.range(1, 3); count > 0; count--) child(body, 1);
    routes(body);
    summarize(body);
    close("}");
    protos_.push_back(proto);
  }

  bool reaches(const Scope& scope, size_t from, size_t to) {
    std::set<size_t> seen;
    return reaches(scope, from, to, &seen);
  }

  // The loops of routeLoop are the only circles; `seen` ends the walk round them.
  bool reaches(const Scope& scope, size_t from, size_t to, std::set<size_t>* seen) {
    if (from == to) return true;
    if (!seen->insert(from).second) return false;
    for (size_t next : scope.flows[from])
      if (reaches(scope, next, to, seen)) return true;
    return false;
  }

  // Two Transforms routed to each other: a loop that a browser breaks, as an eventOut
  // sends at most one event in a cascade. No other ROUTE can join it afterwards.
  void routeLoop(Scope& scope) {
    std::vector<Endpoint> translations;
    for (size_t node = 0; node < scope.nodes.size(); node++)
      for (size_t field = 0; field < scope.nodes[node].fields.size(); field++)
        if (scope.nodes[node].type == "Transform" && scope.nodes[node].fields[field].name == "translation")
          translations.push_back({node, field});
    if (translations.size() < 2 || !random_.chance(25)) return;
    Endpoint first = random_.pick(translations), second = random_.pick(translations);
    if (first.node == second.node || reaches(scope, first.node, second.node) ||
        reaches(scope, second.node, first.node))
      return;
    route(scope, first, second);
    route(scope, second, first);
    features.insert("route-loop");
  }

  // Whether an exposedField x has an eventIn set_x beside it. A ROUTE to x is left out there:
  // vrml-equiv names the end of such a ROUTE set_x, which is the other field.
  static bool beside(const Named& node, const Field& field) {
    if (field.kind != EXPOSED) return false;
    for (const Field& other : node.fields)
      if (other.name == "set_" + field.name) return true;
    return false;
  }

  // ROUTEs between the named nodes of a scope, never closing a circle of events: to most
  // inputs of scripts, interpolators and instances, and a few more between any two nodes.
  // Most begin at an eventOut, which unlike an exposedField can send before anything sets it.
  void routes(Scope& scope) {
    routeLoop(scope);
    std::vector<Endpoint> inputs, outputs;
    for (size_t node = 0; node < scope.nodes.size(); node++)
      for (size_t field = 0; field < scope.nodes[node].fields.size(); field++) {
        Kind kind = scope.nodes[node].fields[field].kind;
        if (sends(kind)) outputs.insert(outputs.end(), kind == EVENT_OUT ? 8 : 1, {node, field});
        if (receives(kind) && !beside(scope.nodes[node], scope.nodes[node].fields[field])) inputs.push_back({node, field});
      }
    for (const Endpoint& input : inputs)
      if (scope.nodes[input.node].fields[input.field].kind == EVENT_IN && random_.chance(65))
        route(scope, fitting(scope, outputs, input, false), input);
    for (int count = random_.range(0, int(scope.nodes.size()) / 2); count > 0 && !outputs.empty(); count--) {
      const Endpoint& output = random_.pick(outputs);
      route(scope, output, fitting(scope, inputs, output, true));
    }
  }

  // An end among `ends` that a ROUTE may join to `end` (from it when `fromEnd`), or none.
  Endpoint fitting(const Scope& scope, const std::vector<Endpoint>& ends, const Endpoint& end, bool fromEnd) {
    std::vector<Endpoint> fits;
    for (const Endpoint& other : ends) {
      bool sameType = scope.nodes[other.node].fields[other.field].type == scope.nodes[end.node].fields[end.field].type;
      if (sameType && !reaches(scope, fromEnd ? other.node : end.node, fromEnd ? end.node : other.node))
        fits.push_back(other);
    }
    return fits.empty() ? Endpoint{} : random_.pick(fits);
  }

  void route(Scope& scope, const Endpoint& from, const Endpoint& to) {
    if (from.node == kNone || to.node == kNone) return;
    const Named& source = scope.nodes[from.node];
    const Named& destination = scope.nodes[to.node];
    const Field& output = source.fields[from.field];
    const Field& input = destination.fields[to.field];
    if (!scope.routeKeys.insert(source.name + "." + output.name + ">" + destination.name + "." + input.name).second)
      return;
    scope.flows[from.node].push_back(to.node);
    scope.linked.insert(source.name + "." + output.name);
    scope.linked.insert(destination.name + "." + input.name);
    put("ROUTE " + source.name + "." + endName(source, output, "", "_changed") + " TO " + destination.name + "." +
        endName(destination, input, "set_", ""));
  }

  // The name of an exposedField at a ROUTE end: plain, or with its set_ or _changed form.
  std::string endName(const Named& node, const Field& field, const std::string& prefix, const std::string& suffix) {
    if (field.kind != EXPOSED || beside(node, field) || random_.chance(50)) return field.name;
    return prefix + field.name + suffix;
  }

  void summarize(const Scope& scope) {
    for (const Named& node : scope.nodes) {
      for (const Field& field : node.fields) {
        bool linked = scope.linked.count(node.name + "." + field.name) > 0;
        if (node.type == "Switch") features.insert(linked ? "switch-routed" : "switch-constant");
        if (node.type == "Script" && field.kind == EVENT_IN)
          features.insert(linked ? "handler-routed" : "handler-unrouted");
        if (node.type == "Script" && field.kind == EVENT_OUT && linked) features.insert("script-out-routed");
      }
    }
    if (scope.proto != nullptr) return;
    for (const Proto& proto : protos_) {
      if (proto.external) continue;
      features.insert(proto.uses == 0 ? "proto-unused" : proto.uses == 1 ? "proto-once" : "proto-many");
      for (int depth : proto.depth)
        if (depth >= 2) features.insert("is-chain-" + std::to_string(std::min(depth, 3)));
      if (proto.target) features.insert("sfnode-interface");
    }
  }

  Random random_;
  std::vector<Proto> protos_;
  int indent_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: worldgen SEED\n");
    return 2;
  }
  Generator generator(std::strtoull(argv[1], nullptr, 10));
  generator.world();
  fputs(generator.text.c_str(), stdout);
  std::string features;
  for (const std::string& feature : generator.features) features += " " + feature;
  fprintf(stderr, "features:%s\n", features.c_str());
  return 0;
}
