// The compiled form of a formula: a tree of nodes in a flat array, children before their parent,
// the root last. Shared by the parser, the evaluator and the byte format.
#ifndef EMU_FORMULA_COMPILED_H
#define EMU_FORMULA_COMPILED_H

#include <cstdint>
#include <string>
#include <vector>

#include "Formula.h"

namespace emu::formula {

// The deepest node tree accepted; keeps the recursive evaluator's stack use small.
constexpr size_t kMaxTreeDepth = 200;
constexpr size_t kMaxFieldNameLength = 256;

enum class NodeOp : uint8_t {
    Literal,   // first = literal index
    Field,     // first = field index
    List,      // ":" chain, two or more children
    Compare,   // detail = CompareOp, two children
    Not,       // one child
    Logic,     // "&"/"|" chain evaluated left to right; each child after the first carries its operator
    Function,  // detail = FunctionId; children are the arguments, or first = field index for @IsAvailable
};
constexpr uint8_t kNodeOpCount = 7;

enum class CompareOp : uint8_t { Equal, NotEqual, Less, Greater, LessEqual, GreaterEqual };
constexpr uint8_t kCompareOpCount = 6;

enum class LogicOp : uint8_t { And, Or };

enum class FunctionId : uint8_t {
    Contains,
    Begins,
    Ends,
    LowerCase,
    UpperCase,
    IsAvailable,
    IsUnavailable,
    Text
};
constexpr uint8_t kFunctionCount = 8;

struct Node {
    NodeOp op = NodeOp::Literal;
    uint8_t detail = 0;
    uint32_t first = 0;  // index into children, or a literal/field index (see NodeOp)
    uint32_t count = 0;  // number of children
};

struct Child {
    uint32_t node = 0;
    LogicOp op = LogicOp::And;  // only meaningful inside a Logic chain
};

// A value together with its case-folded texts. Constants are folded once when built; computed values
// and field values are folded on first use, hence the mutable members.
struct Slot {
    Value value;
    mutable std::vector<std::string> folded;
    mutable bool foldedReady = false;
};

// A formula that only asks whether one field equals one of some texts: F = "a" | F = "b" : "c", the
// constants on either side, "|" grouped in any way. For a field that is absent or a single plain-ASCII
// text the answer needs no evaluation: it is selected when the text equals a constant ignoring case.
struct TextChoice {
    bool found = false;
    uint32_t field = 0;
    std::vector<std::string> folded;  // the constants' caseless forms
};

struct Program::Compiled {
    std::string source;
    std::vector<std::string> fieldNames;  // as first written in the source
    std::vector<std::string> referenced;  // the same names upper-cased
    std::vector<Slot> literals;           // folded when built
    std::vector<Node> nodes;
    std::vector<Child> children;
    TextChoice choice;  // derived from the tree when the Program is made; not stored
};

// Adds a field (matched case-insensitively) and returns its index.
uint32_t InternField(Program::Compiled& compiled, std::string_view name);
// Fills `literal.folded` from its texts.
void FoldLiteral(Slot& literal);
// Arity, index ranges, tree shape and depth: true when `compiled` can be evaluated safely.
bool IsWellFormed(const Program::Compiled& compiled);
// The TextChoice shape of a well-formed formula (found is false when it has another shape).
TextChoice FindTextChoice(const Program::Compiled& compiled);
// Decides a TextChoice formula from source.peek(); false when the field needs a full evaluation.
bool DecideTextChoice(const Program::Compiled& compiled, const FieldSource& source, bool& selected);

}  // namespace emu::formula

#endif  // EMU_FORMULA_COMPILED_H
