// Calls as scripts make them.
#include "proof/Model_Command.h"

#include "Files/Function/Function_File.h"
#include "Files/IO/LoadSave.h"
#include "tests/support/BuiltIn.h"
#include "tests/support/Console.h"

#include <algorithm>
#include <iterator>

namespace kx::proof {
namespace {

std::string Quoted(const std::string& text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    constexpr size_t kMost = 200;
    std::string shown = "\"";
    for (char c : text.substr(0, kMost)) {
        auto byte = static_cast<unsigned char>(c);
        bool plain = byte >= ' ' && byte < 0x7F;
        shown += plain ? std::string(1, c) : std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 15];
    }
    return shown + "\"";
}

std::string Number(double value) {
    auto whole = static_cast<long long>(value);
    return static_cast<double>(whole) == value ? std::to_string(whole) : std::to_string(value);
}

/// @return false for a built-in.
bool PerformStep(const std::string& name) {
    if (name == kShutdown) {
        LoadSave::Shutdown();
    } else if (name == kDiscard) {
        LoadSave::DiscardUnfinished();
    } else if (name == kFinalize) {
        FINALIZE_Function_File();
        InitBinFiles();
    } else {
        return false;
    }
    return true;
}

}  // namespace

const WrittenNumber& TextsOf(double number) {
    return *std::find_if(std::begin(kWrittenNumbers), std::end(kWrittenNumbers),
                         [number](const WrittenNumber& each) { return each.value == number; });
}

Answer Answer::Unset(std::string error) {
    return Real(test::kUnset, std::move(error));
}

bool Answer::operator==(const Answer& other) const {
    bool same = isText ? text == other.text : real == other.real;
    return isText == other.isText && same && error == other.error;
}

std::string Shown(const Command& command) {
    std::string shown = command.name + "(";
    for (const Argument& argument : command.arguments) {
        if (&argument != &command.arguments.front()) shown += ", ";
        shown += argument.isText ? Quoted(argument.text) : Number(argument.real);
    }
    return shown + ")";
}

std::string Shown(const Answer& answer) {
    std::string shown = answer.isText ? Quoted(answer.text) : Number(answer.real);
    if (!answer.isText && answer.real == test::kUnset) shown = "nothing";
    return answer.error.empty() ? shown : shown + " and the error " + Quoted(answer.error);
}

Answer Perform(const Command& command) {
    if (PerformStep(command.name)) return Answer::Unset(test::TakeError());
    std::vector<test::Value> arguments;
    for (const Argument& argument : command.arguments) {
        arguments.push_back(argument.isText ? test::Value(argument.text) : test::Value(argument.real));
    }
    test::Value result = test::Call(command.name.c_str(), arguments);
    Answer answer;
    answer.isText = result.Kind() == VALUE_STRING;
    if (answer.isText) {
        answer.text = result.Text();
    } else {
        answer.real = result.Real();
    }
    answer.error = test::TakeError();
    return answer;
}

}  // namespace kx::proof
