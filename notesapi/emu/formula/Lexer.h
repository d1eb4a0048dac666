// Splits LMBCS formula source into tokens. Positions are byte offsets into the source.
#ifndef EMU_FORMULA_LEXER_H
#define EMU_FORMULA_LEXER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "Compiled.h"

namespace emu::formula {

enum class TokenKind {
    End,
    Error,     // a character or construct outside the language; `message` says which
    Number,    // `number`
    Text,      // `text` holds the constant with its escapes resolved
    Name,      // a field name or keyword, spelt as in the source
    Function,  // `text` holds the name after "@", spelt as in the source
    LeftParen,
    RightParen,
    Semicolon,
    Colon,
    Compare,  // `compare`
    Not,
    And,
    Or,
};

struct Token {
    TokenKind kind = TokenKind::End;
    size_t offset = 0;
    size_t length = 0;
    std::string text;
    double number = 0;
    CompareOp compare = CompareOp::Equal;
    const char* message = "";
};

class Lexer {
public:
    explicit Lexer(std::string_view source) : source_(source) {}
    Token Next();

private:
    void SkipSpace();
    bool At(size_t offset, char c) const { return offset < source_.size() && source_[offset] == c; }
    bool DigitAt(size_t offset) const;
    bool StartsNumber(size_t offset) const;
    size_t ExponentLength(size_t at) const;
    Token Make(TokenKind kind, size_t start, size_t length);
    Token Fail(size_t start, size_t length, const char* message);
    Token LexNumber(size_t start);
    Token LexName(size_t start);
    Token LexFunction(size_t start);
    Token LexQuoted(size_t start);
    Token LexBraced(size_t start);
    Token LexOperator(size_t start);

    std::string_view source_;
    size_t pos_ = 0;
};

}  // namespace emu::formula

#endif  // EMU_FORMULA_LEXER_H
