#include "voinet/callbacks.h"

#include "kvecomn/astring.h"
#include "kvecomn/log.h"
#include "requestwatch.h"
#include "voinet/cbmgr.h"

#include <algorithm>
#include <iterator>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr char kTraceModule[] = "curl";

/// Bytes shown of a body or of a TLS record.
constexpr std::size_t kShownData = 16;

struct TraceKind {
    const char* label;
    bool shownWhole;
};

/// By curl_infotype.
constexpr TraceKind kTraceKinds[] = {
    {"info", true},           // CURLINFO_TEXT
    {"rcv head", true},       // CURLINFO_HEADER_IN
    {"snd head", true},       // CURLINFO_HEADER_OUT
    {"rcv data", false},      // CURLINFO_DATA_IN
    {"snd data", false},      // CURLINFO_DATA_OUT
    {"rcv SSL data", false},  // CURLINFO_SSL_DATA_IN
    {"snd SSL data", false},  // CURLINFO_SSL_DATA_OUT
};

unsigned long bytesOf(unsigned long size, int nmemb) {
    return size * static_cast<unsigned long>(nmemb);
}

/// The back-quote is the escape character of the trace.
void appendEscaped(AString& text, unsigned char byte) {
    if (byte == '`') {
        text += "``";
    } else if (byte >= 32 && byte <= 126) {
        text += static_cast<char>(byte);
    } else {
        text += '`';
        text += AFormat(byte, "0x", 2);
    }
}

AString traceLine(const void* handle, const TraceKind& kind, const char* data, std::size_t size) {
    AString text;
    text += handle;
    text += ' ';
    text += kind.label;
    text += ' ';
    text += static_cast<unsigned long>(size);
    text += ' ';
    const std::size_t shown = kind.shownWhole ? size : std::min(size, kShownData);
    std::for_each(data, data + shown,
                  [&text](char c) { appendEscaped(text, static_cast<unsigned char>(c)); });
    return text;
}

AString unknownTraceLine(int type, std::size_t size) {
    AString text("Unknown trace: ");
    text += type;
    text += ' ';
    text += static_cast<unsigned long>(size);
    return text;
}

}  // namespace

unsigned long writeCallback(void* ptr, unsigned long size, int nmemb, void* userData) {
    const unsigned long bytes = bytesOf(size, nmemb);
    auto* manager = static_cast<CallbackManager*>(userData);
    RequestWatch* const watch = RequestWatch::current();
    if (watch != nullptr && !watch->takeBody(bytes)) {
        return 0;
    }
    if (manager == nullptr) {
        return bytes;
    }
    return watch == nullptr ? manager->WriteData(ptr, bytes)
                            : watch->writeBody(*manager, ptr, bytes);
}

unsigned long readCallback(void* ptr, unsigned long size, int nmemb, void* userData) {
    auto* manager = static_cast<CallbackManager*>(userData);
    return manager == nullptr ? 0 : manager->ReadData(ptr, bytesOf(size, nmemb));
}

int progressCallback(void* userData, double dltotal, double dlnow, double ultotal, double ulnow) {
    auto* manager = static_cast<CallbackManager*>(userData);
    RequestWatch* const watch = RequestWatch::current();
    try {
        const int stop =
            manager == nullptr ? 0 : manager->TransferProgress(dltotal, dlnow, ultotal, ulnow);
        return stop != 0 || watch == nullptr || watch->goesOn() ? stop : 1;
    } catch (...) {
        return 1;  // an exception of the caller's sink must not pass through curl
    }
}

int trace_curl(CURL* handle, curl_infotype type, char* data, std::size_t size, void* /*userData*/) {
    try {
        const int kind = static_cast<int>(type);
        const bool known = kind >= 0 && kind < static_cast<int>(std::size(kTraceKinds));
        logDetail(AString(kTraceModule), known ? traceLine(handle, kTraceKinds[kind], data, size)
                                               : unknownTraceLine(kind, size));
    } catch (...) {
        // A line that cannot be traced must not end a transfer.
    }
    return 0;
}

}  // namespace tessaro_com::pkm::voInet
