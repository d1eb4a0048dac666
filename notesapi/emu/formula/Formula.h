// The selection-formula engine of the emulated platform: compiles the supported subset of the
// formula language, stores compiled formulas as bytes and decides whether a note is selected.
// Self-contained: the database core supplies field values through FieldSource.
//
// Supported: an optional leading SELECT, @All, @True, @False, field names, text ("..." with \" and
// \\ escapes, or {...}) and number constants, ":" lists, = != <> >< =! < > <= >=, ! & |, parentheses,
// @Contains, @Begins, @Ends, @LowerCase, @UpperCase, @IsAvailable, @IsUnavailable, @Text.
// Precedence, tightest first: ":", comparisons, "!", then "&" and "|" at one level, left to right.
#ifndef EMU_FORMULA_FORMULA_H
#define EMU_FORMULA_FORMULA_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace emu::formula {

// ERR_FORMULA_COMPILATION (PKG_FORMULA + 1): the status of every compile failure.
constexpr unsigned short kErrFormulaCompilation = 0x0501;

// A formula value: a list of texts (LMBCS bytes) or a list of numbers. A scalar is a one-element list.
// Logical results are the numbers 1 and 0. Error stands for a type error during evaluation.
struct Value {
    enum class Kind { Text, Number, Error };
    Kind kind = Kind::Text;
    std::vector<std::string> texts;
    std::vector<double> numbers;
};

// Where field values come from during evaluation: the core implements it over a note's items.
class FieldSource {
public:
    virtual ~FieldSource() = default;
    // Looks a field up by name (the name as written in the formula; the source matches item names
    // case-insensitively). Returns false when the note has no such item. `out` still holds an earlier
    // value: overwrite all of it, reusing its vectors and strings, so that a search need not allocate.
    virtual bool field(std::string_view name, Value& out) const = 0;

    // A look at a field without building its value, for formulas that only compare one field with
    // texts: Absent when the note has no such item, OneText (`text` viewing its bytes, valid while
    // the note is) when its value is a single text, Other otherwise or when the source cannot tell.
    // What it reports must agree with field(); a source that does not implement it loses nothing.
    enum class Peek { Absent, OneText, Other };
    virtual Peek peek(std::string_view name, std::string_view& text) const;
};

// status: kErrFormulaCompilation; line/column 1-based (column counts LMBCS characters), offset and
// length in bytes of the offending token; message: a short static English description.
struct CompileError {
    unsigned short status = 0;
    unsigned short line = 0, column = 0, offset = 0, length = 0;
    const char* message = "";
};

// A compiled formula. Immutable once built, so one Program may be evaluated from several threads.
class Program final {
public:
    struct Compiled;  // the internal representation (Compiled.h)
    explicit Program(std::unique_ptr<Compiled> compiled);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    const Compiled& compiled() const { return *compiled_; }

private:
    std::unique_ptr<Compiled> compiled_;
};

// nullptr on error, with `error` filled in; on success `error` is reset to all zeroes.
std::unique_ptr<Program> Compile(std::string_view lmbcsSource, CompileError& error);
// The bytes stored in a compiled-formula memory block and in TYPE_FORMULA items.
std::vector<unsigned char> Serialize(const Program&);
// nullptr when the bytes are not a compiled formula; every length is checked against the buffer.
std::unique_ptr<Program> Deserialize(const unsigned char* bytes, size_t length);
// The length of the compiled formula that starts at `bytes`, reading at most `limit` bytes and none
// past the formula's own end; 0 when the bytes do not start with a valid compiled formula.
size_t CompiledLength(const unsigned char* bytes, size_t limit);
// The original source text, for NSFFormulaDecompile and dumps ("" if the bytes are invalid).
std::string SourceOf(const unsigned char* bytes, size_t length);
const std::string& Source(const Program&);

// The formula's value for one note (Kind::Error on a type error).
Value Evaluate(const Program&, const FieldSource&);
// True when the note is selected: the value is a number with a non-zero element.
bool Selects(const Program&, const FieldSource&);
// Upper-cased names the formula reads (lets the core load only those items).
const std::vector<std::string>& ReferencedFields(const Program&);
// For a formula that only asks whether one field is one of some texts (F = "a" | F = "b" : "c"):
// the field's name as written and the texts' caseless forms; false for a formula of another shape.
// A note whose field is a single plain-ASCII text is selected exactly when that text in ASCII lower
// case is one of `folded`; any other note needs an evaluation.
bool FindFieldChoice(const Program&, std::string_view& field, const std::vector<std::string>*& folded);

}  // namespace emu::formula

#endif  // EMU_FORMULA_FORMULA_H
