#include "voinet/FTPConnection.h"
#include "voinet/HTTPConnection.h"
#include "voinet/cbmgr.h"
#include "voinet/lnxLocalConnection.h"
#include "voinet/lnxuncconnection.h"
#include "voinet/netsessionsink.h"
#include "voinet/transfermonitor.h"
#include "voinet/voitffactory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

// Virtual operations, called as a host does that was compiled earlier: by the number of their slot
// and with the arguments that it knows. References arrive as addresses; the C++ ABI of the
// supported targets has it so.

using namespace tessaro_com::pkm::voInet;

namespace {

template <class Result, class... Arguments>
Result callSlot(const void* object, std::size_t slot, Arguments... arguments) {
    const void* const* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    Result (*operation)(const void*, Arguments...) = nullptr;
    std::memcpy(&operation, table + slot, sizeof operation);
    return operation(object, arguments...);
}

/// The slot of a virtual operation: a pointer to such a member holds one plus the slot's distance
/// from the begin of the table.
template <class Member>
std::size_t slotOf(Member member) {
    std::ptrdiff_t representation = 0;
    static_assert(sizeof member >= sizeof representation);
    std::memcpy(&representation, &member, sizeof representation);
    EXPECT_EQ(representation % 2, 1) << "not a virtual operation";
    return static_cast<std::size_t>(representation - 1) / sizeof(void*);
}

/// Its own operation gets the first slot that the base leaves free.
template <class Base>
struct OneMore : Base {
    virtual void next() {}
};

template <class Base>
std::size_t slotsOf() {
    return slotOf(&OneMore<Base>::next);
}

using Calls = std::vector<std::string>;

/// Counts how often it was freed, as far as a class can see it.
struct CountsFrees {
    static int frees;
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void* operator new(std::size_t /*size*/, void* place) { return place; }
    static void operator delete(void* memory) {
        ++frees;
        ::operator delete(memory);
    }
};
int CountsFrees::frees = 0;

std::string narrow(const std::wstring& text) {
    return {text.begin(), text.end()};
}

/// The operations of TransferItf: each notes its name and its arguments and answers a number of its
/// own.
template <class Base>
class Recording : public Base, public CountsFrees {
  public:
    using CountsFrees::operator new;
    using CountsFrees::operator delete;

    explicit Recording(Calls& calls) : m_calls(calls) {}
    ~Recording() override { note("destroyed"); }

    bool CheckOptions() const override {
        note("CheckOptions");
        return true;
    }
    voInetError DownloadFile(const std::wstring& local, const std::wstring& remote,
                             CNetSessionSink* sink, long* offset, bool& resume,
                             const bool& useCache) override {
        note("DownloadFile " + narrow(local) + narrow(remote) +
             (sink == nullptr ? " no sink " : " ") + std::to_string(*offset) +
             (useCache ? " cached" : ""));
        resume = true;
        return voInetErrorTimeout;
    }
    voInetError UploadFile(const std::wstring& source, const std::wstring& destination,
                           CNetSessionSink* /*sink*/) override {
        note("UploadFile " + narrow(source) + narrow(destination));
        return voInetErrorCaCert;
    }
    voInetError UploadFileResponse(const std::wstring& request, const std::wstring& path,
                                   const std::wstring& response,
                                   CNetSessionSink* /*sink*/) override {
        note("UploadFileResponse " + narrow(request) + narrow(path) + narrow(response));
        return voInetErrorNoPackage;
    }
    voInetError Logon(bool useTimeout, unsigned int seconds) override {
        note("Logon " + std::to_string(seconds) + (useTimeout ? " limited" : ""));
        return voInetErrorLoginIncorrect;
    }
    voInetError LogOut() override {
        note("LogOut");
        return voInetErrorFailed;
    }
    void PostLogOutOperations() override { note("PostLogOutOperations"); }

  protected:
    void note(const std::string& call) const { m_calls.push_back(call); }

  private:
    Calls& m_calls;
};

using RecordingTransfer = Recording<TransferItf>;

class RecordingConnection : public Recording<CNetConnection> {
  public:
    using Recording<CNetConnection>::Recording;

    voInetError DownloadFileWithConnSpec(const voInetConnMethod& method, const std::wstring& local,
                                         const std::wstring& remote, CNetSessionSink* /*sink*/,
                                         long* offset, bool& resume,
                                         const bool& useCache) override {
        note("DownloadFileWithConnSpec " + std::to_string(method.kind) + narrow(local) +
             narrow(remote) + std::to_string(*offset) + (useCache ? " cached" : ""));
        resume = true;
        return voInetErrorRangeFailed;
    }
    voInetError UploadFileWithConnSpec(const voInetConnMethod& method, const std::wstring& source,
                                       const std::wstring& destination,
                                       CNetSessionSink* /*sink*/) override {
        note("UploadFileWithConnSpec " + std::to_string(method.kind) + narrow(source) +
             narrow(destination));
        return voInetErrorNotSupported;
    }
    voInetError UploadFileResponseWithConnSpec(const voInetConnMethod& method,
                                               const std::wstring& request,
                                               const std::wstring& path,
                                               const std::wstring& response,
                                               CNetSessionSink* /*sink*/) override {
        note("UploadFileResponseWithConnSpec " + std::to_string(method.kind) + narrow(request) +
             narrow(path) + narrow(response));
        return voInetErrorGuidExists;
    }
    voInetError LogonWithConnSpec(const voInetConnMethod& method, bool useTimeout,
                                  unsigned int seconds) override {
        note("LogonWithConnSpec " + std::to_string(method.kind) + " " + std::to_string(seconds) +
             (useTimeout ? " limited" : ""));
        return voInetErrorAccessDenied;
    }
};

class RecordingSink : public CNetSessionSink, public CountsFrees {
  public:
    using CountsFrees::operator new;
    using CountsFrees::operator delete;

    explicit RecordingSink(Calls& calls) : m_calls(calls) {}
    ~RecordingSink() override { m_calls.emplace_back("destroyed"); }

    void OnTransferProgress(unsigned long* done, long* total, int* status, const wchar_t* site1,
                            const wchar_t* site2, const wchar_t* url, bool* goOn) override {
        m_calls.push_back(std::to_string(*done) + " of " + std::to_string(*total) + " status " +
                          std::to_string(*status) + narrow(site1) + narrow(site2) + narrow(url));
        *goOn = false;
    }

  private:
    Calls& m_calls;
};

class RecordingMonitor : public TransferMonitor, public CountsFrees {
  public:
    using CountsFrees::operator new;
    using CountsFrees::operator delete;

    explicit RecordingMonitor(Calls& calls) : m_calls(calls) {}
    ~RecordingMonitor() override { m_calls.emplace_back("destroyed"); }

    void OnRequestStarted(const RequestRecord& request) override {
        m_calls.push_back("started " + request.url);
    }
    void OnHeaders(const RequestRecord& request) override {
        m_calls.push_back("headers " + request.url);
    }
    void OnRequestEnded(const RequestRecord& request) override {
        m_calls.push_back("ended " + request.url);
    }
    bool GoesOn() override {
        m_calls.emplace_back("goes on");
        return false;
    }
    bool KeepsWhatArrived(const RequestRecord& request) override {
        m_calls.push_back("keeps " + request.url);
        return true;
    }
    TransferLimits Limits() override { return {17, 23}; }

  private:
    Calls& m_calls;
};

class RecordingCreator : public VoInetCreator, public CountsFrees {
  public:
    using CountsFrees::operator new;
    using CountsFrees::operator delete;

    explicit RecordingCreator(Calls& calls) : m_calls(calls) {}
    ~RecordingCreator() override { m_calls.emplace_back("destroyed"); }

  private:
    Calls& m_calls;
};

/// The two slots of a destructor: the first one destroys and the second one frees as well.
template <class Object>
void expectDestructorAt(std::size_t slot) {
    Calls calls;
    alignas(Object) unsigned char place[sizeof(Object)];
    const void* const placed = new (static_cast<void*>(place)) Object(calls);
    const void* const allocated = new Object(calls);
    CountsFrees::frees = 0;

    callSlot<void>(placed, slot);

    EXPECT_EQ(calls, Calls{"destroyed"});
    EXPECT_EQ(CountsFrees::frees, 0);

    callSlot<void>(allocated, slot + 1);

    EXPECT_EQ(calls, (Calls{"destroyed", "destroyed"}));
    EXPECT_EQ(CountsFrees::frees, 1);
}

/// The arguments that a host hands over.
struct Arguments {
    const std::wstring a = L" a";
    const std::wstring b = L" b";
    const std::wstring c = L" c";
    const voInetConnMethod method = connMethodNetBios;
    CNetSessionSink* noSink = nullptr;
    long offset = 77;
    bool resume = false;
    const bool useCache = true;
};

void callEverySlotOfTransferItf(const void* object, Arguments& with) {
    EXPECT_TRUE(callSlot<bool>(object, 0));
    EXPECT_EQ(callSlot<voInetError>(object, 3, &with.a, &with.b, with.noSink, &with.offset,
                                    &with.resume, &with.useCache),
              voInetErrorTimeout);
    EXPECT_EQ(callSlot<voInetError>(object, 4, &with.a, &with.b, with.noSink), voInetErrorCaCert);
    EXPECT_EQ(callSlot<voInetError>(object, 5, &with.a, &with.b, &with.c, with.noSink),
              voInetErrorNoPackage);
    EXPECT_EQ(callSlot<voInetError>(object, 6, true, 12U), voInetErrorLoginIncorrect);
    EXPECT_EQ(callSlot<voInetError>(object, 7), voInetErrorFailed);
    callSlot<void>(object, 8);
}

Calls callsOfTransferItf() {
    return {"CheckOptions",        "DownloadFile  a b no sink 77 cached",
            "UploadFile  a b",     "UploadFileResponse  a b c",
            "Logon 12 limited",    "LogOut",
            "PostLogOutOperations"};
}

TransferItf* made(voInetProtocol protocol) {
    return VoInetItfFactory().CreateInterface(protocol);
}

// With other types the calls below would not reach the operations as they are.
template <class Agreed, class Declared>
constexpr bool isAgreed(Declared /*member*/) {
    return std::is_same_v<Agreed, Declared>;
}
static_assert(isAgreed<bool (TransferItf::*)() const>(&TransferItf::CheckOptions));
static_assert(isAgreed<voInetError (TransferItf::*)(const std::wstring&, const std::wstring&,
                                                    CNetSessionSink*, long*, bool&, const bool&)>(
    &TransferItf::DownloadFile));
static_assert(isAgreed<voInetError (TransferItf::*)(const std::wstring&, const std::wstring&,
                                                    CNetSessionSink*)>(&TransferItf::UploadFile));
static_assert(isAgreed<voInetError (TransferItf::*)(const std::wstring&, const std::wstring&,
                                                    const std::wstring&, CNetSessionSink*)>(
    &TransferItf::UploadFileResponse));
static_assert(isAgreed<voInetError (TransferItf::*)(bool, unsigned int)>(&TransferItf::Logon));
static_assert(isAgreed<voInetError (TransferItf::*)()>(&TransferItf::LogOut));
static_assert(isAgreed<void (TransferItf::*)()>(&TransferItf::PostLogOutOperations));
static_assert(isAgreed<voInetError (CNetConnection::*)(const voInetConnMethod&, const std::wstring&,
                                                       const std::wstring&, CNetSessionSink*, long*,
                                                       bool&, const bool&)>(
    &CNetConnection::DownloadFileWithConnSpec));
static_assert(isAgreed<voInetError (CNetConnection::*)(const voInetConnMethod&, const std::wstring&,
                                                       const std::wstring&, CNetSessionSink*)>(
    &CNetConnection::UploadFileWithConnSpec));
static_assert(isAgreed<voInetError (CNetConnection::*)(const voInetConnMethod&, const std::wstring&,
                                                       const std::wstring&, const std::wstring&,
                                                       CNetSessionSink*)>(
    &CNetConnection::UploadFileResponseWithConnSpec));
static_assert(
    isAgreed<voInetError (CNetConnection::*)(const voInetConnMethod&, bool, unsigned int)>(
        &CNetConnection::LogonWithConnSpec));
static_assert(isAgreed<void (CNetSessionSink::*)(unsigned long*, long*, int*, const wchar_t*,
                                                 const wchar_t*, const wchar_t*, bool*)>(
    &CNetSessionSink::OnTransferProgress));
static_assert(
    isAgreed<void (TransferMonitor::*)(const RequestRecord&)>(&TransferMonitor::OnRequestStarted));
static_assert(
    isAgreed<void (TransferMonitor::*)(const RequestRecord&)>(&TransferMonitor::OnHeaders));
static_assert(
    isAgreed<void (TransferMonitor::*)(const RequestRecord&)>(&TransferMonitor::OnRequestEnded));
static_assert(isAgreed<bool (TransferMonitor::*)()>(&TransferMonitor::GoesOn));
static_assert(
    isAgreed<bool (TransferMonitor::*)(const RequestRecord&)>(&TransferMonitor::KeepsWhatArrived));
static_assert(isAgreed<TransferLimits (TransferMonitor::*)()>(&TransferMonitor::Limits));

}  // namespace

TEST(Slots, TransferItf_ReachTheirOperations) {
    Calls calls;
    Arguments arguments;
    const RecordingTransfer object(calls);

    callEverySlotOfTransferItf(&object, arguments);

    EXPECT_EQ(calls, callsOfTransferItf());
    EXPECT_TRUE(arguments.resume);
}

TEST(Slots, TransferItf_HaveTheDestructorSecond) {
    expectDestructorAt<RecordingTransfer>(1);
}

TEST(Slots, CNetConnection_BeginWithThoseOfTransferItf) {
    Calls calls;
    Arguments arguments;
    const RecordingConnection object(calls);

    callEverySlotOfTransferItf(&object, arguments);

    EXPECT_EQ(calls, callsOfTransferItf());
}

TEST(Slots, CNetConnection_HaveTheDestructorSecond) {
    expectDestructorAt<RecordingConnection>(1);
}

TEST(Slots, CNetConnection_ReachTheirOwnOperations) {
    Calls calls;
    Arguments with;
    const RecordingConnection object(calls);

    EXPECT_EQ(callSlot<voInetError>(&object, 9, &with.method, &with.a, &with.b, with.noSink,
                                    &with.offset, &with.resume, &with.useCache),
              voInetErrorRangeFailed);
    EXPECT_EQ(callSlot<voInetError>(&object, 10, &with.method, &with.a, &with.b, with.noSink),
              voInetErrorNotSupported);
    EXPECT_EQ(
        callSlot<voInetError>(&object, 11, &with.method, &with.a, &with.b, &with.c, with.noSink),
        voInetErrorGuidExists);
    EXPECT_EQ(callSlot<voInetError>(&object, 12, &with.method, true, 30U), voInetErrorAccessDenied);

    EXPECT_EQ(calls,
              (Calls{"DownloadFileWithConnSpec 3 a b77 cached", "UploadFileWithConnSpec 3 a b",
                     "UploadFileResponseWithConnSpec 3 a b c", "LogonWithConnSpec 3 30 limited"}));
    EXPECT_TRUE(with.resume);
}

TEST(Slots, Sink_ReachesTheReport) {
    Calls calls;
    const RecordingSink sink(calls);
    unsigned long done = 3;
    long total = -1;
    int status = 6;
    bool goOn = true;

    callSlot<void>(&sink, 2, &done, &total, &status, L" a", L" b", L" c", &goOn);

    EXPECT_EQ(calls, Calls{"3 of -1 status 6 a b c"});
    EXPECT_FALSE(goOn);
}

TEST(Slots, Sink_HasTheDestructorFirst) {
    expectDestructorAt<RecordingSink>(0);
}

TEST(Slots, Monitor_ReachesItsOperations) {
    Calls calls;
    RecordingMonitor monitor(calls);
    RequestRecord record;
    record.url = "u";

    callSlot<void>(&monitor, 2, &record);
    callSlot<void>(&monitor, 3, &record);
    callSlot<void>(&monitor, 4, &record);
    EXPECT_FALSE(callSlot<bool>(&monitor, 5));
    EXPECT_TRUE(callSlot<bool>(&monitor, 6, &record));
    const auto limits = callSlot<TransferLimits>(&monitor, 7);

    EXPECT_EQ(calls, (Calls{"started u", "headers u", "ended u", "goes on", "keeps u"}));
    EXPECT_EQ(limits.connectTimeoutMs, 17);
    EXPECT_EQ(limits.maxReceiveBytesPerSecond, 23);
}

TEST(Slots, Monitor_HasTheDestructorFirst) {
    expectDestructorAt<RecordingMonitor>(0);
}

TEST(Slots, Creator_HasTheDestructorFirst) {
    expectDestructorAt<RecordingCreator>(0);
}

TEST(Slots, EveryClass_HasNoFurtherOnes) {
    EXPECT_EQ(slotsOf<TransferItf>(), 9U);
    EXPECT_EQ(slotsOf<CNetConnection>(), 13U);
    EXPECT_EQ(slotsOf<CHttpConnection>(), 13U);
    EXPECT_EQ(slotsOf<CFtpConnection>(), 13U);
    EXPECT_EQ(slotsOf<CLocalConnection>(), 9U);
    EXPECT_EQ(slotsOf<CUncConnection>(), 9U);
    EXPECT_EQ(slotsOf<CNetSessionSink>(), 3U);
    EXPECT_EQ(slotsOf<TransferMonitor>(), 8U);
    EXPECT_EQ(slotsOf<VoInetCreator>(), 2U);
    EXPECT_EQ(slotsOf<CallbackManager>(), 2U);
}

TEST(Slots, UncObjectOfTheLibrary_AnswersThroughThem) {
    Arguments with;
    const void* const object = made(voInetProtocolUnc);

    EXPECT_TRUE(callSlot<bool>(object, 0));
    EXPECT_EQ(callSlot<voInetError>(object, 3, &with.a, &with.b, with.noSink, &with.offset,
                                    &with.resume, &with.useCache),
              voInetErrorNotImplemented);
    EXPECT_EQ(callSlot<voInetError>(object, 4, &with.a, &with.b, with.noSink),
              voInetErrorNotImplemented);
    EXPECT_EQ(callSlot<voInetError>(object, 5, &with.a, &with.b, &with.c, with.noSink),
              voInetErrorNotImplemented);
    EXPECT_EQ(callSlot<voInetError>(object, 6, false, 0U), voInetErrorNotImplemented);
    EXPECT_EQ(callSlot<voInetError>(object, 7), voInetErrorNotImplemented);

    callSlot<void>(object, 2);
}

TEST(Slots, LocalObjectOfTheLibrary_AnswersThroughThem) {
    Arguments with;
    const void* const object = made(voInetProtocolLocal);

    EXPECT_FALSE(callSlot<bool>(object, 0));
    EXPECT_EQ(callSlot<voInetError>(object, 4, &with.a, &with.b, with.noSink),
              voInetErrorNotImplemented);
    EXPECT_EQ(callSlot<voInetError>(object, 6, false, 0U), voInetErrorSuccess);
    EXPECT_EQ(callSlot<voInetError>(object, 7), voInetErrorSuccess);

    callSlot<void>(object, 2);
}

TEST(Slots, HttpObjectOfTheLibrary_AnswersThroughThem) {
    Arguments with;
    const void* const object = made(voInetProtocolHttp);

    EXPECT_FALSE(callSlot<bool>(object, 0));
    EXPECT_EQ(callSlot<voInetError>(object, 7), voInetErrorSuccess);
    EXPECT_EQ(callSlot<voInetError>(object, 10, &with.method, &with.a, &with.b, with.noSink),
              voInetErrorNotSupported);
    EXPECT_EQ(callSlot<voInetError>(object, 12, &with.method, false, 0U), voInetErrorBadOptions);

    callSlot<void>(object, 2);
}

TEST(Slots, FtpObjectOfTheLibrary_AnswersThroughThem) {
    Arguments with;
    const void* const object = made(voInetProtocolFtp);

    EXPECT_FALSE(callSlot<bool>(object, 0));
    EXPECT_EQ(callSlot<voInetError>(object, 7), voInetErrorSuccess);
    EXPECT_EQ(callSlot<voInetError>(object, 10, &with.method, &with.a, &with.b, with.noSink),
              voInetErrorNotSupported);
    EXPECT_EQ(
        callSlot<voInetError>(object, 11, &with.method, &with.a, &with.b, &with.c, with.noSink),
        voInetErrorFailed);

    callSlot<void>(object, 2);
}
