#pragma once

#include "proof/Faults_World.h"

#include <functional>
#include <vector>

namespace kx::proof {

using Values = std::vector<test::Value>;

/// One call of a built-in, with all that it needs to get deep into its work.
struct Row {
    const char* name;                       ///< the built-in's
    const char* variant;                    ///< what of it is tried
    std::function<Values(World&)> prepare;  ///< makes what the call needs; gives its arguments

    enum Kind {
        ordinary,
        noLibrary,  ///< the libraries' own allocations do not fail: json-c cannot bear it
        leaking,    ///< json-c or libzip leaves a block of its own behind where its allocations fail
        inArchive,  ///< the bundle is an archive; libzip does so too
        http,
    };
    Kind kind = ordinary;
};

/// Arguments that need nothing prepared.
inline std::function<Values(World&)> Plain(Values arguments) {
    return [arguments = std::move(arguments)](World&) { return arguments; };
}

std::vector<Row> FileRows();
std::vector<Row> NameRows();
std::vector<Row> DataRows();
std::vector<Row> HttpRows();

}  // namespace kx::proof
