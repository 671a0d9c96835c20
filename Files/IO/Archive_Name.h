#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Names of entries in an archive.
/// @thread any
namespace kx {

/// The name of an entry that does not say that it is UTF-8: what its Unicode extra field says, where that is for this
/// name; else the name itself, as UTF-8 where it is that, else in code page 437.
/// @param unicodeName  the extra field's data, empty for none.
/// @return nothing where the name can stand as it is.
std::optional<std::string> DecodeArchiveName(std::string_view raw, std::string_view unicodeName);

/// The place of an entry below where it goes, by its name alone: "\" counts as "/", a last separator is dropped.
/// @param fault  set to what is wrong with a name that means no place below, as the end of a sentence.
std::optional<std::string> PlaceOfEntry(std::string_view name, const char** fault);

/// @return `entry "NAME" WHAT`, the name fit to be read.
std::string FaultOfEntry(std::string_view name, std::string_view what);

}  // namespace kx
