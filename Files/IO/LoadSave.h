#pragma once

#include "Files/Base/Limits.h"
#include "Files/Buffer/Buffer_Standard.h"
#include "Platform/Platform_File.h"

#include <cstdint>
#include <cstdio>

/// Files as scripts see them: two areas and virtual files.
///
/// A script's file name is never opened as it stands. It is a name in one of two areas: the save area, which is
/// writable and belongs to the player, and the bundle area, which holds what the game ships and is never changed.
/// In a name "\" counts as "/", "." drops out, ".." steps back. Whatever would leave its area, by ".." or by a link, is
/// refused, and so are names that are empty or only blanks, hold control characters or are not UTF-8. A full path
/// is a name too when it lies inside the area.
///
/// A virtual file is opened by reading it whole into memory, and written by replacing it whole when it is closed:
/// until then the file on disk is as it was, and at every instant it is whole.
///
///     _KXFILE* file = LoadSave::fopen("scores/best.txt", "w");   // makes scores/ in the save area
///     if (!file) return;                                         // no such place, or no permission
///     LoadSave::fputs(file, "1200\n");
///     LoadSave::fclose(file);                                    // on the disk now, or KXError says why not
///
/// Wrong: opening a path that the module resolved with the standard fopen for writing. It cuts the old file first.

struct ASYNC_SAVE_LOAD_REQ_CONTEXT;

/// A virtual file.
struct _KXFILE {
    Buffer_Standard* pBuff = nullptr;  ///< the contents; owned
    bool isText = false;
    char* pName = nullptr;   ///< full path that it is written back to, host memory; null where there is none
    bool writeBack = false;  ///< open for writing

    // What the host adds. The module neither sets nor reads it.
    bool append = false;   ///< every write goes to the end, and a failed script's file is written back all the same
    bool changed = false;  ///< differs from the file on disk
    bool created = false;  ///< made, empty, by the open
    _KXFILE* previous = nullptr;
    _KXFILE* next = nullptr;
};
typedef _KXFILE* HKXFILE;

/// An HTTP request, as its completion callback finds it. The host owns it and what it points to, but the user data.
struct HTTP_REQ_CONTEXT {
    const char* m_response;  ///< m_responseLength bytes, no terminator; null after a failure, never for an answer
    void* m_userData;        ///< the caller's
    const char* m_url;       ///< as it was given
    int m_id;
    int m_status;           ///< of the last answer whose status line came; 0 where none has
    int m_responseHeaders;  ///< index of a map: names in lower case, texts, those of one name joined by ", "
    int m_responseLength;

    // What the host adds: its list, newest first.
    HTTP_REQ_CONTEXT* m_next;
    HTTP_REQ_CONTEXT* m_previous;
};

/// Called once for each request, when it has ended, on the transport's thread, which does nothing else meanwhile.
/// @param map  set to the index of the event's map, which the event then owns; -1 before.
/// @return the type of the event to post.
typedef int (*HTTP_COMPLETION)(HTTP_REQ_CONTEXT* context, void* unused, int* map);

/// Called after the completion callback, to release the user data; null for none.
typedef void (*HTTP_CLEANUP)(HTTP_REQ_CONTEXT* context);

/// Head of the host's list of HTTP requests whose events have not been taken, for debuggers. The host does not depend
/// on it.
extern HTTP_REQ_CONTEXT* g_pHttpHead;

/// The id of the next request. The host advances it.
extern int g_HTTP_ID;

/// Set by the first request that a script asks for: before that the host need not look for events.
extern bool g_fHttpOutput;

/// An asynchronous event.
struct ASYNC_EVENT {
    int m_type;     ///< what the completion callback returned, EVENT_OTHER_WEB_ASYNC from the module's
    int m_map;      ///< what it stored: the index of the event's map; -1 where there was no memory for one
    int m_headers;  ///< index of the map of the answer's header fields; -1 where there was no memory for one
    int m_request;  ///< the id

    // What the host adds: whether the two maps are still those.
    uint64_t m_mapSerial;
    uint64_t m_headersSerial;
};

constexpr int EVENT_OTHER_WEB_ASYNC = 62;

namespace kx {

/// What requests may take. Milliseconds, 0 for no limit.
struct HttpOptions {
    int connect = 30 * 1000;               ///< from the start to the end of the TLS handshake
    int stall = 60 * 1000;                 ///< in which fewer than kx::kMinHttpProgress bytes come or go
    int total = 0;                         ///< from the start, redirects included; waiting for a turn does not count
    int responseBytes = kMaxHttpResponse;  ///< after decompression
    int redirects = 10;
    int connectionsPerHost = 16;
};

/// How far the requests in flight are.
struct HttpProgress {
    int requests;
    long long received;  ///< bytes of their bodies so far, before decompression
    long long expected;  ///< bytes of their bodies in all; -1 where a length is not known
    long long ever;      ///< bytes of all bodies since the start
};

}  // namespace kx

/// Static operations only.
/// Handles may be null everywhere: a null file is at its end, takes nothing and gives nothing.
/// @thread areas are set while nothing else runs; fopen, fclose and the whole-file operations on any thread; one file's
///         own operations on one thread at a time.
class LoadSave {
public:
    // --- the areas -------------------------------------------------------------------------------------------------

    /// Makes a directory, which is created when missing, the save area, and removes what killed writers left there.
    /// @return 0 or an errno value, the area is then as it was: EINVAL for none, and for a path that holds a backslash
    ///         (the module cuts paths at the last one), EBUSY while files are open for writing.
    static int SetSaveArea(const char* directory);

    /// Makes a directory or a zip archive the bundle area. Full paths in an archive are its own path, "/" and the
    /// entry's name; only the host can open them, not the system. The archive may be replaced while it is the bundle,
    /// but not written to.
    /// @return 0 or an errno value; the area is then as it was. EINVAL, with a line on dbg_csol that says what is wrong
    ///         with it, for a file that is no archive or one that cannot be used whole.
    static int SetBundleArea(const char* directoryOrZip);

    /// @return true when the name is a regular file of the area.
    static bool SaveFileExists(const char* name);
    static bool BundleFileExists(const char* name);

    /// Writes a name's full path in the area, whether anything is there or not.
    /// @param out   at least 1 byte; empty where the name is refused.
    /// @param size  bytes at `out`, terminator included; a path is never cut, a longer one is refused.
    /// @return 0; an errno value for a refused name, with a line on dbg_csol that says why; ENOENT, without a word, for
    ///         the full path of something in the other area, and where there is no bundle area.
    static int _GetSaveFileName(char* out, int size, const char* name);
    static int _GetBundleFileName(char* out, int size, const char* name);

    // --- whole files -----------------------------------------------------------------------------------------------

    /// Deletes a regular file or a link of the save area.
    /// @return 1, or 0 where there is none or it cannot be deleted.
    static int RemoveSaveFile(const char* name);

    /// Gives a file of the save area another name there, in one step; a file that has the name is replaced. No
    /// directories are made.
    /// @return 0; -1, with errno set, where nothing was renamed: EBUSY, with a line on dbg_csol, for a file open for
    ///         writing. What it will hold is not on the disk before its close.
    static int RenameSaveFile(const char* oldPath, const char* newPath);

    /// @param size  set to the length in bytes.
    /// @return the bytes of a bundle file in host memory, a zero byte after them, or null; released with
    ///         MemoryManager::Free.
    static char* ReadBundleFile(const char* name, int* size);

    /// Replaces a whole file of the save area in one step; missing directories are made. A file of the bundle is
    /// written to the same name in the save area.
    /// @param data  `length` bytes, not kept; null, or a negative length, is a failure that touches nothing.
    /// @param ctx   reserved, null.
    /// @return 1; 0 when it failed, the old file is then as it was and a line on dbg_csol says why.
    static int WriteFile(const char* name, const char* data, int length, ASYNC_SAVE_LOAD_REQ_CONTEXT* ctx);

    // --- virtual files ---------------------------------------------------------------------------------------------

    /// Opens a virtual file.
    ///
    /// | mode              | contents                    | position | writable |
    /// |-------------------|-----------------------------|----------|----------|
    /// | "r", "rt", "rb"   | the file's; it must exist   | 0        | no       |
    /// | "w", "wb", "wb+"… | none                        | 0        | yes      |
    /// | "a+"              | the file's, or none         | the end  | yes      |
    /// | "rw"              | the file's, or none         | 0        | yes      |
    ///
    /// A relative name is looked up in the save area, then in the bundle area. Writing goes to the save area whatever
    /// the name: to the same name there for a file of the bundle. Missing directories are made, and a missing file is
    /// created at once, unless the bundle has a file of that name, which the empty one would hide until the close.
    /// @return the file, which fclose releases; null, with errno set, where it cannot be opened: ENOENT, EACCES,
    ///         EISDIR, ENXIO for what is no regular file, EFBIG beyond kx::kMaxFileBytes, EXDEV for a refused name.
    static _KXFILE* fopen(const char* path, const char* mode);

    /// Writes a changed file back and releases the handle, one that the module made with `new` too.
    /// @return 0; -1 where it could not be written: the file on disk is as it was, and KXError tells the script.
    static int fclose(_KXFILE* file);

    /// @return the next character; -256 at the end: negative, and a zero byte where it is stored as one.
    static int fgetc(_KXFILE* file) {
        if (kxfeof(file)) return kEndOfContents;
        return static_cast<unsigned char>(file->pBuff->m_data[file->pBuff->m_position++]);
    }

    /// @return true at the end of the contents.
    static bool kxfeof(_KXFILE* file) { return !file || file->pBuff->m_position >= file->pBuff->m_size; }

    /// @return true before a CR or a LF, and at the end of the contents.
    static bool kxfeoln(_KXFILE* file) {
        if (kxfeof(file)) return true;
        char next = file->pBuff->m_data[file->pBuff->m_position];
        return next == '\n' || next == '\r';
    }

    /// As many fgetc calls as it takes to read through the next LF, at most `room`, in one go.
    /// @return characters written to `out`; no terminator is added.
    static int ReadThroughLine(_KXFILE* file, char* out, int room);

    /// As many fgetc calls as it takes to stand before the next CR or LF, at most `room`, in one go.
    /// @return characters written to `out`; no terminator is added.
    static int ReadToLineEnd(_KXFILE* file, char* out, int room);

    /// Skips blanks and line ends and reads the longest decimal number there, with an optional sign; the position is
    /// then after it. Where there is none the value is 0 and the position after the blanks.
    static void freadreal(_KXFILE* file, double* value);

    /// Writes a text at the position.
    /// @return 0; -1 where the file is not open for writing or would grow past kx::kMaxFileBytes (KXError says so).
    static int fputs(_KXFILE* file, const char* text);

    /// As their namesakes of the standard library. Scripts read a byte at a time, which is all that stands here.
    static unsigned fread(void* buf, unsigned size, unsigned count, _KXFILE* file) {
        if (size != 1 || count != 1 || kxfeof(file)) return ReadItems(buf, size, count, file);
        *static_cast<char*>(buf) = file->pBuff->m_data[file->pBuff->m_position++];
        return 1;
    }
    static unsigned fwrite(const void* buf, unsigned size, unsigned count, _KXFILE* file);
    static int fseek(_KXFILE* file, long offset, int whence);
    static long ftell(_KXFILE* file);

    /// Gives up what was written to a file since its open: the close leaves the file on disk as it was. Null-safe.
    static void Abandon(_KXFILE* file);

    // --- HTTP ------------------------------------------------------------------------------------------------------
    //
    // Requests run on a thread of their own, which the first one starts. Only http and https, certificates verified
    // (the system's store, or $CURL_CA_BUNDLE, $SSL_CERT_FILE, $SSL_CERT_DIR), proxies from the usual environment
    // variables, compressed answers decoded. Up to ten redirects are followed, none from https to http; to another
    // origin only Accept*, Content-Type, User-Agent and Range go along. A request fails where the answer does not come,
    // breaks off, breaks the protocol or exceeds a limit: the callback then gets a null response of length 0, and a
    // line on dbg_csol says why. A status such as 404 is an answer.
    //
    // What is given is copied. Invalid URLs, methods and header lines are requests that fail, not errors here.
    // @throws std::bad_alloc; nothing is started then.
    // @thread script

    /// Starts a GET.
    /// @param timeout   milliseconds that it may take in all, -1 for the options' limit.
    /// @param userData  the callbacks' own; never touched here.
    static void HTTP_Get(const char* url, int timeout, HTTP_COMPLETION completion, HTTP_CLEANUP cleanup,
                         void* userData);

    /// Starts a POST of a text, as application/x-www-form-urlencoded.
    static void HTTP_Post(const char* url, const char* body, HTTP_COMPLETION completion, HTTP_CLEANUP cleanup,
                          void* userData);

    /// Starts a request.
    /// @param headers  lines "Name: value\r\n", or null. A "Content-Length" line from 0 to the body's length shortens
    ///                 the body; otherwise lines that would frame it are left out, the right one is sent.
    /// @param body     null for none.
    /// @param length   the body's bytes; -1 for a terminated text. Below that the request fails.
    static void HTTP_Request(const char* url, const char* method, const char* headers, const char* body,
                             HTTP_COMPLETION completion, HTTP_CLEANUP cleanup, void* userData, int length);

    /// For the requests that are made from now on.
    /// @return 0, or EINVAL for a number below 0, or no connection at all; the options are then as they were.
    static int SetHttpOptions(const kx::HttpOptions& options);

    /// Takes the next event of a finished request, in the order in which they finished.
    /// @param milliseconds  to wait for it; -1 for as long as it takes.
    /// @param event         set to what the caller owns then and gives back to ReleaseEvent.
    /// @return false where none has come in time, where no request is in flight, and after InterruptEvents.
    static bool NextEvent(int milliseconds, ASYNC_EVENT* event);

    /// Frees an event's map and its map of header fields, unless they have been freed already.
    static void ReleaseEvent(const ASYNC_EVENT& event);

    /// Makes the NextEvent that waits, or else the next one, return at once.
    /// @thread any, and signal handlers
    static void InterruptEvents();

    /// @return requests whose events have not been taken; whether one of an id is among them. It is found at once
    ///         where it is one of the newest or one of the oldest.
    static int RequestsInFlight();
    static bool IsInFlight(int request);

    /// @thread any
    static kx::HttpProgress Progress();

    // --- the end ---------------------------------------------------------------------------------------------------

    /// Whether replaced files are on the disk when a close returns (the default), or only whole.
    static void SetDurability(kx::Durability durability);

    /// For a script that failed: what it had open for writing anew will not replace what is on disk. Each such file is
    /// named on dbg_csol. Files open for appending are still written back.
    static void DiscardUnfinished();

    /// Ends the requests in flight, each as one that failed, frees the events that nobody has taken, and writes back
    /// every virtual file that is still open for writing; KXError names each that fails. Handles stay valid for fclose,
    /// which then writes nothing.
    static void Shutdown();

private:
    static unsigned ReadItems(void* buf, unsigned size, unsigned count, _KXFILE* file);

    static constexpr int kEndOfContents = -256;
};

/// Opens a file of the areas as a stream of the standard library, whose fread, fwrite and fclose work on it; for files
/// that are too large for memory.
/// @param path  full path, as the resolvers write it.
/// @param mode  "rb": the file of either area, where the system itself can open it. "wb": a file of the save area; its
///              directory has to be there. What "wb" writes takes the file's place in one step at the close: until
///              then, and where that fails, the file is as it was, and a line on dbg_csol says why.
/// @return null, with errno set, where it cannot be opened; an empty path cannot.
/// @thread any; one stream on one thread at a time
FILE* KXOpenStream(const char* path, const char* mode);

/// Gives up what a stream of KXOpenStream has written: the close leaves the file as it was.
void KXAbandonStream(FILE* stream);

/// Closes what a file slot holds: a virtual file or a stream of the standard library, whichever the pointer is.
/// @return 0, or -1 where something could not be written. Null-safe.
int KXCloseStream(FILE* stream);
