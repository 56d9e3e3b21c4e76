#include <gtest/gtest.h>

#include "jssimulate_test_util.h"

namespace {

// Atoms are made and compared inside one entry's worth of atoms.
struct Atoms {
  JSParser* parser = newParser();
  JSAtom* of(FieldValue value) { return makeAtom(parser, value); }
  JSAtom* unknown() { return parser->newAtom(JSAtom::UNKNOWN); }
  // Atoms made outside an entry are released by the next one.
  ~Atoms() { parser->simulateCall("none", &Simulation::newContext(parser), nullptr); }
};

TEST(ScriptValues, MergeClimbsFromNoneToKnownToKindToUnknown) {
  Atoms atoms;
  JSParser* p = atoms.parser;
  JSAtom* one = atoms.of(number(1));
  EXPECT_EQ(p->mergeAtoms(nullptr, nullptr), nullptr);
  EXPECT_EQ(p->mergeAtoms(nullptr, one), one);
  EXPECT_EQ(p->mergeAtoms(one, nullptr), one);
  EXPECT_EQ(p->mergeAtoms(one, atoms.of(number(1))), one);
  EXPECT_EQ(describe(p->mergeAtoms(one, atoms.of(number(2)))), "number");
  JSAtom* some = atoms.of(someNumber());
  EXPECT_EQ(p->mergeAtoms(one, some), some);
  EXPECT_EQ(p->mergeAtoms(some, one), some);
  JSAtom* unknown = atoms.unknown();
  EXPECT_EQ(p->mergeAtoms(unknown, some), unknown);
  EXPECT_EQ(p->mergeAtoms(some, unknown), unknown);
  EXPECT_EQ(describe(p->mergeAtoms(atoms.of(numbers({1, 2})), atoms.of(number(1)))), "number");
  EXPECT_EQ(describe(p->mergeAtoms(atoms.of(truth(1)), atoms.of(truth(0)))), "truth");
  JSAtom* yes = atoms.of(truth(1));
  EXPECT_EQ(p->mergeAtoms(yes, atoms.of(truth(1))), yes);
  JSAtom* nothing = p->newAtom(JSAtom::VOID);
  EXPECT_EQ(p->mergeAtoms(nothing, p->newAtom(JSAtom::VOID)), nothing);
}

TEST(ScriptValues, MergedObjectsAreASetInReversedOrder) {
  Atoms atoms;
  JSParser* p = atoms.parser;
  TestField a(p, node()), b(p, node()), c(p, node());
  c.twin = &a;
  auto objects = [](JSAtom* atom) {
    std::vector<JSObject*> list;
    for (JSAtomValue* cell = atom->values; cell != nullptr; cell = cell->next) {
      list.push_back(cell->object);
    }
    return list;
  };
  JSAtom* ab = p->mergeAtoms(makeAtom(p, node(), &a), makeAtom(p, node(), &b));
  EXPECT_EQ(objects(ab), (std::vector<JSObject*>{&b, &a}));
  EXPECT_EQ(objects(p->mergeAtoms(ab, ab)), (std::vector<JSObject*>{&a, &b}));
  // c denotes what a denotes: a answers so when asked about c.
  a.twin = &c;
  EXPECT_EQ(objects(p->mergeAtoms(makeAtom(p, node(), &a), makeAtom(p, node(), &c))),
            (std::vector<JSObject*>{&a}));
}

TEST(ScriptValues, EqualityOfAtoms) {
  Atoms atoms;
  EXPECT_FALSE(JSParser::atomsEqual(atoms.of(someNumber()), atoms.of(number(1))));
  EXPECT_TRUE(JSParser::atomsEqual(atoms.of(someNumber()), atoms.of(someNumber())));
  EXPECT_TRUE(JSParser::atomsEqual(atoms.of(number(1)), atoms.of(number(1))));
  EXPECT_TRUE(JSParser::atomsEqual(atoms.of(numbers({1, 2})), atoms.of(numbers({2, 1}))));
  EXPECT_FALSE(JSParser::atomsEqual(atoms.of(numbers({1, 2})), atoms.of(numbers({1, 3}))));
  EXPECT_FALSE(JSParser::atomsEqual(atoms.of(numbers({1, 2})), atoms.of(number(1))));
  EXPECT_FALSE(JSParser::atomsEqual(atoms.of(number(1)), atoms.of(numbers({1, 2}))));
  EXPECT_FALSE(JSParser::atomsEqual(atoms.of(number(1)), atoms.of(truth(1))));
  EXPECT_TRUE(JSParser::atomsEqual(atoms.unknown(), atoms.unknown()));
  EXPECT_TRUE(JSParser::atomsEqual(atoms.parser->newAtom(JSAtom::VOID),
                                   atoms.parser->newAtom(JSAtom::VOID)));
}

TEST(ScriptValues, OperatorsCompareWholeSets) {
  Atoms atoms;
  JSParser* p = atoms.parser;
  EXPECT_EQ(describe(p->greaterOperator(atoms.of(numbers({1, 2})), atoms.of(number(0)))), "true");
  EXPECT_EQ(describe(p->greaterOperator(atoms.of(numbers({1, 2})), atoms.of(number(1)))), "truth");
  EXPECT_EQ(describe(p->greaterOperator(atoms.of(number(1)), atoms.of(number(1)))), "false");
  EXPECT_EQ(describe(p->greaterOperator(atoms.of(truth(1)), atoms.of(number(1)))), "truth");
  EXPECT_EQ(describe(p->equalOperator(atoms.of(number(2)), atoms.of(number(2)))), "true");
  EXPECT_EQ(describe(p->equalOperator(atoms.of(truth(1)), atoms.of(truth(0)))), "false");
  EXPECT_EQ(describe(p->equalOperator(atoms.of(numbers({1, 2})), atoms.of(number(1)))), "truth");
  EXPECT_EQ(describe(p->notOperator(atoms.unknown())), "truth");
  EXPECT_EQ(describe(p->notOperator(atoms.of(truth(0)))), "true");
  EXPECT_EQ(describe(p->negateOperator(atoms.unknown())), "number");
  EXPECT_EQ(describe(p->negateOperator(atoms.of(numbers({1, 2})))), "-1|-2");
  EXPECT_EQ(describe(p->andOperator(atoms.unknown(), atoms.of(truth(0)))), "false");
  EXPECT_EQ(describe(p->orOperator(atoms.unknown(), atoms.of(truth(1)))), "true");
  EXPECT_EQ(describe(p->andOperator(atoms.of(truth(1)), atoms.of(someTruth()))), "truth");
  EXPECT_EQ(describe(p->andOperator(atoms.of(truth(1)), atoms.of(truth(1)))), "true");
  EXPECT_EQ(describe(p->orOperator(atoms.of(truth(0)), atoms.of(truth(0)))), "false");
}

}  // namespace
