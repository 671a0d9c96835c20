// HTTP: starting requests, and what becomes of their answers: text, bytes in a buffer, or a file of the save area.
//
// | built-in         | body sent        | answer                              | callback                  |
// |------------------|------------------|-------------------------------------|---------------------------|
// | http_get         | none             | text                                | HttpRequestCallback       |
// | http_post_string | text             | text                                | HttpRequestCallback       |
// | http_get_file    | none             | file                                | HttpGetFileCallback       |
// | http_request     | text or buffer   | text                                | HttpRequestCallback       |
// |                  | none: the buffer | bytes, from the buffer's position   | HttpBufferRequestCallback |
// |                  | is empty         |                                     |                           |
//
// The callbacks run on the transport's thread.
#include "Files/Code/Code_Error.h"
#include "Files/Function/Function_File_Internal.h"
#include "Files/Support/Support_Data_Structures.h"
#include "Platform/MemoryManager.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr int EMPTY_HEADERS_LINE = 2083;
constexpr int HEADERS_LINE = 2119;
constexpr int RESULT_LINE = 2153;
constexpr int FILE_NAME_LINE = 2308;

constexpr char CONTENT_LENGTH[] = "Content-Length";
constexpr size_t LENGTH_DIGITS = 11;  // of any int

constexpr double DONE = 0;
constexpr double FAILED = -1;

/// Host memory with anything in it.
char* AllocateText(size_t size, int line) {
    if (size > INT_MAX) throw std::bad_alloc();
    return static_cast<char*>(MemoryManager::Alloc(static_cast<unsigned int>(size), MODULE_SOURCE, line, false));
}

char* AllocateEmptyText(size_t size, int line) {
    char* text = AllocateText(size, line);
    *text = 0;
    return text;
}

// --- completion -----------------------------------------------------------------------------------------------------

/// A reference to a request's buffer, released at the end unless it has been handed on.
class BufferReference {
public:
    explicit BufferReference(IBuffer* buffer) : m_buffer(buffer) {}
    BufferReference(const BufferReference&) = delete;
    BufferReference& operator=(const BufferReference&) = delete;
    ~BufferReference() {
        if (m_buffer) m_buffer->DecRefCount();
    }

    void HandOn() { m_buffer = nullptr; }

private:
    IBuffer* m_buffer;
};

double StatusOf(const HTTP_REQ_CONTEXT* context) {
    return context->m_responseLength > 0 ? DONE : FAILED;
}

/// The event of an answer that is a text.
int CreateTextMap(const HTTP_REQ_CONTEXT* context, const char* result, double status) {
    return CreateDsMap(6, "id", static_cast<double>(context->m_id), nullptr,  //
                       "url", 0.0, context->m_url,                            //
                       "result", 0.0, result,                                 //
                       "http_status", static_cast<double>(context->m_status), nullptr, "response_headers",
                       static_cast<double>(context->m_responseHeaders), nullptr,  //
                       "status", status, nullptr);
}

int HttpRequestCallback(HTTP_REQ_CONTEXT* _pContext, void*, int* _pMap) {
    HostText userData(static_cast<char*>(_pContext->m_userData));
    auto length = static_cast<size_t>(std::max(_pContext->m_responseLength, 0));
    HostText pResultString(AllocateText(length + 1, RESULT_LINE));
    pResultString.text[length] = 0;
    if (length) std::memcpy(pResultString.text, _pContext->m_response, length);
    *_pMap = CreateTextMap(_pContext, pResultString.text, StatusOf(_pContext));
    return EVENT_OTHER_WEB_ASYNC;
}

int HttpBufferRequestCallback(HTTP_REQ_CONTEXT* _pContext, void*, int* _pMap) {
    DS_AutoMutex lock;
    auto* pBuffer = static_cast<IBuffer*>(_pContext->m_userData);
    BufferReference reference(pBuffer);
    int pos = IBuffer::CopyMemoryToBuffer(pBuffer, reinterpret_cast<const unsigned char*>(_pContext->m_response),
                                          _pContext->m_responseLength, 0, -1, pBuffer->m_position, true, false, false);
    pBuffer->Seek(eBuffer_Start, pos);
    double resultValue = pBuffer->m_position;
    double length = _pContext->m_responseLength;
    *_pMap =
        CreateDsMap(8, "id", static_cast<double>(_pContext->m_id), nullptr,  //
                    "url", 0.0, _pContext->m_url,                            //
                    "result", resultValue, nullptr,                          //
                    "http_status", static_cast<double>(_pContext->m_status), nullptr, "response_headers",
                    static_cast<double>(_pContext->m_responseHeaders), nullptr, "contentLength", length, nullptr,  //
                    "sizeDownloaded", length, nullptr,                                                             //
                    "status", StatusOf(_pContext), nullptr);
    return EVENT_OTHER_WEB_ASYNC;
}

int HttpGetFileCallback(HTTP_REQ_CONTEXT* _pContext, void*, int* _pMap) {
    HostText fileName(static_cast<char*>(_pContext->m_userData));
    int success = LoadSave::WriteFile(fileName.text, _pContext->m_response, _pContext->m_responseLength, nullptr);
    *_pMap = CreateTextMap(_pContext, fileName.text, success ? DONE : FAILED);
    return EVENT_OTHER_WEB_ASYNC;
}

// --- starting -------------------------------------------------------------------------------------------------------

bool IsHttpUrl(const char* url) {
    return url && (std::strncmp(url, "http://", 7) == 0 || std::strncmp(url, "https://", 8) == 0);
}

/// An entry of a header map as texts; what has none is empty.
struct HeaderEntry {
    explicit HeaderEntry(const MapStore& entry) : pKeyStr(TextOf(entry.key)), pValStr(TextOf(entry.value)) {
        bool isString = (entry.key.kind & KIND_MASK) == VALUE_STRING;
        isContentLength = isString && std::strcmp(pKeyStr, CONTENT_LENGTH) == 0;
    }

    static const char* TextOf(const RValue& value) {
        const char* text = KXGetString(&value, 0);
        return text ? text : "";
    }

    const char* pKeyStr;
    const char* pValStr;
    bool isContentLength;
};

/// Once it stood between others, such an entry would be more lines than one.
bool BreaksLine(const HeaderEntry& entry) {
    if (!std::strpbrk(entry.pKeyStr, "\r\n") && !std::strpbrk(entry.pValStr, "\r\n")) return false;
    dbg_csol->Output("http_request: a header holds a line break: %.100s\n", entry.pKeyStr);
    return true;
}

/// As atoi, which does not say what it does with a number that is none of its own.
int ReadLength(const char* text) {
    long value = std::strtol(text, nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

/// A header map as lines.
/// @param map             its index; one that names none gives an empty text.
/// @param nContentLength  the body's length, -1 for unknown. A Content-Length entry shortens it, or tells it.
/// @return host memory; null, with a line on dbg_csol, where an entry cannot be a line.
char* BuildHTTPRequestHeaders(int map, int* nContentLength) {
    constexpr char separator[] = ": ";
    constexpr char ending[] = "\r\n";
    DS_AutoMutex lock;
    const CDS_Map* headers = map >= 0 && map < mapnumb ? themaps.arr[map] : nullptr;
    if (!headers) return AllocateEmptyText(1, EMPTY_HEADERS_LINE);

    size_t strlenRequired = 1;
    for (const MapStore* store = headers->FindFirst(); store; store = headers->FindNext(&store->key)) {
        HeaderEntry entry(*store);
        if (BreaksLine(entry)) return nullptr;
        size_t valueLength = std::strlen(entry.pValStr);
        if (entry.isContentLength) {
            int proposedcontentlength = ReadLength(entry.pValStr);
            bool shorter = proposedcontentlength < *nContentLength || *nContentLength < 0;
            if (shorter) *nContentLength = proposedcontentlength;
            valueLength = std::max(valueLength, LENGTH_DIGITS);  // it is printed anew
        }
        strlenRequired += std::strlen(entry.pKeyStr) + valueLength + 4;
    }

    char* pHeaders = AllocateEmptyText(strlenRequired, HEADERS_LINE);
    size_t end = 0;
    for (const MapStore* store = headers->FindFirst(); store; store = headers->FindNext(&store->key)) {
        HeaderEntry entry(*store);
        char* line = pHeaders + end;
        size_t room = strlenRequired - end;
        int length = entry.isContentLength
                         ? std::snprintf(line, room, "%s%s%d%s", entry.pKeyStr, separator, *nContentLength, ending)
                         : std::snprintf(line, room, "%s%s%s%s", entry.pKeyStr, separator, entry.pValStr, ending);
        end += static_cast<size_t>(length);
    }
    return pHeaders;
}

/// @return the id of the request that is started next.
double NextId() {
    return g_HTTP_ID;
}

/// @return the bytes of a buffer, -1 where it is empty or none.
int SizeOfBuffer(int buffer) {
    DS_AutoMutex lock;  // an answer may be on its way into it
    const IBuffer* pBuffer = GetIBuffer(buffer);
    return pBuffer && pBuffer->m_size != 0 ? pBuffer->m_size : -1;
}

/// Starts a request whose body is a buffer's, or, where the buffer is empty, whose answer goes into it.
void RequestWithBuffer(const char* url, const char* method, const char* pHeaders, int buffer, int nContentLength) {
    DS_AutoMutex lock;
    IBuffer* pBuffer = GetIBuffer(buffer);
    if (!pBuffer) {
        LoadSave::HTTP_Request(url, method, pHeaders, nullptr, HttpRequestCallback, nullptr, nullptr, nContentLength);
    } else if (pBuffer->m_size != 0) {
        nContentLength = std::min(nContentLength, pBuffer->m_size);  // the bytes may have come since they were counted
        LoadSave::HTTP_Request(url, method, pHeaders, pBuffer->m_data, HttpRequestCallback, nullptr, nullptr,
                               nContentLength);
    } else {
        pBuffer->AddRefCount();
        BufferReference reference(pBuffer);
        LoadSave::HTTP_Request(url, method, pHeaders, nullptr, HttpBufferRequestCallback, nullptr, pBuffer, -1);
        reference.HandOn();
    }
}

}  // namespace

void F_HttpGet(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    g_fHttpOutput = true;
    const char* url = KXGetString(arg, 0);
    SetReal(result, -1);
    if (!IsHttpUrl(url)) return;
    double id = NextId();
    LoadSave::HTTP_Get(url, -1, HttpRequestCallback, nullptr, nullptr);
    SetReal(result, id);
}

void F_HttpPostString(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    g_fHttpOutput = true;
    const char* url = KXGetString(arg, 0);
    const char* body = KXGetString(arg, 1);
    SetReal(result, -1);
    if (!IsHttpUrl(url)) return;
    double id = NextId();
    LoadSave::HTTP_Post(url, body, HttpRequestCallback, nullptr, nullptr);
    SetReal(result, id);
}

void F_HttpGetFile(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    g_fHttpOutput = true;
    const char* url = KXGetString(arg, 0);
    const char* name = KXGetString(arg, 1);
    SetReal(result, -1);
    if (!IsHttpUrl(url)) return;
    char path[PATH_SIZE];
    LoadSave::_GetSaveFileName(path, PATH_SIZE, name);
    EnsureDirectoryIsCreated(path);
    size_t size = std::strlen(path) + 1;
    HostText copy(AllocateText(size, FILE_NAME_LINE));
    std::memcpy(copy.text, path, size);
    double id = NextId();
    LoadSave::HTTP_Get(url, -1, HttpGetFileCallback, nullptr, copy.text);
    copy.Release();  // the callback frees it
    SetReal(result, id);
}

void F_HttpRequest(RValue& result, CInstance*, CInstance*, int, RValue* arg) {
    g_fHttpOutput = true;
    const char* url = KXGetString(arg, 0);
    const char* method = KXGetString(arg, 1);
    int map = KXGetInt32(arg, 2);
    bool isText = (arg[3].kind & KIND_MASK) == VALUE_STRING && arg[3].str && arg[3].str->m_thing;
    const char* pString = isText ? arg[3].str->m_thing : nullptr;
    int buffer = isText ? -1 : KXGetInt32(arg, 3);
    SetReal(result, -1);

    int nContentLength = SizeOfBuffer(buffer);
    char* pHeaders = BuildHTTPRequestHeaders(map, &nContentLength);
    if (!pHeaders) return;
    if (!IsHttpUrl(url)) return;  // the headers stay behind, as they always have
    HostText headers(pHeaders);
    double id = NextId();
    if (pString) {
        LoadSave::HTTP_Request(url, method, pHeaders, pString, HttpRequestCallback, nullptr, nullptr, -1);
    } else {
        RequestWithBuffer(url, method, pHeaders, buffer, nContentLength);
    }
    SetReal(result, id);
}

void F_HttpGetRequestCrossOrigin(RValue& result, CInstance*, CInstance*, int, RValue*) {
    KXCreateString(&result, "");
}

void F_HttpSetRequestCrossOrigin(RValue&, CInstance*, CInstance*, int, RValue*) {}
