#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "Formula.h"
#include "FormulaValues.h"

namespace {

using emu::formula::Compile;
using emu::formula::CompileError;
using emu::formula::FieldSource;
using emu::formula::Program;
using emu::formula::Value;
using formula_test::Numbers;
using formula_test::Texts;
using formula_test::Upper;

// The replaced allocation functions below pair operator new with malloc and operator delete with
// free; once inlined, GCC takes that pairing for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

// Allocations made on this thread while counting is on (see EvaluationDoesNotAllocateOnceWarm).
thread_local bool countAllocations = false;
thread_local size_t allocations = 0;

}  // namespace

void* operator new(size_t size) {
    if (countAllocations) ++allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, size_t) noexcept {
    std::free(p);
}

namespace {

// A note: items matched case-blind, as the database core does. Counts lookups.
class Note : public FieldSource {
public:
    Note& Set(const std::string& name, Value value) {
        items_[Upper(name)] = std::move(value);
        return *this;
    }
    bool field(std::string_view name, Value& out) const override {
        ++lookups;
        const auto found = items_.find(Upper(std::string(name)));
        if (found == items_.end()) return false;
        // Reuses the storage of `out`, as a core should.
        out.kind = found->second.kind;
        out.texts.resize(found->second.texts.size());
        for (size_t i = 0; i < out.texts.size(); ++i) out.texts[i].assign(found->second.texts[i]);
        out.numbers.assign(found->second.numbers.begin(), found->second.numbers.end());
        return true;
    }
    mutable int lookups = 0;

private:
    std::map<std::string, Value> items_;
};

std::unique_ptr<Program> MustCompile(const std::string& source) {
    CompileError error;
    auto program = Compile(source, error);
    EXPECT_NE(program, nullptr) << source << ": " << error.message << " at " << error.line << ":"
                                << error.column;
    return program;
}

bool Selects(const std::string& source, const Note& note = Note()) {
    auto program = MustCompile(source);
    return program && emu::formula::Selects(*program, note);
}

Value Eval(const std::string& source, const Note& note = Note()) {
    auto program = MustCompile(source);
    return program ? emu::formula::Evaluate(*program, note) : Value{Value::Kind::Error, {}, {}};
}

struct ErrorCase {
    std::string source;
    unsigned short line, column, offset, length;
};

TEST(FormulaCompile, ErrorsCarryStatusAndPositionOfTheOffendingToken) {
    const std::vector<ErrorCase> cases = {
        {"", 1, 1, 0, 0},                              // empty formula
        {"SELECT", 1, 7, 6, 0},                        // nothing after SELECT
        {"Form = \"x", 1, 8, 7, 2},                    // unterminated text
        {"Form = {x", 1, 8, 7, 2},                     // unterminated braces
        {"Form = @Foo(1)", 1, 8, 7, 4},                // unknown @function
        {"Form == \"x\"", 1, 7, 6, 1},                 // no value after "="
        {"Form = \"a\"\n  & Size * 2", 2, 10, 20, 1},  // unsupported operator
        {"Form = \"a\" Status", 1, 12, 11, 6},         // stray token
        {"(Form = \"a\"", 1, 12, 11, 0},               // missing ")"
        {"@Contains(Form)", 1, 1, 0, 9},               // wrong number of arguments
        {"@IsAvailable(\"x\")", 1, 14, 13, 3},         // not a field name
        {"Form := \"x\"", 1, 6, 5, 2},                 // assignment
        {"Form = \"a\"; Form = \"b\"", 1, 13, 12, 4},  // second statement
        {"Field = \"a\"", 1, 1, 0, 5},                 // reserved word
        {"A = 1\r\n| B = 2\r\n| #", 3, 3, 18, 1},      // CR LF counts as one line break
        {"\"\x14\x21\x2A\" = #", 1, 7, 8, 1},          // columns count characters, not bytes
        {"Count = 1E999", 1, 9, 8, 5},                 // number out of range
        {"@All()", 1, 5, 4, 1},                        // @All takes no arguments
    };
    for (const ErrorCase& c : cases) {
        CompileError error;
        EXPECT_EQ(Compile(c.source, error), nullptr) << c.source;
        EXPECT_EQ(error.status, 0x0501) << c.source;
        EXPECT_EQ(error.line, c.line) << c.source;
        EXPECT_EQ(error.column, c.column) << c.source;
        EXPECT_EQ(error.offset, c.offset) << c.source;
        EXPECT_EQ(error.length, c.length) << c.source;
        EXPECT_STRNE(error.message, "") << c.source;
    }
}

TEST(FormulaCompile, AcceptsTheFormulasTheProductUses) {
    const std::vector<std::string> sources = {
        "SELECT @All",
        "select @all;",
        "FORM=\"Patternfile\"",
        "FORM=\"Register\"",
        "DefaultRule=\"1\"",
        "Form=\"dictionary\" | Form=\"entity\" | Form=\"template\" | Form=\"dictionary_type\" | "
        "Form=\"entity_type\" | Form=\"industry\" | Form=\"region\" | Form=\"validator\"",
        "SELECT\r\n  $Ref_1 = {a} &\n  !@IsAvailable($Conflict)",
    };
    for (const std::string& source : sources) {
        CompileError error;
        error.status = 1;
        EXPECT_NE(Compile(source, error), nullptr) << source << ": " << error.message;
        EXPECT_EQ(error.status, 0) << source;
    }
}

TEST(FormulaCompile, RefusesNestingThatWouldExhaustTheStack) {
    CompileError error;
    EXPECT_EQ(Compile(std::string(500, '(') + "1" + std::string(500, ')'), error), nullptr);
    EXPECT_EQ(error.status, 0x0501);
    EXPECT_EQ(Compile(std::string(500, '!') + "1", error), nullptr);
    EXPECT_TRUE(Selects(std::string(20, '(') + "1" + std::string(20, ')')));
    // A long chain of alternatives is flat, not deep.
    std::string chain = "Form = \"f0\"";
    for (int i = 1; i < 2000; ++i) chain += " | Form = \"f" + std::to_string(i) + "\"";
    Note note;
    note.Set("Form", Texts({"f1999"}));
    EXPECT_TRUE(Selects(chain, note));
}

TEST(FormulaEval, FieldNamesAndTextComparisonsIgnoreCase) {
    Note note;
    note.Set("Form", Texts({"DICTIONARY"}));
    auto program = MustCompile("form = \"Dictionary\" | FORM = \"x\" | Form = \"y\"");
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(emu::formula::ReferencedFields(*program), std::vector<std::string>{"FORM"});
    EXPECT_TRUE(emu::formula::Selects(*program, note));
    EXPECT_EQ(note.lookups, 1);  // one read per evaluation, whatever the spelling

    EXPECT_TRUE(Selects("\"apple\" < \"BANANA\" & \"B\" >= \"a\""));
    EXPECT_FALSE(Selects("\"abc\" = \"abd\""));
    // LMBCS: e-acute / E-acute (group 1), and the Kelvin sign (Unicode group) against "k".
    EXPECT_TRUE(Selects("\"caf\x82\" = \"CAF\x90\""));
    EXPECT_TRUE(Selects("\"\x14\x21\x2A\" = \"K\""));
    EXPECT_FALSE(Selects("\"\x82\" = \"e\""));
}

// = and != between a field and a constant, either way round, with plain-ASCII and LMBCS field texts.
TEST(FormulaEval, FieldAgainstConstantEqualityIgnoresCaseOnBothSides) {
    Note note;
    note.Set("Form", Texts({"Entity", "caf\x82"}));
    EXPECT_TRUE(Selects("\"ENTITY\" = Form", note));
    EXPECT_TRUE(Selects("Form = \"CAF\x90\"", note));  // the LMBCS element, folded
    EXPECT_FALSE(Selects("Form = \"entit\"", note));
    EXPECT_FALSE(Selects("Form = \"entityx\"", note));
    EXPECT_TRUE(Selects("Form != \"entity\"", note));   // the second element differs
    note.Set("Form", Texts({"K"}));
    EXPECT_TRUE(Selects("Form = \"\x14\x21\x2A\"", note));  // the Kelvin sign folds to k
    EXPECT_FALSE(Selects("\"k\" != Form", note));
}

TEST(FormulaEval, ListsCompareAnyPairAndPadTheShorterList) {
    Note note;
    note.Set("Form", Texts({"a", "x"}));
    EXPECT_TRUE(Selects("Form = \"x\"", note));
    EXPECT_FALSE(Selects("Form = \"b\"", note));
    EXPECT_TRUE(Selects("Form = \"b\" : \"X\"", note));       // pairs (a,b) (x,X)
    EXPECT_FALSE(Selects("Form = \"x\" : \"a\"", note));      // pairs (a,x) (x,a)
    EXPECT_TRUE(Selects("\"A\":\"B\":\"C\" = \"B\":\"C\""));  // (C,C) by padding
    EXPECT_FALSE(Selects("\"A\":\"B\":\"D\" = \"B\":\"C\""));
    EXPECT_TRUE(Selects("Form != \"x\"", note));  // "a" differs
    EXPECT_FALSE(Selects("\"x\" : \"x\" != \"x\""));
    EXPECT_TRUE(Selects("Form : \"z\" = \"z\"", note));  // field joined with a constant
    EXPECT_EQ(Eval("Form : \"z\"", note).texts, (std::vector<std::string>{"a", "x", "z"}));
    EXPECT_EQ(Eval("Form : 1", note).kind, Value::Kind::Error);  // mixed kinds
}

TEST(FormulaEval, LogicOperatorsAndPrecedence) {
    EXPECT_TRUE(Selects("@True | @False"));
    EXPECT_FALSE(Selects("@True & @False"));
    EXPECT_FALSE(Selects("!@True"));
    EXPECT_TRUE(Selects("!!@True"));
    // "&" and "|" share one level, left to right: (T | F) & F.
    EXPECT_FALSE(Selects("@True | @False & @False"));
    EXPECT_TRUE(Selects("@False & @False | @True"));
    // "!" binds looser than comparisons and tighter than "|".
    EXPECT_TRUE(Selects("!\"a\" = \"b\""));
    EXPECT_TRUE(Selects("!@True | @True"));
    // ":" binds tighter than comparisons.
    EXPECT_TRUE(Selects("\"a\" = \"b\" : \"a\""));
    EXPECT_FALSE(Selects("\"a\" = (\"b\" : \"c\") & @True"));
    // Logic on text is a type error: not selected.
    EXPECT_EQ(Eval("!\"a\"").kind, Value::Kind::Error);
    EXPECT_FALSE(Selects("\"a\" | @True"));
}

TEST(FormulaEval, Functions) {
    Note note;
    note.Set("Subject", Texts({"Hello World", "other"}));
    EXPECT_TRUE(Selects("@Contains(Subject; \"lo W\")", note));
    EXPECT_FALSE(Selects("@Contains(Subject; \"LO W\")", note));  // case-sensitive
    EXPECT_TRUE(Selects("@Contains(Subject; \"zz\" : \"the\")", note));
    EXPECT_TRUE(Selects("@Contains(Subject; \"\")", note));
    EXPECT_TRUE(Selects("@Begins(Subject; \"Hell\") & @Ends(Subject; \"ther\" : \"ld\")", note));
    EXPECT_FALSE(Selects("@Begins(Subject; \"World\") | @Ends(Subject; \"Hello\")", note));
    // No match inside a multi-byte character: 0x21 0x2A are the tail of the Kelvin sign.
    EXPECT_FALSE(Selects("@Contains(\"\x14\x21\x2A\"; \"!*\") | @Ends(\"\x14\x21\x2A\"; \"*\")"));

    EXPECT_EQ(Eval("@LowerCase(Subject)", note).texts, (std::vector<std::string>{"hello world", "other"}));
    EXPECT_EQ(Eval("@UpperCase(\"caf\x82\")").texts, std::vector<std::string>{"CAF\x90"});
    EXPECT_EQ(Eval("@LowerCase(\"CAF\x90\")").texts, std::vector<std::string>{"caf\x82"});
    EXPECT_EQ(Eval("@UpperCase(1)").kind, Value::Kind::Error);

    EXPECT_EQ(Eval("@Text(3 : 2.5 : -0.125 : 1E20)").texts,
              (std::vector<std::string>{"3", "2.5", "-0.125", "1E+20"}));
    EXPECT_EQ(Eval("@Text(\"x\")").texts, std::vector<std::string>{"x"});

    EXPECT_TRUE(Selects("@IsAvailable(subject) & @IsUnavailable(Missing)", note));
    EXPECT_FALSE(Selects("@IsAvailable(Missing)", note));
    EXPECT_EQ(Eval("@Contains(1; \"1\")").kind, Value::Kind::Error);
}

TEST(FormulaEval, AbsentAndEmptyFieldsReadAsEmptyText) {
    Note note;
    note.Set("Empty", Texts({}));
    EXPECT_TRUE(Selects("Missing = \"\"", note));
    EXPECT_FALSE(Selects("Missing = \"x\"", note));
    EXPECT_FALSE(Selects("Missing != \"\"", note));
    EXPECT_TRUE(Selects("Empty = \"\"", note));
    EXPECT_EQ(Eval("Missing = 1", note).kind, Value::Kind::Error);
}

TEST(FormulaEval, NumbersCompareNumericallyAndNeverAgainstText) {
    Note note;
    note.Set("Count", Numbers({3}));
    note.Set("Sizes", Numbers({10, 200}));
    EXPECT_TRUE(Selects("Count = 3 & Count > 2.5 & Count <= 3 & Count != 4", note));
    EXPECT_TRUE(Selects("Sizes > 100", note));
    EXPECT_TRUE(Selects("Sizes = 1E1 & -1 < 0 & .5 = 0.5", note));
    EXPECT_TRUE(Selects("@Text(Count) = \"3\"", note));
    // Text against number is a type error and poisons the whole formula...
    EXPECT_EQ(Eval("Count = \"3\"", note).kind, Value::Kind::Error);
    EXPECT_FALSE(Selects("Count = \"3\" | @True", note));
    // ...unless "|" already knows its result and never evaluates it.
    EXPECT_TRUE(Selects("@True | Count = \"3\"", note));
}

std::vector<unsigned char> SerializedFormula(const std::string& source) {
    auto program = MustCompile(source);
    return program ? emu::formula::Serialize(*program) : std::vector<unsigned char>();
}

TEST(FormulaBytes, RoundTripKeepsSourceFieldsAndBehaviour) {
    const std::string source =
        "SELECT Form = \"a\" : \"b\" | (@IsAvailable(Flag) & !Count >= 2) | @Contains(T; {x})";
    const std::vector<unsigned char> bytes = SerializedFormula(source);
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(emu::formula::SourceOf(bytes.data(), bytes.size()), source);

    auto loaded = emu::formula::Deserialize(bytes.data(), bytes.size());
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(emu::formula::Source(*loaded), source);
    EXPECT_EQ(emu::formula::ReferencedFields(*loaded),
              (std::vector<std::string>{"FORM", "FLAG", "COUNT", "T"}));
    EXPECT_EQ(emu::formula::Serialize(*loaded), bytes);

    Note none, b, flagged, text;
    b.Set("form", Texts({"B"}));
    flagged.Set("Flag", Texts({"1"})).Set("Count", Numbers({1}));
    text.Set("T", Texts({"xyz"}));
    for (const Note* note : {&none, &b, &flagged, &text}) {
        auto original = MustCompile(source);
        EXPECT_EQ(emu::formula::Selects(*loaded, *note), emu::formula::Selects(*original, *note));
    }
    EXPECT_FALSE(emu::formula::Selects(*loaded, none));
    EXPECT_TRUE(emu::formula::Selects(*loaded, b));
    EXPECT_TRUE(emu::formula::Selects(*loaded, flagged));
    EXPECT_TRUE(emu::formula::Selects(*loaded, text));
}

// Builds byte images by hand, to reach shapes the compiler never produces.
class Image {
public:
    explicit Image(uint32_t fields) {
        Raw({'E', 'F', 'R', 'M'});
        U16(1);
        U32(0);  // no source
        U32(fields);
        for (uint32_t i = 0; i < fields; ++i) {
            U16(2);
            Raw({'F', static_cast<unsigned char>('A' + i)});
        }
        U32(1);  // one literal: the number 1
        Raw({1});
        U32(1);
        Raw({0, 0, 0, 0, 0, 0, 0xF0, 0x3F});
    }
    void Nodes(const std::vector<std::vector<uint32_t>>& nodes) {  // {op, detail, first, count}
        U32(static_cast<uint32_t>(nodes.size()));
        for (const auto& n : nodes) {
            Raw({static_cast<unsigned char>(n[0]), static_cast<unsigned char>(n[1])});
            U32(n[2]);
            U32(n[3]);
        }
    }
    void Children(const std::vector<uint32_t>& children) {
        U32(static_cast<uint32_t>(children.size()));
        for (uint32_t c : children) {
            U32(c);
            Raw({0});
        }
    }
    bool Loads() const { return emu::formula::Deserialize(bytes_.data(), bytes_.size()) != nullptr; }

private:
    void Raw(std::initializer_list<unsigned char> b) { bytes_.insert(bytes_.end(), b); }
    void U16(uint16_t v) { Raw({static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)}); }
    void U32(uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes_.push_back(static_cast<unsigned char>(v >> (8 * i)));
    }
    std::vector<unsigned char> bytes_;
};

constexpr uint32_t kLiteral = 0, kNot = 4, kCompare = 3;

TEST(FormulaBytes, RejectsMalformedTrees) {
    Image valid(0);
    valid.Nodes({{kLiteral, 0, 0, 0}, {kNot, 0, 0, 1}});
    valid.Children({0});
    EXPECT_TRUE(valid.Loads());

    Image forward(0);  // a child after its parent
    forward.Nodes({{kNot, 0, 0, 1}, {kLiteral, 0, 0, 0}});
    forward.Children({1});
    EXPECT_FALSE(forward.Loads());

    Image shared(0);  // one node under two parents would make evaluation exponential
    shared.Nodes({{kLiteral, 0, 0, 0}, {kCompare, 0, 0, 2}});
    shared.Children({0, 0});
    EXPECT_FALSE(shared.Loads());

    Image badLiteral(0);
    badLiteral.Nodes({{kLiteral, 0, 7, 0}});
    badLiteral.Children({});
    EXPECT_FALSE(badLiteral.Loads());

    Image badChildRange(0);
    badChildRange.Nodes({{kLiteral, 0, 0, 0}, {kNot, 0, 0xFFFFFFFF, 1}});
    badChildRange.Children({0});
    EXPECT_FALSE(badChildRange.Loads());

    Image tooDeep(0);  // a chain of 1000 "!"
    std::vector<std::vector<uint32_t>> chain = {{kLiteral, 0, 0, 0}};
    std::vector<uint32_t> children;
    for (uint32_t i = 0; i < 1000; ++i) {
        chain.push_back({kNot, 0, i, 1});
        children.push_back(i);
    }
    tooDeep.Nodes(chain);
    tooDeep.Children(children);
    EXPECT_FALSE(tooDeep.Loads());
}

// Whatever the bytes, loading and SourceOf agree, and a loaded program evaluates (under the sanitizers).
void ExpectConsistent(const std::vector<unsigned char>& bytes, const Note& note) {
    auto program = emu::formula::Deserialize(bytes.data(), bytes.size());
    const std::string source = emu::formula::SourceOf(bytes.data(), bytes.size());
    if (!program) {
        EXPECT_EQ(source, "");
        return;
    }
    EXPECT_EQ(source, emu::formula::Source(*program));
    emu::formula::Selects(*program, note);
}

TEST(FormulaBytes, HostileBuffersNeverCrash) {
    const std::vector<unsigned char> bytes = SerializedFormula(
        "Form = \"a\":\"b\" | @Contains(@LowerCase(S); \"x\") & !(N > 1) | @Text(N) = \"2\"");
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(emu::formula::Deserialize(nullptr, 0), nullptr);
    EXPECT_EQ(emu::formula::SourceOf(nullptr, 10), "");
    for (size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_EQ(emu::formula::Deserialize(bytes.data(), length), nullptr) << length;
        EXPECT_EQ(emu::formula::SourceOf(bytes.data(), length), "") << length;
    }
    std::vector<unsigned char> longer = bytes;
    longer.push_back(0);
    EXPECT_EQ(emu::formula::Deserialize(longer.data(), longer.size()), nullptr);

    Note note;
    note.Set("S", Texts({"X"})).Set("N", Numbers({2}));
    std::mt19937 random(1234);
    for (int round = 0; round < 20000; ++round) {
        std::vector<unsigned char> mutated = bytes;
        const int flips = 1 + static_cast<int>(random() % 4);
        for (int i = 0; i < flips; ++i)
            mutated[random() % mutated.size()] = static_cast<unsigned char>(random());
        ExpectConsistent(mutated, note);
    }
    for (int round = 0; round < 2000; ++round) {
        std::vector<unsigned char> noise(6 + random() % 200);
        for (auto& b : noise) b = static_cast<unsigned char>(random());
        std::copy(bytes.begin(), bytes.begin() + 6, noise.begin());  // valid magic and version
        ExpectConsistent(noise, note);
    }
}

TEST(FormulaEval, EvaluationDoesNotAllocateOnceWarm) {
    auto program = MustCompile("Form=\"dictionary\" | Form=\"entity\"");
    ASSERT_NE(program, nullptr);
    Note dictionary, entity, other;
    dictionary.Set("Form", Texts({"Dictionary"}));
    entity.Set("Form", Texts({"ENTITY"}));
    other.Set("Form", Texts({"template"}));
    const Note* notes[] = {&dictionary, &entity, &other};
    for (const Note* note : notes) emu::formula::Selects(*program, *note);  // warm up

    allocations = 0;
    countAllocations = true;
    int selected = 0;
    for (int i = 0; i < 3000; ++i) selected += emu::formula::Selects(*program, *notes[i % 3]) ? 1 : 0;
    countAllocations = false;
    EXPECT_EQ(selected, 2000);
    EXPECT_EQ(allocations, 0u);
}

}  // namespace
