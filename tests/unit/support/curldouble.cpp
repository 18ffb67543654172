#include "curldouble.h"

#include "curloptions.h"
#include "temporaryfiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <utility>

namespace voinet_test {

namespace {

/// An entry of the trace with a text longer than this shows its size and its begin.
constexpr std::size_t kLongestText = 4096;

std::string namedValue(CURLoption id, const std::string& value) {
    return optionName(id) + "=" + value;
}

std::string quoted(const std::string& text) {
    if (text.size() > kLongestText) {
        return "\"" + text.substr(0, 64) + "...\" (" + std::to_string(text.size()) +
               " bytes, hash " + std::to_string(std::hash<std::string>()(text)) + ")";
    }
    return "\"" + text + "\"";
}

std::string address(const void* pointer) {
    return pointer ? "@" + std::to_string(reinterpret_cast<std::uintptr_t>(pointer)) : "null";
}

std::string joined(const std::vector<std::string>& headers) {
    std::string text = "[";
    for (const auto& header : headers) {
        text += quoted(header);
    }
    return text + "]";
}

std::vector<std::string> contents(const curl_slist* list) {
    std::vector<std::string> texts;
    for (; list; list = list->next) {
        texts.emplace_back(list->data);
    }
    return texts;
}

}  // namespace

std::string option(CURLoption id, long number) {
    return namedValue(id, std::to_string(number));
}

std::string option(CURLoption id, const std::string& text) {
    return namedValue(id, quoted(text));
}

std::string option(CURLoption id, const char* text) {
    return namedValue(id, text ? quoted(text) : "null");
}

std::string option(CURLoption id, const void* pointer) {
    return namedValue(id, address(pointer));
}

std::string option(CURLoption id, const std::vector<std::string>& headers) {
    return namedValue(id, joined(headers));
}

std::string Request::text(CURLoption id) const {
    const auto found = texts.find(id);
    return found == texts.end() ? std::string() : found->second;
}

long Request::number(CURLoption id) const {
    const auto found = numbers.find(id);
    return found == numbers.end() ? 0 : found->second;
}

struct CurlDouble::Handle {
    Request state;
    std::map<CURLoption, void*> pointers;
    curl_slist* headers = nullptr;
    long status = 0;
    long connectCode = 0;
};

struct Reply::Transfer {
    std::map<CURLoption, void*> pointers;
    bool progressOn;
    std::string uploaded;

    template <class Function>
    Function function(CURLoption id) const {
        const auto found = pointers.find(id);
        return found == pointers.end() ? nullptr : reinterpret_cast<Function>(found->second);
    }
    void* data(CURLoption id) const {
        const auto found = pointers.find(id);
        return found == pointers.end() ? nullptr : found->second;
    }
};

Reply& Reply::result(CURLcode code) {
    m_result = code;
    return *this;
}

Reply& Reply::connectCode(long code) {
    m_connectCode = code;
    return *this;
}

Reply& Reply::header(std::string line) {
    m_steps.emplace_back([line = std::move(line)](Transfer& transfer) mutable {
        const auto receive = transfer.function<curl_write_callback>(CURLOPT_HEADERFUNCTION);
        const bool taken = !receive || receive(line.data(), 1, line.size(),
                                               transfer.data(CURLOPT_WRITEHEADER)) == line.size();
        return taken ? CURLE_OK : CURLE_WRITE_ERROR;
    });
    return *this;
}

Reply& Reply::body(std::string piece) {
    m_steps.emplace_back([piece = std::move(piece)](Transfer& transfer) mutable {
        const auto write = transfer.function<curl_write_callback>(CURLOPT_WRITEFUNCTION);
        if (!write) {
            ADD_FAILURE() << "a body arrived without a write function";
            return CURLE_WRITE_ERROR;
        }
        const auto taken = write(piece.data(), 1, piece.size(), transfer.data(CURLOPT_WRITEDATA));
        return taken == piece.size() ? CURLE_OK : CURLE_WRITE_ERROR;
    });
    return *this;
}

Reply& Reply::progress(double dlTotal, double dlNow, double ulTotal, double ulNow) {
    m_steps.emplace_back([=](Transfer& transfer) {
        const auto report = transfer.function<curl_progress_callback>(CURLOPT_PROGRESSFUNCTION);
        const bool stopped =
            report && transfer.progressOn &&
            report(transfer.data(CURLOPT_PROGRESSDATA), dlTotal, dlNow, ulTotal, ulNow) != 0;
        return stopped ? CURLE_ABORTED_BY_CALLBACK : CURLE_OK;
    });
    return *this;
}

Reply& Reply::upload(std::size_t bufferSize) {
    m_steps.emplace_back([bufferSize](Transfer& transfer) {
        const auto read = transfer.function<curl_read_callback>(CURLOPT_READFUNCTION);
        if (!read) {
            ADD_FAILURE() << "an upload without a read function";
            return CURLE_READ_ERROR;
        }
        std::string buffer(bufferSize, '\0');
        while (const auto count =
                   read(buffer.data(), 1, buffer.size(), transfer.data(CURLOPT_READDATA))) {
            if (count > buffer.size()) {
                return CURLE_ABORTED_BY_CALLBACK;
            }
            transfer.uploaded.append(buffer, 0, count);
        }
        return CURLE_OK;
    });
    return *this;
}

Reply& Reply::then(std::function<void()> hook) {
    m_steps.emplace_back([hook = std::move(hook)](Transfer&) {
        hook();
        return CURLE_OK;
    });
    return *this;
}

Reply& Reply::before(std::function<void()> hook) {
    then(std::move(hook));
    std::rotate(m_steps.begin(), m_steps.end() - 1, m_steps.end());
    return *this;
}

Reply answer(long status) {
    return Reply(status);
}

Reply failure(CURLcode code) {
    return Reply(0).result(code);
}

CurlDouble& curlDouble() {
    static CurlDouble instance;
    return instance;
}

void CurlDouble::play(const Reply& reply) {
    m_script.push_back(reply);
}

void CurlDouble::serve(std::function<Reply(const Request&)> server) {
    m_server = std::move(server);
}

void CurlDouble::failInits(int count) {
    m_initsToFail = count;
    m_nullTolerated = true;
}

std::vector<std::string> CurlDouble::options() const {
    std::vector<std::string> result;
    for (const auto& each : m_trace) {
        if (each.rfind("CURLOPT", 0) == 0) {
            result.push_back(each);
        }
    }
    return result;
}

void CurlDouble::clearTrace() {
    m_trace.clear();
    m_requests.clear();
}

void CurlDouble::finish() {
    for (const auto& [handle, alive] : m_handles) {
        EXPECT_FALSE(alive) << "a curl handle was not cleaned up";
        delete static_cast<Handle*>(handle);
    }
    for (const auto& [list, alive] : m_lists) {
        EXPECT_FALSE(alive) << "a header was not freed: " << list->data;
        delete[] list->data;
        delete list;
    }
    EXPECT_EQ(m_script.size(), 0U) << "replies that no perform asked for";
    *this = CurlDouble();
}

CURL* CurlDouble::init() {
    if (m_initsToFail > 0) {
        --m_initsToFail;
        m_trace.emplace_back("init failed");
        return nullptr;
    }
    auto handle = std::make_unique<Handle>();
    handle->state.handle = ++m_handlesMade;
    m_handles[handle.get()] = true;
    m_trace.emplace_back("init");
    return handle.release();
}

CurlDouble::Handle* CurlDouble::find(CURL* handle, const char* caller) {
    const auto found = m_handles.find(handle);
    if (found == m_handles.end() || !found->second) {
        ADD_FAILURE() << caller << " on a handle that "
                      << (found == m_handles.end() ? "was never made" : "is gone");
        return nullptr;
    }
    return static_cast<Handle*>(handle);
}

void CurlDouble::note(Handle& handle, CURLoption id, const std::string& entry) {
    m_trace.push_back(entry);
    handle.state.options[id] = entry.substr(entry.find('=') + 1);
}

void CurlDouble::setNumber(Handle& handle, CURLoption id, long number) {
    handle.state.numbers[id] = number;
    note(handle, id, option(id, number));
}

void CurlDouble::setText(Handle& handle, CURLoption id, const char* text) {
    handle.state.texts[id] = text ? text : "";
    note(handle, id, option(id, text));
}

void CurlDouble::setPointer(Handle& handle, CURLoption id, void* pointer) {
    handle.pointers[id] = pointer;
    note(handle, id, option(id, static_cast<const void*>(pointer)));
}

void CurlDouble::setList(Handle& handle, CURLoption id, curl_slist* list) {
    handle.headers = list;
    handle.state.headers = contents(list);
    note(handle, id, option(id, handle.state.headers));
}

CURLcode CurlDouble::refuseNull(CURLoption id) {
    EXPECT_TRUE(m_nullTolerated) << optionName(id) << " was set on a null handle";
    return CURLE_BAD_FUNCTION_ARGUMENT;
}

Reply CurlDouble::nextReply(const Request& request) {
    if (!m_script.empty()) {
        auto reply = m_script.front();
        m_script.pop_front();
        return reply;
    }
    if (m_server) {
        return m_server(request);
    }
    ADD_FAILURE() << "no reply is left for " << request.text(CURLOPT_URL);
    return failure(CURLE_GOT_NOTHING);
}

CURLcode CurlDouble::perform(CURL* pointer) {
    noteTemporaryFiles();
    if (!pointer) {
        m_trace.emplace_back("perform null");
        m_requests.emplace_back();
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    auto* handle = find(pointer, "curl_easy_perform");
    if (!handle) {
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    const auto list = m_lists.find(handle->headers);
    EXPECT_TRUE(!handle->headers || (list != m_lists.end() && list->second))
        << "curl_easy_perform with headers that are gone";
    m_trace.emplace_back("perform");
    m_requests.push_back(handle->state);
    return run(*handle, m_requests.size() - 1, nextReply(handle->state));
}

CURLcode CurlDouble::run(Handle& handle, std::size_t request, const Reply& reply) {
    Reply::Transfer transfer{
        handle.pointers,
        handle.state.has(CURLOPT_NOPROGRESS) && handle.state.number(CURLOPT_NOPROGRESS) == 0,
        std::string()};
    handle.status = reply.m_status;
    handle.connectCode = reply.m_connectCode;
    auto result = CURLE_OK;
    for (const auto& step : reply.m_steps) {
        result = step(transfer);
        if (result != CURLE_OK) {
            break;
        }
    }
    if (request < m_requests.size()) {
        m_requests[request].uploaded = transfer.uploaded;
    }
    return result != CURLE_OK ? result : reply.m_result;
}

CURLcode CurlDouble::getinfo(CURL* pointer, CURLINFO info, long* value) {
    if (!pointer) {
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    auto* handle = find(pointer, "curl_easy_getinfo");
    if (!handle) {
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    if (info == CURLINFO_RESPONSE_CODE) {
        m_trace.emplace_back("getinfo RESPONSE_CODE");
        *value = handle->status;
        return CURLE_OK;
    }
    if (info == CURLINFO_HTTP_CONNECTCODE) {
        m_trace.emplace_back("getinfo HTTP_CONNECTCODE");
        *value = handle->connectCode;
        return CURLE_OK;
    }
    // Facts for a monitor: this libcurl has none of them.
    m_trace.push_back("getinfo " + std::to_string(static_cast<int>(info)));
    return CURLE_UNKNOWN_OPTION;
}

void CurlDouble::cleanup(CURL* handle) {
    if (handle && find(handle, "curl_easy_cleanup")) {
        m_handles[handle] = false;
        m_trace.emplace_back("cleanup");
    }
}

curl_slist* CurlDouble::append(curl_slist* list, const char* text) {
    const std::string copy(text);
    auto* node = new curl_slist{new char[copy.size() + 1], nullptr};
    copy.copy(node->data, copy.size());
    node->data[copy.size()] = '\0';
    m_lists[node] = true;
    m_trace.push_back("header " + copy);
    if (!list) {
        return node;
    }
    auto* last = list;
    while (last->next) {
        last = last->next;
    }
    last->next = node;
    return list;
}

void CurlDouble::freeList(curl_slist* list) {
    if (list) {
        m_trace.emplace_back("headers freed");
    }
    for (; list; list = list->next) {
        const auto found = m_lists.find(list);
        if (found == m_lists.end()) {
            ADD_FAILURE() << "a header list was freed that was never made";
            return;
        }
        EXPECT_TRUE(found->second) << "a header was freed twice: " << list->data;
        found->second = false;
    }
}

}  // namespace voinet_test

// The functions that libvoinet calls. libcurl's header wraps some of them in macros for C.

using voinet_test::curlDouble;
using voinet_test::OptionType;

extern "C" {

CURL* curl_easy_init() {
    return curlDouble().init();
}

CURLcode curl_easy_setopt(CURL* pointer, CURLoption id, ...) {
    if (!pointer) {
        return curlDouble().refuseNull(id);
    }
    auto* handle = curlDouble().find(pointer, "curl_easy_setopt");
    if (!handle) {
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    va_list arguments;
    va_start(arguments, id);
    switch (voinet_test::optionType(id)) {
        case OptionType::number:
            curlDouble().setNumber(*handle, id, va_arg(arguments, long));
            break;
        case OptionType::offset:
            curlDouble().setNumber(*handle, id, static_cast<long>(va_arg(arguments, curl_off_t)));
            break;
        case OptionType::text:
            curlDouble().setText(*handle, id, va_arg(arguments, const char*));
            break;
        case OptionType::list:
            curlDouble().setList(*handle, id, va_arg(arguments, curl_slist*));
            break;
        case OptionType::function: {
            using Function = void (*)();
            curlDouble().setPointer(*handle, id,
                                    reinterpret_cast<void*>(va_arg(arguments, Function)));
            break;
        }
        case OptionType::pointer:
            curlDouble().setPointer(*handle, id, va_arg(arguments, void*));
            break;
    }
    va_end(arguments);
    return CURLE_OK;
}

CURLcode curl_easy_perform(CURL* handle) {
    return curlDouble().perform(handle);
}

CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
    va_list arguments;
    va_start(arguments, info);
    auto* value = va_arg(arguments, long*);
    va_end(arguments);
    return curlDouble().getinfo(handle, info, value);
}

void curl_easy_cleanup(CURL* handle) {
    curlDouble().cleanup(handle);
}

curl_slist* curl_slist_append(curl_slist* list, const char* text) {
    return curlDouble().append(list, text);
}

void curl_slist_free_all(curl_slist* list) {
    curlDouble().freeList(list);
}
}
