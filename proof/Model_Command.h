#pragma once

#include <string>
#include <vector>

namespace kx::proof {

/// An argument of a built-in.
struct Argument {
    Argument(const char* words) : text(words), isText(true) {}  // NOLINT: commands are written as scripts are
    Argument(std::string words) : text(std::move(words)), isText(true) {}  // NOLINT
    Argument(double number) : real(number) {}                              // NOLINT
    Argument(int number) : real(number) {}                                 // NOLINT

    std::string text = {};
    double real = 0;
    bool isText = false;
};

/// A call that a script makes. The host's own steps have names in capitals, which no built-in has.
struct Command {
    std::string name;
    std::vector<Argument> arguments = {};
};

constexpr char kShutdown[] = "SHUTDOWN";  ///< open files are written back, their handles stay
constexpr char kFinalize[] = "FINALIZE";  ///< binary files are closed
constexpr char kDiscard[] = "DISCARD";    ///< the script has failed: what it was writing anew is given up

/// A number that scripts write, with the texts that files then hold.
struct WrittenNumber {
    double value;
    const char* inTextFile;
    const char* inIni;
};
constexpr WrittenNumber kWrittenNumbers[] = {
    {0, "0 ", "0.000000"},
    {1.5, "1.5 ", "1.500000"},
    {-2, "-2 ", "-2.000000"},
    {1e6, "1e+06 ", "1000000.000000"},
    {123456789, "1.23457e+08 ", "123456789.000000"},
    {0.1, "0.1 ", "0.100000"},
    {1e-5, "1e-05 ", "0.000010"},
};

/// The same, by its value.
const WrittenNumber& TextsOf(double number);

/// What a script sees of a call: its result, and the error that was raised.
struct Answer {
    double real = 0;
    std::string text = {};
    bool isText = false;
    std::string error = {};

    static Answer Unset(std::string error = "");
    static Answer Real(double value, std::string error = "") { return {value, "", false, std::move(error)}; }
    static Answer Text(std::string value) { return {0, std::move(value), true, ""}; }

    [[nodiscard]] bool operator==(const Answer& other) const;
};

/// Both as a person reads them.
std::string Shown(const Command& command);
std::string Shown(const Answer& answer);

/// Makes the call.
Answer Perform(const Command& command);

}  // namespace kx::proof
