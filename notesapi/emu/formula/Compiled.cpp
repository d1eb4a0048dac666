#include "Compiled.h"

#include <algorithm>
#include <cstdint>

#include "LmbcsText.h"

namespace emu::formula {
namespace {

std::string UpperAscii(std::string_view name) {
    std::string upper(name);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return upper;
}

bool TakesFieldArgument(FunctionId id) {
    return id == FunctionId::IsAvailable || id == FunctionId::IsUnavailable;
}

size_t FunctionArity(FunctionId id) {
    switch (id) {
        case FunctionId::Contains:
        case FunctionId::Begins:
        case FunctionId::Ends:
            return 2;
        case FunctionId::IsAvailable:
        case FunctionId::IsUnavailable:
            return 0;
        default:
            return 1;
    }
}

bool IsValidLiteral(const Slot& literal) {
    switch (literal.value.kind) {
        case Value::Kind::Text:
            return !literal.value.texts.empty() && literal.foldedReady &&
                   literal.folded.size() == literal.value.texts.size();
        case Value::Kind::Number:
            return !literal.value.numbers.empty();
        default:
            return false;
    }
}

// Whether a node refers to children (as opposed to a literal or field index).
bool HasChildren(const Node& node) {
    switch (node.op) {
        case NodeOp::Literal:
        case NodeOp::Field:
            return false;
        case NodeOp::Function:
            return !TakesFieldArgument(static_cast<FunctionId>(node.detail));
        default:
            return true;
    }
}

bool HasValidShape(const Node& node, const Program::Compiled& compiled) {
    switch (node.op) {
        case NodeOp::Literal:
            return node.count == 0 && node.first < compiled.literals.size();
        case NodeOp::Field:
            return node.count == 0 && node.first < compiled.fieldNames.size();
        case NodeOp::List:
        case NodeOp::Logic:
            return node.count >= 2;
        case NodeOp::Compare:
            return node.count == 2 && node.detail < kCompareOpCount;
        case NodeOp::Not:
            return node.count == 1;
        case NodeOp::Function: {
            if (node.detail >= kFunctionCount) return false;
            const auto id = static_cast<FunctionId>(node.detail);
            if (TakesFieldArgument(id)) return node.count == 0 && node.first < compiled.fieldNames.size();
            return node.count == FunctionArity(id);
        }
    }
    return false;
}

}  // namespace

Program::Program(std::unique_ptr<Compiled> compiled) : compiled_(std::move(compiled)) {
    compiled_->choice = FindTextChoice(*compiled_);
}
Program::~Program() = default;

uint32_t InternField(Program::Compiled& compiled, std::string_view name) {
    const std::string upper = UpperAscii(name);
    const auto found = std::find(compiled.referenced.begin(), compiled.referenced.end(), upper);
    if (found != compiled.referenced.end()) return static_cast<uint32_t>(found - compiled.referenced.begin());
    compiled.fieldNames.emplace_back(name);
    compiled.referenced.push_back(upper);
    return static_cast<uint32_t>(compiled.referenced.size() - 1);
}

void FoldLiteral(Slot& literal) {
    const std::vector<std::string>& texts = literal.value.texts;
    literal.folded.resize(texts.size());
    for (size_t i = 0; i < texts.size(); ++i) lmbcs::FoldCase(texts[i], literal.folded[i]);
    literal.foldedReady = true;
}

bool IsWellFormed(const Program::Compiled& compiled) {
    if (compiled.nodes.empty() || compiled.referenced.size() != compiled.fieldNames.size()) return false;
    if (!std::all_of(compiled.literals.begin(), compiled.literals.end(), IsValidLiteral)) return false;
    std::vector<size_t> depth(compiled.nodes.size(), 1);
    std::vector<bool> isChild(compiled.nodes.size(), false);
    for (size_t i = 0; i < compiled.nodes.size(); ++i) {
        const Node& node = compiled.nodes[i];
        if (!HasValidShape(node, compiled)) return false;
        if (!HasChildren(node)) continue;
        if (uint64_t{node.first} + node.count > compiled.children.size()) return false;
        for (uint32_t c = node.first; c < node.first + node.count; ++c) {
            const uint32_t child = compiled.children[c].node;
            // Children come first and belong to one parent only: a tree, so evaluation is linear.
            if (child >= i || isChild[child]) return false;
            isChild[child] = true;
            depth[i] = std::max(depth[i], depth[child] + 1);
        }
        if (depth[i] > kMaxTreeDepth) return false;
    }
    return true;
}

const std::vector<std::string>& ReferencedFields(const Program& program) {
    return program.compiled().referenced;
}

const std::string& Source(const Program& program) {
    return program.compiled().source;
}

}  // namespace emu::formula
