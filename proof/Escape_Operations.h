#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kx::proof {

/// What came of a name that was given to a built-in.
struct Outcome {
    bool found = false;     ///< something was there: a file, a directory, a text
    bool made = false;      ///< something was made, changed or removed, as the built-in tells it
    bool late = false;      ///< no answer has come in time
    std::string text = {};  ///< everything that was read, and every text that was returned
};

/// A built-in that takes a name, called with it and used until it is done.
struct Operation {
    std::string name;
    bool onlyReads;  ///< what the name means stays as it is
    std::function<Outcome(const std::string& hostile)> run;
};

/// Every built-in that takes a name, in each place for one and each mode.
/// @param url  what downloads ask for.
std::vector<Operation> NameOperations(const std::string& url);

/// Closes what the built-ins keep open and clears what they have made, errors included.
void ResetBuiltIns();

}  // namespace kx::proof
