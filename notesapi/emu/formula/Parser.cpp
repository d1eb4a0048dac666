// Compile: recursive descent over the token stream, building the node array bottom-up.
//
//   formula  := [SELECT] logic [";"] end
//   logic    := negation (("&" | "|") negation)*        one level, left to right
//   negation := "!"* compare
//   compare  := list (compare-operator list)*
//   list     := operand (":" operand)*
//   operand  := number | text | field | @function | "(" logic ")"
#include <algorithm>
#include <limits>

#include "Compiled.h"
#include "Lexer.h"
#include "LmbcsText.h"

namespace emu::formula {
namespace {

// Parentheses and function arguments deeper than this are refused before the stack is at risk.
constexpr size_t kMaxNesting = 64;
constexpr size_t kMaxSourceLength = std::numeric_limits<unsigned short>::max();

enum class FunctionForm { Constant, FieldArgument, Arguments };

struct FunctionInfo {
    const char* name;
    FunctionForm form;
    FunctionId id;
    size_t arity;
    double constant;
};

constexpr FunctionInfo kFunctions[] = {
    {"All", FunctionForm::Constant, FunctionId::Contains, 0, 1},
    {"True", FunctionForm::Constant, FunctionId::Contains, 0, 1},
    {"False", FunctionForm::Constant, FunctionId::Contains, 0, 0},
    {"Contains", FunctionForm::Arguments, FunctionId::Contains, 2, 0},
    {"Begins", FunctionForm::Arguments, FunctionId::Begins, 2, 0},
    {"Ends", FunctionForm::Arguments, FunctionId::Ends, 2, 0},
    {"LowerCase", FunctionForm::Arguments, FunctionId::LowerCase, 1, 0},
    {"UpperCase", FunctionForm::Arguments, FunctionId::UpperCase, 1, 0},
    {"Text", FunctionForm::Arguments, FunctionId::Text, 1, 0},
    {"IsAvailable", FunctionForm::FieldArgument, FunctionId::IsAvailable, 0, 0},
    {"IsUnavailable", FunctionForm::FieldArgument, FunctionId::IsUnavailable, 0, 0},
};

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [&](char x, char y) { return lower(x) == lower(y); });
}

const FunctionInfo* FindFunction(std::string_view name) {
    for (const FunctionInfo& info : kFunctions) {
        if (EqualsIgnoringCase(name, info.name)) return &info;
    }
    return nullptr;
}

bool IsSelectKeyword(const Token& token) {
    return token.kind == TokenKind::Name && EqualsIgnoringCase(token.text, "SELECT");
}

// Reserved words of the formula language cannot name fields.
bool IsReservedWord(std::string_view name) {
    for (const char* word : {"SELECT", "REM", "FIELD", "DEFAULT", "ENVIRONMENT"}) {
        if (EqualsIgnoringCase(name, word)) return true;
    }
    return false;
}

struct SourcePosition {
    size_t line = 1;
    size_t column = 1;
};

// Lines end at LF, CR, CR LF or NUL; columns count LMBCS characters.
SourcePosition PositionOf(std::string_view source, size_t offset) {
    SourcePosition position;
    size_t at = 0;
    while (at < offset && at < source.size()) {
        const char c = source[at];
        if (c == '\n' || c == '\r' || c == '\0') {
            at += (c == '\r' && at + 1 < offset && source[at + 1] == '\n') ? 2 : 1;
            ++position.line;
            position.column = 1;
        } else {
            at += lmbcs::CharLength(source, at);
            ++position.column;
        }
    }
    return position;
}

unsigned short ToWord(size_t value) {
    return static_cast<unsigned short>(std::min<size_t>(value, std::numeric_limits<unsigned short>::max()));
}

class Parser {
public:
    Parser(std::string_view source, Program::Compiled& out) : lexer_(source), out_(out) {}

    bool Parse();
    size_t failOffset() const { return failOffset_; }
    size_t failLength() const { return failLength_; }
    const char* failMessage() const { return failMessage_; }

private:
    void Advance() { token_ = lexer_.Next(); }
    bool Fail(const Token& at, const char* message);
    bool Expect(TokenKind kind, const char* message);

    bool ParseLogic(uint32_t& node);
    bool ParseNegation(uint32_t& node);
    bool ParseCompare(uint32_t& node);
    bool ParseList(uint32_t& node);
    bool ParseOperand(uint32_t& node);
    bool ParseParenthesised(uint32_t& node);
    bool ParseField(uint32_t& node);
    bool ParseFunction(uint32_t& node);
    bool ParseFieldArgument(uint32_t& field);
    bool ParseArguments(std::vector<Child>& arguments);

    bool AddNode(NodeOp op, uint8_t detail, const std::vector<Child>& children, uint32_t& node);
    bool AddLeaf(NodeOp op, uint8_t detail, uint32_t index, uint32_t& node);
    bool AddLiteral(Slot literal, uint32_t& node);
    bool AddList(const std::vector<Child>& items, uint32_t& node);
    bool MergeLiterals(const std::vector<Child>& items, uint32_t& node);

    Lexer lexer_;
    Program::Compiled& out_;
    Token token_;
    std::vector<size_t> depth_;  // tree depth of each node
    size_t nesting_ = 0;
    size_t failOffset_ = 0;
    size_t failLength_ = 0;
    const char* failMessage_ = "";
};

bool Parser::Parse() {
    Advance();
    if (token_.kind == TokenKind::End) return Fail(token_, "empty formula");
    if (IsSelectKeyword(token_)) Advance();
    uint32_t root = 0;
    if (!ParseLogic(root)) return false;
    if (token_.kind == TokenKind::Semicolon) {
        Advance();
        if (token_.kind != TokenKind::End) return Fail(token_, "only one statement is supported");
    }
    if (token_.kind != TokenKind::End) return Fail(token_, "operator expected");
    return true;
}

// A lexer error at the failing token explains more than what the parser expected there.
bool Parser::Fail(const Token& at, const char* message) {
    failOffset_ = at.offset;
    failLength_ = at.length;
    failMessage_ = at.kind == TokenKind::Error ? at.message : message;
    return false;
}

bool Parser::Expect(TokenKind kind, const char* message) {
    if (token_.kind != kind) return Fail(token_, message);
    Advance();
    return true;
}

bool Parser::ParseLogic(uint32_t& node) {
    if (nesting_ >= kMaxNesting) return Fail(token_, "formula is nested too deeply");
    ++nesting_;
    std::vector<Child> items(1);
    bool ok = ParseNegation(items[0].node);
    while (ok && (token_.kind == TokenKind::And || token_.kind == TokenKind::Or)) {
        Child item;
        item.op = token_.kind == TokenKind::And ? LogicOp::And : LogicOp::Or;
        Advance();
        ok = ParseNegation(item.node);
        items.push_back(item);
    }
    --nesting_;
    if (!ok) return false;
    if (items.size() == 1) {
        node = items[0].node;
        return true;
    }
    return AddNode(NodeOp::Logic, 0, items, node);
}

bool Parser::ParseNegation(uint32_t& node) {
    std::vector<Token> nots;
    while (token_.kind == TokenKind::Not) {
        nots.push_back(token_);
        Advance();
    }
    if (!ParseCompare(node)) return false;
    const Token next = token_;
    for (auto it = nots.rbegin(); it != nots.rend(); ++it) {
        token_ = *it;  // so that a depth error points at this "!"
        if (!AddNode(NodeOp::Not, 0, {Child{node, LogicOp::And}}, node)) return false;
    }
    token_ = next;
    return true;
}

bool Parser::ParseCompare(uint32_t& node) {
    if (!ParseList(node)) return false;
    while (token_.kind == TokenKind::Compare) {
        const auto op = static_cast<uint8_t>(token_.compare);
        Advance();
        uint32_t right = 0;
        if (!ParseList(right)) return false;
        if (!AddNode(NodeOp::Compare, op, {Child{node, LogicOp::And}, Child{right, LogicOp::And}}, node))
            return false;
    }
    return true;
}

bool Parser::ParseList(uint32_t& node) {
    std::vector<Child> items(1);
    if (!ParseOperand(items[0].node)) return false;
    while (token_.kind == TokenKind::Colon) {
        Advance();
        Child item;
        if (!ParseOperand(item.node)) return false;
        items.push_back(item);
    }
    if (items.size() == 1) {
        node = items[0].node;
        return true;
    }
    return AddList(items, node);
}

bool Parser::ParseOperand(uint32_t& node) {
    Slot literal;
    switch (token_.kind) {
        case TokenKind::Number:
            literal.value.kind = Value::Kind::Number;
            literal.value.numbers.push_back(token_.number);
            Advance();
            return AddLiteral(std::move(literal), node);
        case TokenKind::Text:
            literal.value.texts.push_back(std::move(token_.text));
            Advance();
            return AddLiteral(std::move(literal), node);
        case TokenKind::Name:
            return ParseField(node);
        case TokenKind::Function:
            return ParseFunction(node);
        case TokenKind::LeftParen:
            return ParseParenthesised(node);
        default:
            return Fail(token_, "value expected");
    }
}

bool Parser::ParseParenthesised(uint32_t& node) {
    Advance();
    return ParseLogic(node) && Expect(TokenKind::RightParen, "\")\" expected");
}

bool Parser::ParseField(uint32_t& node) {
    if (IsReservedWord(token_.text)) return Fail(token_, "reserved word cannot be used here");
    if (token_.text.size() > kMaxFieldNameLength) return Fail(token_, "field name is too long");
    const uint32_t field = InternField(out_, token_.text);
    Advance();
    return AddLeaf(NodeOp::Field, 0, field, node);
}

bool Parser::ParseFunction(uint32_t& node) {
    const Token name = token_;
    const FunctionInfo* info = FindFunction(name.text);
    if (!info) return Fail(name, "unknown @function");
    Advance();
    if (info->form == FunctionForm::Constant) {
        Slot literal;
        literal.value.kind = Value::Kind::Number;
        literal.value.numbers.push_back(info->constant);
        return AddLiteral(std::move(literal), node);
    }
    if (!Expect(TokenKind::LeftParen, "\"(\" expected")) return false;
    const auto detail = static_cast<uint8_t>(info->id);
    if (info->form == FunctionForm::FieldArgument) {
        uint32_t field = 0;
        return ParseFieldArgument(field) && AddLeaf(NodeOp::Function, detail, field, node);
    }
    std::vector<Child> arguments;
    if (!ParseArguments(arguments)) return false;
    if (arguments.size() != info->arity) return Fail(name, "wrong number of arguments");
    return AddNode(NodeOp::Function, detail, arguments, node);
}

bool Parser::ParseFieldArgument(uint32_t& field) {
    if (token_.kind != TokenKind::Name || IsReservedWord(token_.text))
        return Fail(token_, "field name expected");
    if (token_.text.size() > kMaxFieldNameLength) return Fail(token_, "field name is too long");
    field = InternField(out_, token_.text);
    Advance();
    return Expect(TokenKind::RightParen, "\")\" expected");
}

// After "(": arguments separated by ";" up to ")".
bool Parser::ParseArguments(std::vector<Child>& arguments) {
    do {
        if (!arguments.empty()) Advance();
        Child argument;
        if (!ParseLogic(argument.node)) return false;
        arguments.push_back(argument);
    } while (token_.kind == TokenKind::Semicolon);
    return Expect(TokenKind::RightParen, "\")\" expected");
}

bool Parser::AddNode(NodeOp op, uint8_t detail, const std::vector<Child>& children, uint32_t& node) {
    size_t depth = 1;
    for (const Child& child : children) depth = std::max(depth, depth_[child.node] + 1);
    if (depth > kMaxTreeDepth) return Fail(token_, "formula is nested too deeply");
    Node added;
    added.op = op;
    added.detail = detail;
    added.first = static_cast<uint32_t>(out_.children.size());
    added.count = static_cast<uint32_t>(children.size());
    out_.children.insert(out_.children.end(), children.begin(), children.end());
    node = static_cast<uint32_t>(out_.nodes.size());
    out_.nodes.push_back(added);
    depth_.push_back(depth);
    return true;
}

bool Parser::AddLeaf(NodeOp op, uint8_t detail, uint32_t index, uint32_t& node) {
    Node added;
    added.op = op;
    added.detail = detail;
    added.first = index;
    node = static_cast<uint32_t>(out_.nodes.size());
    out_.nodes.push_back(added);
    depth_.push_back(1);
    return true;
}

bool Parser::AddLiteral(Slot literal, uint32_t& node) {
    FoldLiteral(literal);
    out_.literals.push_back(std::move(literal));
    return AddLeaf(NodeOp::Literal, 0, static_cast<uint32_t>(out_.literals.size() - 1), node);
}

bool Parser::AddList(const std::vector<Child>& items, uint32_t& node) {
    if (MergeLiterals(items, node)) return true;
    return AddNode(NodeOp::List, 0, items, node);
}

// A list of constants of one kind becomes one constant. Such items are always the last nodes and the
// last literals added, in order, so they can be replaced in place.
bool Parser::MergeLiterals(const std::vector<Child>& items, uint32_t& node) {
    const size_t count = items.size();
    if (count > out_.nodes.size() || count > out_.literals.size()) return false;
    const size_t firstNode = out_.nodes.size() - count;
    const size_t firstLiteral = out_.literals.size() - count;
    const Value::Kind kind = out_.literals[firstLiteral].value.kind;
    for (size_t i = 0; i < count; ++i) {
        const Node& item = out_.nodes[firstNode + i];
        if (items[i].node != firstNode + i || item.op != NodeOp::Literal || item.first != firstLiteral + i ||
            out_.literals[firstLiteral + i].value.kind != kind)
            return false;
    }
    Slot merged;
    merged.value.kind = kind;
    for (size_t i = firstLiteral; i < out_.literals.size(); ++i) {
        Value& part = out_.literals[i].value;
        for (std::string& text : part.texts) merged.value.texts.push_back(std::move(text));
        merged.value.numbers.insert(merged.value.numbers.end(), part.numbers.begin(), part.numbers.end());
    }
    out_.nodes.resize(firstNode);
    out_.literals.resize(firstLiteral);
    depth_.resize(firstNode);
    return AddLiteral(std::move(merged), node);
}

}  // namespace

std::unique_ptr<Program> Compile(std::string_view lmbcsSource, CompileError& error) {
    error = CompileError{};
    auto compiled = std::make_unique<Program::Compiled>();
    size_t offset = 0, length = 0;
    const char* message = "formula is too long";
    if (lmbcsSource.size() <= kMaxSourceLength) {
        Parser parser(lmbcsSource, *compiled);
        if (parser.Parse()) {
            compiled->source.assign(lmbcsSource);
            return std::make_unique<Program>(std::move(compiled));
        }
        offset = parser.failOffset();
        length = parser.failLength();
        message = parser.failMessage();
    }
    const SourcePosition position = PositionOf(lmbcsSource, offset);
    error.status = kErrFormulaCompilation;
    error.line = ToWord(position.line);
    error.column = ToWord(position.column);
    error.offset = ToWord(offset);
    error.length = ToWord(length);
    error.message = message;
    return nullptr;
}

}  // namespace emu::formula
