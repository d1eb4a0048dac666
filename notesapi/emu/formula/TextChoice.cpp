// The common selection "this field is one of these texts", decided from a peek at the field.
//
// The answer is the evaluator's own: a field against a text constant compares element by element
// ignoring case, an absent field reads as the empty text, and for plain ASCII the caseless form is
// the ASCII lower case. Anything else (lists, numbers, other characters) goes to the evaluator.
#include <algorithm>
#include <utility>

#include "Compiled.h"
#include "LmbcsText.h"

namespace emu::formula {
namespace {

const Node& ChildNode(const Program::Compiled& compiled, const Node& node, uint32_t which) {
    return compiled.nodes[compiled.children[node.first + which].node];
}

// F = "text" or "text" = F, the constant possibly a list.
bool CollectComparison(const Program::Compiled& compiled, const Node& node, TextChoice& choice) {
    if (static_cast<CompareOp>(node.detail) != CompareOp::Equal) return false;
    const Node* field = &ChildNode(compiled, node, 0);
    const Node* constant = &ChildNode(compiled, node, 1);
    if (field->op == NodeOp::Literal) std::swap(field, constant);
    if (field->op != NodeOp::Field || constant->op != NodeOp::Literal) return false;
    const Slot& literal = compiled.literals[constant->first];
    if (literal.value.kind != Value::Kind::Text || !literal.foldedReady) return false;
    if (choice.found && choice.field != field->first) return false;
    choice.found = true;
    choice.field = field->first;
    choice.folded.insert(choice.folded.end(), literal.folded.begin(), literal.folded.end());
    return true;
}

// A comparison, or an "|" chain whose every part is one.
bool Collect(const Program::Compiled& compiled, uint32_t index, TextChoice& choice) {
    const Node& node = compiled.nodes[index];
    if (node.op == NodeOp::Compare) return CollectComparison(compiled, node, choice);
    if (node.op != NodeOp::Logic) return false;
    for (uint32_t i = 0; i < node.count; ++i) {
        const Child& child = compiled.children[node.first + i];
        if (i > 0 && child.op != LogicOp::Or) return false;
        if (!Collect(compiled, child.node, choice)) return false;
    }
    return true;
}

}  // namespace

FieldSource::Peek FieldSource::peek(std::string_view, std::string_view&) const {
    return Peek::Other;
}

TextChoice FindTextChoice(const Program::Compiled& compiled) {
    TextChoice choice;
    if (compiled.nodes.empty() ||
        !Collect(compiled, static_cast<uint32_t>(compiled.nodes.size() - 1), choice))
        return TextChoice();
    return choice;
}

bool FindFieldChoice(const Program& program, std::string_view& field, const std::vector<std::string>*& folded) {
    const Program::Compiled& compiled = program.compiled();
    if (!compiled.choice.found) return false;
    field = compiled.fieldNames[compiled.choice.field];
    folded = &compiled.choice.folded;
    return true;
}

bool DecideTextChoice(const Program::Compiled& compiled, const FieldSource& source, bool& selected) {
    const TextChoice& choice = compiled.choice;
    std::string_view text;
    switch (source.peek(compiled.fieldNames[choice.field], text)) {
        case FieldSource::Peek::Absent:
            text = std::string_view();
            break;
        case FieldSource::Peek::OneText:
            if (!lmbcs::IsPlainAscii(text)) return false;
            break;
        case FieldSource::Peek::Other:
            return false;
    }
    selected = std::any_of(choice.folded.begin(), choice.folded.end(), [&](const std::string& folded) {
        return folded.size() == text.size() && lmbcs::AsciiFoldsTo(text, folded);
    });
    return true;
}

}  // namespace emu::formula
