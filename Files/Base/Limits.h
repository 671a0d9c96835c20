#pragma once

#include <climits>
#include <cstdint>

/// Every limit of the host and of the runner, with its unit. A limit that is not here does not exist.
namespace kx {

/// Full paths, bytes with the terminator: the size of the buffers that the module resolves names into.
constexpr int kMaxPath = 1024;

/// Full paths where the module leaves them more room, bytes with the terminator: deleting and renaming.
constexpr int kMaxLongPath = 2048;

/// A virtual file's contents, bytes. Positions and sizes reach scripts as 32-bit numbers.
constexpr int kMaxFileBytes = INT_MAX - 1;

/// The program's parameters, the script's own name included.
constexpr int kMaxParameters = 100;

/// Arguments of one call of a built-in.
constexpr int kMaxCallArguments = 16;

/// Maps, lists, grids or buffers at a time, for each of the four: the room that their tables reserve.
constexpr int kMaxContainers = sizeof(void*) > 4 ? 1 << 24 : 1 << 20;

/// Containers inside one another that one walk over a value follows before it gives up.
constexpr int kMaxNesting = 4096;

/// Blanks that a new line of an INI file takes over from the line before it, bytes.
constexpr int kMaxIniIndent = 64;

/// What json-c may need for the tree of one text, bytes, reckoned high: 70 MB or more of an ordinary save's text on
/// 64-bit targets.
constexpr unsigned long long kMaxJsonBytes = sizeof(void*) > 4 ? 1ull << 31 : 1ull << 29;

/// JSON text that is written, and each string and name in it, bytes: json-c's buffer of 31 bits holds twice as much
/// with what it keeps free.
constexpr unsigned int kMaxJsonText = (1u << 30) - 64;

/// Tables inside one another that cross between Lua and a built-in.
constexpr int kMaxTableNesting = 200;

/// The body of an HTTP answer after decompression, bytes: more than any game's data file, less than the address space
/// of a 32-bit target.
constexpr int kMaxHttpResponse = 256 << 20;

/// The header of an HTTP answer with all its redirects and interim answers: fields, and bytes.
constexpr int kMaxHttpHeaders = 2000;
constexpr int kMaxHttpHeaderBytes = 256 << 10;

/// What a request may ask with, bytes: the method, the URL, and all header lines. Servers accept less.
constexpr int kMaxHttpMethod = 64;
constexpr int kMaxHttpUrl = 64 << 10;
constexpr int kMaxHttpRequestHeaderBytes = 256 << 10;

/// Bytes that an HTTP transfer has to get on within the time of a stall.
constexpr int kMinHttpProgress = 1024;

/// Awaits inside one another, in handlers of events, that handle other events meanwhile: Lua has room for some 200.
constexpr int kMaxNestedAwaits = 16;

/// HTTP transfers at a time; the rest wait for their turn.
constexpr int kMaxHttpTransfers = 64;

/// What an archive may hold: entries, and as many directories above them; bytes of its own directory; bytes of all
/// files once they are unpacked.
constexpr int kMaxArchiveEntries = 100'000;
constexpr int kMaxArchiveDirectory = 64 << 20;
constexpr unsigned long long kMaxArchiveBytes = 4ull << 30;

/// A file in an archive whose compression looks back as far as it likes, bytes: that much memory may be needed for it.
constexpr unsigned long long kMaxArchiveWindow = 64 << 20;

/// A CSV file, bytes. Where it is nothing but separators its cells take eight times as much besides.
constexpr int kMaxCsvBytes = 128 << 20;

/// Cells of a CSV file beyond one for each of its bytes: those that fill up its shorter rows. A few kilobytes could
/// otherwise be a grid that no script gets to the end of.
constexpr uint64_t kMaxFilledCells = 1 << 22;

/// Times that one system call is taken up again after a passing failure (a path that was renamed under it).
constexpr int kMaxRetries = 64;

}  // namespace kx
