// Evaluation of a compiled formula against one note.
//
// Every node writes its result into a scratch slot of its own; the slots, and the field values with
// their folded texts, are kept per thread and reused from note to note, so once warmed up a search
// evaluates without allocating (as long as the field source reuses the values it is handed).
//
// Rules: comparisons pair the elements of both sides (the shorter list repeats its last element) and
// are true when any pair satisfies the operator; text compares ignoring case; text against number is
// a type error, which makes the whole formula an error and the note unselected. "&" and "|" stop as
// soon as their result is known. A value counts as true when it is a number with a non-zero element.
#include <algorithm>
#include <charconv>

#include "Compiled.h"
#include "LmbcsText.h"

namespace emu::formula {
namespace {

enum class FieldState : uint8_t { NotFetched, Absent, Present };

struct Scratch {
    std::vector<Slot> nodes;
    std::vector<Slot> fields;
    std::vector<FieldState> states;
    bool inUse = false;
};

const Slot& AbsentField() {
    static const Slot absent = [] {
        Slot slot;
        slot.value.texts.emplace_back();
        FoldLiteral(slot);
        return slot;
    }();
    return absent;
}

// A field with no elements reads as the empty text, like an absent one.
void Normalize(Value& value) {
    const bool empty = value.kind == Value::Kind::Number ? value.numbers.empty() : value.texts.empty();
    if (value.kind != Value::Kind::Error && empty) {
        value.kind = Value::Kind::Text;
        value.texts.resize(1);
        value.texts[0].clear();
    }
}

const std::vector<std::string>& Folded(const Slot& slot) {
    if (!slot.foldedReady) {
        const std::vector<std::string>& texts = slot.value.texts;
        slot.folded.resize(texts.size());
        for (size_t i = 0; i < texts.size(); ++i) lmbcs::FoldCase(texts[i], slot.folded[i]);
        slot.foldedReady = true;
    }
    return slot.folded;
}

bool IsTrue(const Value& value) {
    return value.kind == Value::Kind::Number &&
           std::any_of(value.numbers.begin(), value.numbers.end(), [](double n) { return n != 0; });
}

template <typename T>
bool Satisfies(CompareOp op, const T& a, const T& b) {
    switch (op) {
        case CompareOp::Equal:
            return a == b;
        case CompareOp::NotEqual:
            return a != b;
        case CompareOp::Less:
            return a < b;
        case CompareOp::Greater:
            return a > b;
        case CompareOp::LessEqual:
            return a <= b;
        case CompareOp::GreaterEqual:
            return a >= b;
    }
    return false;
}

// Pairs by position, the shorter list padded with its last element; true when any pair matches.
template <typename T>
bool AnyPair(CompareOp op, const std::vector<T>& a, const std::vector<T>& b) {
    if (a.empty() || b.empty()) return false;
    const size_t pairs = std::max(a.size(), b.size());
    for (size_t i = 0; i < pairs; ++i) {
        if (Satisfies(op, a[std::min(i, a.size() - 1)], b[std::min(i, b.size() - 1)])) return true;
    }
    return false;
}

// Every element of `texts` against every element of `parts`.
template <typename Test>
bool AnyCombination(const std::vector<std::string>& texts, const std::vector<std::string>& parts, Test test) {
    for (const std::string& text : texts) {
        for (const std::string& part : parts) {
            if (test(text, part)) return true;
        }
    }
    return false;
}

// Up to 15 significant digits, no trailing zeros, "E" for the exponent.
void FormatNumber(double number, std::string& out) {
    if (number == 0) number = 0;  // no "-0"
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::general, 15);
    out.assign(buffer, result.ec == std::errc() ? result.ptr : buffer);
    std::replace(out.begin(), out.end(), 'e', 'E');
}

class Evaluator {
public:
    Evaluator(const Program::Compiled& compiled, const FieldSource& source, Scratch& scratch)
        : compiled_(compiled), source_(source), scratch_(scratch) {
        scratch_.nodes.resize(std::max(scratch_.nodes.size(), compiled_.nodes.size()));
        scratch_.fields.resize(std::max(scratch_.fields.size(), compiled_.fieldNames.size()));
        scratch_.states.assign(compiled_.fieldNames.size(), FieldState::NotFetched);
    }

    const Value& Run() { return Eval(static_cast<uint32_t>(compiled_.nodes.size() - 1)).value; }

private:
    const Slot& Eval(uint32_t index);
    const Slot& Field(uint32_t field);
    const Child* ChildrenOf(const Node& node) const { return compiled_.children.data() + node.first; }
    const Slot& List(const Node& node, Slot& out);
    const Slot& Compare(const Node& node, Slot& out);
    static bool TextsEqual(CompareOp op, const Slot& left, const Slot& right);
    const Slot& Negate(const Node& node, Slot& out);
    const Slot& Logic(const Node& node, Slot& out);
    const Slot& Function(const Node& node, Slot& out);
    const Slot& TextTest(const Node& node, Slot& out);
    const Slot& MapTexts(const Node& node, Slot& out);
    const Slot& Text(const Node& node, Slot& out);

    static const Slot& SetBool(Slot& out, bool value);
    static const Slot& SetError(Slot& out);

    const Program::Compiled& compiled_;
    const FieldSource& source_;
    Scratch& scratch_;
};

const Slot& Evaluator::Eval(uint32_t index) {
    const Node& node = compiled_.nodes[index];
    Slot& out = scratch_.nodes[index];
    switch (node.op) {
        case NodeOp::Literal:
            return compiled_.literals[node.first];
        case NodeOp::Field:
            return Field(node.first);
        case NodeOp::List:
            return List(node, out);
        case NodeOp::Compare:
            return Compare(node, out);
        case NodeOp::Not:
            return Negate(node, out);
        case NodeOp::Logic:
            return Logic(node, out);
        case NodeOp::Function:
            return Function(node, out);
    }
    return SetError(out);
}

// Each field is read from the source once per evaluation.
const Slot& Evaluator::Field(uint32_t field) {
    FieldState& state = scratch_.states[field];
    Slot& slot = scratch_.fields[field];
    if (state == FieldState::NotFetched) {
        slot.foldedReady = false;
        const bool present = source_.field(compiled_.fieldNames[field], slot.value);
        if (present) Normalize(slot.value);
        state = present ? FieldState::Present : FieldState::Absent;
    }
    return state == FieldState::Present ? slot : AbsentField();
}

const Slot& Evaluator::SetBool(Slot& out, bool value) {
    out.value.kind = Value::Kind::Number;
    out.value.numbers.resize(1);
    out.value.numbers[0] = value ? 1 : 0;
    out.foldedReady = false;
    return out;
}

const Slot& Evaluator::SetError(Slot& out) {
    out.value.kind = Value::Kind::Error;
    out.foldedReady = false;
    return out;
}

const Slot& Evaluator::List(const Node& node, Slot& out) {
    const Child* children = ChildrenOf(node);
    size_t texts = 0, numbers = 0;
    Value::Kind kind = Value::Kind::Error;
    for (uint32_t i = 0; i < node.count; ++i) {
        const Value& item = Eval(children[i].node).value;
        if (item.kind == Value::Kind::Error || (i > 0 && item.kind != kind)) return SetError(out);
        kind = item.kind;
        if (kind == Value::Kind::Text) {
            out.value.texts.resize(std::max(out.value.texts.size(), texts + item.texts.size()));
            for (const std::string& text : item.texts) out.value.texts[texts++].assign(text);
        } else {
            out.value.numbers.resize(numbers);
            out.value.numbers.insert(out.value.numbers.end(), item.numbers.begin(), item.numbers.end());
            numbers = out.value.numbers.size();
        }
    }
    out.value.kind = kind;
    if (kind == Value::Kind::Text) out.value.texts.resize(texts);
    out.foldedReady = false;
    return out;
}

const Slot& Evaluator::Compare(const Node& node, Slot& out) {
    const Child* children = ChildrenOf(node);
    const Slot& left = Eval(children[0].node);
    if (left.value.kind == Value::Kind::Error) return SetError(out);
    const Slot& right = Eval(children[1].node);
    if (right.value.kind != left.value.kind) return SetError(out);
    const auto op = static_cast<CompareOp>(node.detail);
    if (left.value.kind == Value::Kind::Number)
        return SetBool(out, AnyPair(op, left.value.numbers, right.value.numbers));
    if (op == CompareOp::Equal || op == CompareOp::NotEqual) return SetBool(out, TextsEqual(op, left, right));
    return SetBool(out, AnyPair(op, Folded(left), Folded(right)));
}

// AnyPair for = and != on texts. The common case, a field against a constant, compares the
// field's plain-ASCII texts with the constant's folded ones directly.
bool Evaluator::TextsEqual(CompareOp op, const Slot& left, const Slot& right) {
    const std::vector<std::string>& a = left.value.texts;
    const std::vector<std::string>& b = right.value.texts;
    if (a.empty() || b.empty()) return false;
    const size_t pairs = std::max(a.size(), b.size());
    for (size_t i = 0; i < pairs; ++i) {
        const size_t x = std::min(i, a.size() - 1), y = std::min(i, b.size() - 1);
        bool equal;
        if (!left.foldedReady && right.foldedReady && lmbcs::IsPlainAscii(a[x]))
            equal = lmbcs::AsciiFoldsTo(a[x], right.folded[y]);
        else if (!right.foldedReady && left.foldedReady && lmbcs::IsPlainAscii(b[y]))
            equal = lmbcs::AsciiFoldsTo(b[y], left.folded[x]);
        else
            equal = Folded(left)[x] == Folded(right)[y];
        if (equal == (op == CompareOp::Equal)) return true;
    }
    return false;
}

const Slot& Evaluator::Negate(const Node& node, Slot& out) {
    const Value& operand = Eval(ChildrenOf(node)[0].node).value;
    if (operand.kind != Value::Kind::Number) return SetError(out);
    return SetBool(out, !IsTrue(operand));
}

const Slot& Evaluator::Logic(const Node& node, Slot& out) {
    const Child* children = ChildrenOf(node);
    bool result = false;
    for (uint32_t i = 0; i < node.count; ++i) {
        const bool decided = i > 0 && (children[i].op == LogicOp::And ? !result : result);
        if (decided) continue;
        const Value& operand = Eval(children[i].node).value;
        if (operand.kind != Value::Kind::Number) return SetError(out);
        result = IsTrue(operand);
    }
    return SetBool(out, result);
}

const Slot& Evaluator::Function(const Node& node, Slot& out) {
    switch (static_cast<FunctionId>(node.detail)) {
        case FunctionId::Contains:
        case FunctionId::Begins:
        case FunctionId::Ends:
            return TextTest(node, out);
        case FunctionId::LowerCase:
        case FunctionId::UpperCase:
            return MapTexts(node, out);
        case FunctionId::Text:
            return Text(node, out);
        case FunctionId::IsAvailable:
        case FunctionId::IsUnavailable: {
            Field(node.first);
            const bool available = scratch_.states[node.first] == FieldState::Present;
            return SetBool(out,
                           available == (static_cast<FunctionId>(node.detail) == FunctionId::IsAvailable));
        }
    }
    return SetError(out);
}

// @Contains, @Begins, @Ends: case-sensitive, any element of the first argument against any of the second.
const Slot& Evaluator::TextTest(const Node& node, Slot& out) {
    const Child* children = ChildrenOf(node);
    const Value& text = Eval(children[0].node).value;
    if (text.kind != Value::Kind::Text) return SetError(out);
    const Value& part = Eval(children[1].node).value;
    if (part.kind != Value::Kind::Text) return SetError(out);
    switch (static_cast<FunctionId>(node.detail)) {
        case FunctionId::Contains:
            return SetBool(out, AnyCombination(text.texts, part.texts, lmbcs::Contains));
        case FunctionId::Begins:
            return SetBool(out, AnyCombination(text.texts, part.texts, lmbcs::Begins));
        default:
            return SetBool(out, AnyCombination(text.texts, part.texts, lmbcs::Ends));
    }
}

const Slot& Evaluator::MapTexts(const Node& node, Slot& out) {
    const Value& operand = Eval(ChildrenOf(node)[0].node).value;
    if (operand.kind != Value::Kind::Text) return SetError(out);
    const bool lower = static_cast<FunctionId>(node.detail) == FunctionId::LowerCase;
    out.value.kind = Value::Kind::Text;
    out.value.texts.resize(operand.texts.size());
    for (size_t i = 0; i < operand.texts.size(); ++i) {
        if (lower) {
            lmbcs::ToLower(operand.texts[i], out.value.texts[i]);
        } else {
            lmbcs::ToUpper(operand.texts[i], out.value.texts[i]);
        }
    }
    out.foldedReady = false;
    return out;
}

const Slot& Evaluator::Text(const Node& node, Slot& out) {
    const Slot& operand = Eval(ChildrenOf(node)[0].node);
    if (operand.value.kind != Value::Kind::Number) return operand;  // text stays as it is, errors pass on
    out.value.kind = Value::Kind::Text;
    out.value.texts.resize(operand.value.numbers.size());
    for (size_t i = 0; i < operand.value.numbers.size(); ++i)
        FormatNumber(operand.value.numbers[i], out.value.texts[i]);
    out.foldedReady = false;
    return out;
}

// The per-thread scratch, or a private one when an evaluation runs inside another on the same thread
// (a field source that evaluates a formula itself).
class ScratchLease {
public:
    ScratchLease() : scratch_(&Shared()) {
        if (scratch_->inUse) {
            own_ = std::make_unique<Scratch>();
            scratch_ = own_.get();
        }
        scratch_->inUse = true;
    }
    ~ScratchLease() { scratch_->inUse = false; }
    ScratchLease(const ScratchLease&) = delete;
    ScratchLease& operator=(const ScratchLease&) = delete;
    Scratch& get() { return *scratch_; }

private:
    static Scratch& Shared() {
        thread_local Scratch scratch;
        return scratch;
    }
    Scratch* scratch_;
    std::unique_ptr<Scratch> own_;
};

}  // namespace

Value Evaluate(const Program& program, const FieldSource& source) {
    ScratchLease lease;
    const Value& result = Evaluator(program.compiled(), source, lease.get()).Run();
    Value copy;
    copy.kind = result.kind;
    if (result.kind == Value::Kind::Text) copy.texts = result.texts;
    if (result.kind == Value::Kind::Number) copy.numbers = result.numbers;
    return copy;
}

bool Selects(const Program& program, const FieldSource& source) {
    bool selected = false;
    if (program.compiled().choice.found && DecideTextChoice(program.compiled(), source, selected))
        return selected;
    ScratchLease lease;
    return IsTrue(Evaluator(program.compiled(), source, lease.get()).Run());
}

}  // namespace emu::formula
