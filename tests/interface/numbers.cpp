#include "kvecomn/hostlog.h"
#include "kvecomn/telfile.h"
#include "voinet/cbmgr.h"
#include "voinet/cnetconnection.h"
#include "voinet/transfermonitor.h"
#include "voinet/voineterror.h"
#include "voinet/voinetoption.h"
#include "voinet/voinetprotocol.h"

#include <cstdint>
#include <type_traits>

// The numbers that hosts were compiled with. Nothing here runs: a change does not compile.

using namespace tessaro_com::pkm::voInet;

namespace {

// The tables are switches without a default: an enumerator of the header that is missing here
// does not compile either.
#pragma GCC diagnostic error "-Wswitch"

// A macro, so that the message names the enumerator.
#define AGREED(enumerator, number)                                                      \
    case enumerator:                                                                    \
        static_assert(static_cast<long>(enumerator) == (number), #enumerator " moved"); \
        return true

/// Whether hosts know the enumerator.
// NOLINTNEXTLINE(readability-function-size): a table
constexpr bool isAgreed(voInetError error) {
    switch (error) {
        AGREED(voInetErrorSuccess, 0);
        AGREED(voInetErrorLoginIncorrect, 1);
        AGREED(voInetErrorProxyAuthRequired, 2);
        AGREED(voInetErrorRangeNotSatisfiable, 4);
        AGREED(voInetErrorRangeIgnored, 6);
        AGREED(voInetErrorCancelled, 7);
        AGREED(voInetErrorPackageReceived, 8);
        AGREED(voInetErrorCode9, 9);
        AGREED(voInetErrorServerBusy, 12);
        AGREED(voInetErrorNoPackage, 13);
        AGREED(voInetErrorNotImplemented, 21);
        AGREED(voInetErrorShutdown, 22);
        AGREED(voInetErrorFailed, -1);
        AGREED(voInetErrorMaxRetries, -2);
        AGREED(voInetErrorInvalidOption, -3);
        AGREED(voInetErrorInvalidArgument, -4);
        AGREED(voInetErrorFileNotFound, -5);
        AGREED(voInetErrorBadOptions, -6);
        AGREED(voInetErrorProxyNotResolved, -7);
        AGREED(voInetErrorHostNotResolved, -8);
        AGREED(voInetErrorWriteFailed, -10);
        AGREED(voInetErrorOutOfMemory, -11);
        AGREED(voInetErrorRangeFailed, -12);
        AGREED(voInetErrorCodeMinus13, -13);
        AGREED(voInetErrorCodeMinus14, -14);
        AGREED(voInetErrorLocalFileOpen, -16);
        AGREED(voInetErrorUploadSetup, -19);
        AGREED(voInetErrorAccessDenied, -22);
        AGREED(voInetErrorCodeMinus26, -26);
        AGREED(voInetErrorTimeout, -60);
        AGREED(voInetErrorTransferFailed, -88);
        AGREED(voInetErrorPeerVerification, -89);
        AGREED(voInetErrorCaCert, -91);
        AGREED(voInetErrorSslConnect, -92);
        AGREED(voInetErrorNotSupported, -93);
        AGREED(voInetErrorInvalidRequest, -94);
        AGREED(voInetErrorGuidExists, -95);
        AGREED(voInetErrorKeysOutdated, -96);
    }
    return false;
}

constexpr bool isAgreed(voInetOption option) {
    switch (option) {
        AGREED(voInetOptionHostFqdn, 0);
        AGREED(voInetOptionHostNetBios, 1);
        AGREED(voInetOptionHostIP, 2);
        AGREED(voInetOptionPortIP, 3);
        AGREED(voInetOptionPortFqdn, 4);
        AGREED(voInetOptionPortNetbios, 5);
        AGREED(voInetOptionSite, 6);
        AGREED(voInetOptionUser, 7);
        AGREED(voInetOptionPassword, 8);
        AGREED(voInetOptionAccount, 9);
        AGREED(voInetOptionDomain, 11);
        AGREED(voInetOptionServer, 12);
        AGREED(voInetOptionShare, 13);
        AGREED(voInetOptionRelativePath, 14);
        AGREED(voInetOptionUseLoggedOnUser, 15);
        AGREED(voInetOptionUserAgent, 16);
        AGREED(voInetOptionSslPort, 17);
        AGREED(voInetOptionUseSSL, 18);
        AGREED(voInetOptionCARootPath, 19);
        AGREED(voInetOptionUpdateToken, 20);
    }
    return false;
}

constexpr bool isAgreed(voInetProtocol protocol) {
    switch (protocol) {
        AGREED(voInetProtocolHttp, 0);
        AGREED(voInetProtocolFtp, 1);
        AGREED(voInetProtocolUnc, 2);
        AGREED(voInetProtocolLocal, 3);
        AGREED(voInetProtocolNone, 4);
    }
    return false;
}

constexpr bool isAgreed(RequestPurpose purpose) {
    switch (purpose) {
        AGREED(requestLogon, 0);
        AGREED(requestPrefixCheck, 1);
        AGREED(requestDownload, 2);
        AGREED(requestExchange, 3);
    }
    return false;
}

constexpr bool isAgreed(CallbackManager::TransferType type) {
    switch (type) {
        AGREED(CallbackManager::TransferUpload, 0);
        AGREED(CallbackManager::TransferDownload, 1);
        AGREED(CallbackManager::TransferDownloadSilent, 2);
    }
    return false;
}

constexpr bool isAgreed(HostLogLevel level) {
    switch (level) {
        AGREED(HostLogLevel::error, 0);
        AGREED(HostLogLevel::info, 1);
        AGREED(HostLogLevel::detail, 2);
    }
    return false;
}

#undef AGREED

/// How many numbers of a range stand for something: a second table, by counting.
template <class Enumeration>
constexpr int agreedNumbers(int first, int last) {
    int count = 0;
    for (int number = first; number <= last; ++number) {
        count += isAgreed(static_cast<Enumeration>(number)) ? 1 : 0;
    }
    return count;
}

static_assert(agreedNumbers<voInetError>(-200, 200) == 38);
static_assert(agreedNumbers<voInetOption>(0, 20) == 20);
static_assert(!isAgreed(static_cast<voInetOption>(10)), "number 10 stays unused");
static_assert(agreedNumbers<voInetProtocol>(0, 4) == 5);
static_assert(agreedNumbers<RequestPurpose>(0, 3) == 4);
static_assert(agreedNumbers<CallbackManager::TransferType>(0, 2) == 3);
static_assert(agreedNumbers<HostLogLevel>(0, 2) == 3);

// What an enumerator is passed in, and that it is a number to those who call with one.
static_assert(std::is_same_v<std::underlying_type_t<voInetError>, std::int32_t>);
static_assert(std::is_same_v<std::underlying_type_t<voInetOption>, int>);
static_assert(std::is_same_v<std::underlying_type_t<voInetProtocol>, int>);
static_assert(std::is_same_v<std::underlying_type_t<RequestPurpose>, int>);
static_assert(sizeof(voInetError) == 4 && sizeof(voInetOption) == 4 && sizeof(voInetProtocol) == 4);
static_assert(sizeof(CallbackManager::TransferType) == 4 && sizeof(HostLogLevel) == 4);
static_assert(std::is_convertible_v<voInetError, int> && std::is_convertible_v<voInetOption, int> &&
              std::is_convertible_v<voInetProtocol, int>);

// The host forms: a record of one number, which can be passed by value.
static_assert(std::is_aggregate_v<voInetConnMethod>);
static_assert(std::is_trivially_copyable_v<voInetConnMethod>);
static_assert(std::is_standard_layout_v<voInetConnMethod>);
static_assert(std::is_same_v<decltype(voInetConnMethod::kind), int>);
static_assert(sizeof(voInetConnMethod) == sizeof(int));
static_assert(connMethodNone.kind == 0);
static_assert(connMethodIP.kind == 1);
static_assert(connMethodFqdn.kind == 2);
static_assert(connMethodNetBios.kind == 3);

// The files of the host's library.
static_assert(telGenericRead == 0x80000000U);
static_assert(telGenericWrite == 0x40000000U);
static_assert(telShareNone == 0);
static_assert(telCreateNew == 1);
static_assert(telCreateAlways == 2);
static_assert(telOpenExisting == 3);
static_assert(telOpenAlways == 4);
static_assert(telTruncateExisting == 5);
static_assert(telAttributeNormal == 0x80);
static_assert(telFileBegin == 0);
static_assert(telFileCurrent == 1);
static_assert(telFileEnd == 2);

}  // namespace
