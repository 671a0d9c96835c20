#pragma once

#include "Files/Base/Limits.h"

/// The program that runs scripts: its parameters, its environment, its sandbox flag.

/// The parameters, the script's own name first. Set once at start-up, read by the script thread.
extern int g_nArgC;
extern char* g_pArgV[kx::kMaxParameters];

/// Sets the parameters.
/// @param values  `count` texts, not copied: they have to outlive the scripts.
/// @return 0; E2BIG for more than kx::kMaxParameters, which changes nothing.
/// @thread main thread, while no script runs
int SetParameters(int count, char* const* values);

/// @return a copy of an environment variable's value in host memory, which the caller frees with KXFree; null where it
///         is not set.
char* EnvironmentGetVariable(const char* name);

/// Unpacks a zip archive into a directory of the save area, which is made when missing.
///
/// The whole archive is looked at first, and refused whole where anything in it is wrong: a name that leaves the
/// directory or is no name for a file, a link or a device in the archive or on the way, two entries of one name (in
/// small or capital letters), a file that is also a directory, something encrypted or compressed in a way that the
/// library does not know, a directory that contradicts the entries, entries that share bytes, and more than
/// kx::kMaxArchiveEntries or kx::kMaxArchiveBytes. What only unpacking shows, such as a wrong checksum, ends it later:
/// each file is then whole or as it was. A file that is there is replaced in one step and keeps its permissions; new
/// ones get the default. Times are the archive's.
///
/// Formats: PKWARE's APPNOTE.TXT 6.3, zip64 and UTF-8 names included, other names in code page 437.
/// @param zipPath    full path: a file of the save area or the bundle, also one inside an archive that is the bundle.
/// @param destPath   full path of a directory of the save area.
/// @param reserved1  0, as reserved2; reserved3 null.
/// @return files written; -1, with a line on dbg_csol that names what is wrong and the entry that it is wrong with.
/// @throws std::bad_alloc; each file is then whole or as it was.
/// @thread any; two at a time into one directory: the last writer of each file wins.
int Command_Unzip(const char* zipPath, const char* destPath, int reserved1, int reserved2, char* reserved3);

namespace kx {

/// How far an extraction is. Bytes are those of the unpacked files.
struct UnzipProgress {
    const char* archive;  ///< full path
    int files;            ///< written so far
    int allFiles;
    unsigned long long bytes;  ///< written so far
    unsigned long long allBytes;
    bool over;  ///< it has ended, well or not: it is not told again
};

/// Is told after every 128 KiB and after every entry how far an extraction is, and once when it is over, on its thread.
/// @return false to end it: Command_Unzip then fails.
using UnzipObserver = bool (*)(const UnzipProgress& progress);

/// @param observer  null for none.
/// @return the one before.
/// @thread while nothing is being unpacked
UnzipObserver SetUnzipObserver(UnzipObserver observer);

}  // namespace kx

/// The host's sandbox flag. The module clears it; nothing reads it.
extern bool Secure_Mode;
