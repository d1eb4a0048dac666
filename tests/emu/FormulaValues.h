// Values and item names as the formula tests build them.
#ifndef TESTS_EMU_FORMULAVALUES_H
#define TESTS_EMU_FORMULAVALUES_H

#include <string>
#include <utility>
#include <vector>

#include "Formula.h"

namespace formula_test {

inline emu::formula::Value Texts(std::vector<std::string> texts) {
    emu::formula::Value v;
    v.kind = emu::formula::Value::Kind::Text;
    v.texts = std::move(texts);
    return v;
}

inline emu::formula::Value Numbers(std::vector<double> numbers) {
    emu::formula::Value v;
    v.kind = emu::formula::Value::Kind::Number;
    v.numbers = std::move(numbers);
    return v;
}

// Item names are matched case-blind: the tests' notes key them in upper case.
inline std::string Upper(std::string s) {
    for (char& c : s) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return s;
}

}  // namespace formula_test

#endif
