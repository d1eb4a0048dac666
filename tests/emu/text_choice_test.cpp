// Formulas that only ask whether one field is one of some texts may be decided from a peek at the
// field (FieldSource::peek) instead of its full value. Whichever way a note is decided, the answer
// must be the evaluator's.
#include <gtest/gtest.h>

#include <map>
#include <memory>
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

// A note whose items are found case-blind, offering peeks as a database core does: a single text is
// shown, anything else is left to field(). Counts both kinds of reads.
class PeekingNote : public FieldSource {
public:
    PeekingNote& Set(const std::string& name, Value value) {
        items_[Upper(name)] = std::move(value);
        return *this;
    }
    bool field(std::string_view name, Value& out) const override {
        ++reads;
        const auto found = items_.find(Upper(std::string(name)));
        if (found == items_.end()) return false;
        out = found->second;
        return true;
    }
    Peek peek(std::string_view name, std::string_view& text) const override {
        ++peeks;
        const auto found = items_.find(Upper(std::string(name)));
        if (found == items_.end()) return Peek::Absent;
        const Value& value = found->second;
        if (value.kind != Value::Kind::Text || value.texts.size() != 1) return Peek::Other;
        text = value.texts[0];
        return Peek::OneText;
    }
    mutable int reads = 0;
    mutable int peeks = 0;

private:
    std::map<std::string, Value> items_;
};

// The same note seen only through field(): every formula is evaluated in full.
class BlindNote : public FieldSource {
public:
    explicit BlindNote(const PeekingNote& note) : note_(note) {}
    bool field(std::string_view name, Value& out) const override { return note_.field(name, out); }

private:
    const PeekingNote& note_;
};

std::unique_ptr<Program> MustCompile(const std::string& source) {
    CompileError error;
    auto program = Compile(source, error);
    EXPECT_NE(program, nullptr) << source << ": " << error.message;
    return program;
}

// Form values of every kind a field can have; Subject varies too, for the formulas that read it.
// LMBCS: e-acute and E-acute (group 1), the Kelvin sign (folds to k) and "A" in the Unicode group.
std::vector<PeekingNote> VariedNotes() {
    std::vector<Value> forms = {Texts({std::string("\x14\x00\x41", 3)}),
                                Texts({"rule", "Entity"}),
                                Texts({"rule", "template"}),
                                Texts({}),
                                Numbers({5}),
                                Numbers({}),
                                Value{Value::Kind::Error, {}, {}}};
    for (const char* text :
         {"dictionary", "DICTIONARY", "Dictionary ", "dict", "entity", "EnTiTy", "", "rule", "dic\ttionary",
          "dictionary\n", "entit\x82", "ENTIT\x90", "\x14\x21\x2A", "k", "K"})
        forms.push_back(Texts({text}));
    std::vector<PeekingNote> notes;
    for (size_t i = 0; i < forms.size(); ++i) {
        PeekingNote note;
        note.Set("Form", forms[i]);
        note.Set("Subject", Texts({i % 2 ? "b" : "dictionary"}));
        notes.push_back(note);
    }
    PeekingNote noForm;
    notes.push_back(noForm);
    notes.push_back(PeekingNote().Set("Subject", Texts({"b"})));
    return notes;
}

TEST(TextChoice, EveryNoteGetsTheEvaluatorsAnswer) {
    const std::vector<std::string> formulas = {
        // The shapes a peek can decide.
        "Form = \"dictionary\" | Form = \"entity\"",
        "\"ENTITY\" = form | FORM = \"Dictionary\"",
        "Form = \"dictionary\" : \"entity\"",
        "SELECT (Form = \"dictionary\") | (Form = \"entity\" | Form = \"rule\")",
        "Form = \"\" | Form = \"k\"",
        "Form = \"entit\x82\"",
        "Form = \"\x14\x21\x2A\" | Form = \"a\"",
        "Form = \"DICTIONARY\"",
        // Near misses that must be evaluated in full.
        "Form = \"dictionary\" | Subject = \"b\"",
        "Form != \"dictionary\"",
        "Form = \"dictionary\" & Form = \"entity\"",
        "Form = \"dictionary\" | @True",
        "Form = \"dictionary\" | @False",
        "!(Form = \"dictionary\")",
        "Form = 5 | Form = \"dictionary\"",
        "@LowerCase(Form) = \"dictionary\"",
        "Form < \"e\" | Form = \"entity\"",
        "Form = Subject",
        "Form = \"dictionary\" | !@IsAvailable(Form)",
    };
    const std::vector<PeekingNote> notes = VariedNotes();
    for (const std::string& source : formulas) {
        auto program = MustCompile(source);
        ASSERT_NE(program, nullptr);
        for (size_t i = 0; i < notes.size(); ++i) {
            EXPECT_EQ(emu::formula::Selects(*program, notes[i]),
                      emu::formula::Selects(*program, BlindNote(notes[i])))
                << source << ", note " << i;
        }
    }
}

// The point of the peek: a plain text is decided without building the field's value, and only the
// common shape asks for peeks at all.
TEST(TextChoice, PlainTextsAreDecidedFromThePeekAlone) {
    auto choice = MustCompile("FORM = \"dictionary\" | \"Entity\" = form");
    ASSERT_NE(choice, nullptr);
    PeekingNote plain;
    plain.Set("Form", Texts({"ENTITY"}));
    EXPECT_TRUE(emu::formula::Selects(*choice, plain));
    EXPECT_EQ(plain.peeks, 1);
    EXPECT_EQ(plain.reads, 0);

    PeekingNote accented;
    accented.Set("Form", Texts({"ENTIT\x90"}));
    EXPECT_FALSE(emu::formula::Selects(*choice, accented));
    EXPECT_EQ(accented.reads, 1);  // not plain ASCII: evaluated in full

    PeekingNote list;
    list.Set("Form", Texts({"rule", "dictionary"}));
    EXPECT_TRUE(emu::formula::Selects(*choice, list));
    EXPECT_EQ(list.reads, 1);

    auto twoFields = MustCompile("Form = \"dictionary\" | Subject = \"dictionary\"");
    ASSERT_NE(twoFields, nullptr);
    PeekingNote note;
    note.Set("Form", Texts({"rule"})).Set("Subject", Texts({"dictionary"}));
    EXPECT_TRUE(emu::formula::Selects(*twoFields, note));
    EXPECT_EQ(note.peeks, 0);
}

// Compiled formulas kept as bytes (TYPE_FORMULA items, memory handles) are decided the same way.
TEST(TextChoice, ReadBackFormulasKeepTheShortcut) {
    auto program = MustCompile("Form = \"dictionary\" | Form = \"entity\"");
    ASSERT_NE(program, nullptr);
    const std::vector<unsigned char> bytes = emu::formula::Serialize(*program);
    auto readBack = emu::formula::Deserialize(bytes.data(), bytes.size());
    ASSERT_NE(readBack, nullptr);
    PeekingNote note;
    note.Set("Form", Texts({"Dictionary"}));
    EXPECT_TRUE(emu::formula::Selects(*readBack, note));
    EXPECT_EQ(note.reads, 0);
}

}  // namespace
