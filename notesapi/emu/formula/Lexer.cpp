#include "Lexer.h"

#include <charconv>

#include "LmbcsText.h"

namespace emu::formula {
namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool IsNameStart(char c) {
    return IsLetter(c) || c == '_' || c == '$';
}
bool IsNamePart(char c) {
    return IsNameStart(c) || IsDigit(c);
}
// Line breaks count as blanks; a NUL is how LMBCS text stores a line break.
bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0';
}
// Operators of the full language that this engine does not implement.
bool IsUnsupportedOperator(char c) {
    return c == '+' || c == '-' || c == '*' || c == '/' || c == '[' || c == ']' || c == ',';
}

}  // namespace

Token Lexer::Next() {
    SkipSpace();
    if (pos_ >= source_.size()) return Make(TokenKind::End, source_.size(), 0);
    const size_t start = pos_;
    const char c = source_[start];
    if (StartsNumber(start)) return LexNumber(start);
    if (IsNameStart(c)) return LexName(start);
    switch (c) {
        case '@':
            return LexFunction(start);
        case '"':
            return LexQuoted(start);
        case '{':
            return LexBraced(start);
        case '(':
            return Make(TokenKind::LeftParen, start, 1);
        case ')':
            return Make(TokenKind::RightParen, start, 1);
        case ';':
            return Make(TokenKind::Semicolon, start, 1);
        case '&':
            return Make(TokenKind::And, start, 1);
        case '|':
            return Make(TokenKind::Or, start, 1);
        case ':':
            if (At(start + 1, '=')) return Fail(start, 2, "assignment is not supported");
            return Make(TokenKind::Colon, start, 1);
        default:
            return LexOperator(start);
    }
}

void Lexer::SkipSpace() {
    while (pos_ < source_.size() && IsBlank(source_[pos_])) ++pos_;
}

bool Lexer::DigitAt(size_t offset) const {
    return offset < source_.size() && IsDigit(source_[offset]);
}

// A sign belongs to a number constant when a digit or ".digit" follows it directly.
bool Lexer::StartsNumber(size_t offset) const {
    if (At(offset, '+') || At(offset, '-')) ++offset;
    return DigitAt(offset) || (At(offset, '.') && DigitAt(offset + 1));
}

Token Lexer::Make(TokenKind kind, size_t start, size_t length) {
    Token token;
    token.kind = kind;
    token.offset = start;
    token.length = length;
    pos_ = start + length;
    return token;
}

Token Lexer::Fail(size_t start, size_t length, const char* message) {
    Token token = Make(TokenKind::Error, start, length);
    token.message = message;
    return token;
}

Token Lexer::LexNumber(size_t start) {
    const bool negative = At(start, '-');
    const size_t digits = At(start, '+') || negative ? start + 1 : start;
    size_t end = digits;
    while (DigitAt(end)) ++end;
    if (At(end, '.')) ++end;
    while (DigitAt(end)) ++end;
    end += ExponentLength(end);
    double value = 0;
    const auto result = std::from_chars(source_.data() + digits, source_.data() + end, value);
    if (result.ec == std::errc::result_out_of_range) return Fail(start, end - start, "number out of range");
    if (result.ec != std::errc() || result.ptr != source_.data() + end)
        return Fail(start, end - start, "malformed number");
    Token token = Make(TokenKind::Number, start, end - start);
    token.number = negative ? -value : value;
    return token;
}

// "E", an optional sign and digits; 0 when there is no complete exponent at `at`.
size_t Lexer::ExponentLength(size_t at) const {
    if (!At(at, 'E') && !At(at, 'e')) return 0;
    size_t end = at + 1;
    if (At(end, '+') || At(end, '-')) ++end;
    if (!DigitAt(end)) return 0;
    while (DigitAt(end)) ++end;
    return end - at;
}

Token Lexer::LexName(size_t start) {
    size_t end = start;
    while (end < source_.size() && IsNamePart(source_[end])) ++end;
    Token token = Make(TokenKind::Name, start, end - start);
    token.text.assign(source_.substr(start, end - start));
    return token;
}

Token Lexer::LexFunction(size_t start) {
    size_t end = start + 1;
    while (end < source_.size() && IsNamePart(source_[end]) && source_[end] != '$') ++end;
    if (end == start + 1) return Fail(start, 1, "function name expected after @");
    Token token = Make(TokenKind::Function, start, end - start);
    token.text.assign(source_.substr(start + 1, end - start - 1));
    return token;
}

// "..." with \" and \\ escapes; any other backslash is kept as written.
Token Lexer::LexQuoted(size_t start) {
    std::string text;
    size_t at = start + 1;
    while (at < source_.size() && source_[at] != '"') {
        const bool escape = source_[at] == '\\' && (At(at + 1, '"') || At(at + 1, '\\'));
        if (escape) ++at;
        const size_t length = escape ? 1 : lmbcs::CharLength(source_, at);
        text.append(source_.substr(at, length));
        at += length;
    }
    if (at >= source_.size()) return Fail(start, source_.size() - start, "unterminated text constant");
    Token token = Make(TokenKind::Text, start, at + 1 - start);
    token.text = std::move(text);
    return token;
}

// {...}: no escapes, ends at the first "}".
Token Lexer::LexBraced(size_t start) {
    size_t at = start + 1;
    while (at < source_.size() && source_[at] != '}') at += lmbcs::CharLength(source_, at);
    if (at >= source_.size()) return Fail(start, source_.size() - start, "unterminated text constant");
    Token token = Make(TokenKind::Text, start, at + 1 - start);
    token.text.assign(source_.substr(start + 1, at - start - 1));
    return token;
}

Token Lexer::LexOperator(size_t start) {
    const char c = source_[start];
    const char next = start + 1 < source_.size() ? source_[start + 1] : '\0';
    auto compare = [&](CompareOp op, size_t length) {
        Token token = Make(TokenKind::Compare, start, length);
        token.compare = op;
        return token;
    };
    switch (c) {
        case '!':
            if (next == '=') return compare(CompareOp::NotEqual, 2);
            return Make(TokenKind::Not, start, 1);
        case '=':
            if (next == '!') return compare(CompareOp::NotEqual, 2);
            return compare(CompareOp::Equal, 1);
        case '<':
            if (next == '=') return compare(CompareOp::LessEqual, 2);
            if (next == '>') return compare(CompareOp::NotEqual, 2);
            return compare(CompareOp::Less, 1);
        case '>':
            if (next == '=') return compare(CompareOp::GreaterEqual, 2);
            if (next == '<') return compare(CompareOp::NotEqual, 2);
            return compare(CompareOp::Greater, 1);
        default:
            break;
    }
    if (IsUnsupportedOperator(c)) return Fail(start, 1, "operator not supported");
    return Fail(start, lmbcs::CharLength(source_, start), "unexpected character");
}

}  // namespace emu::formula
