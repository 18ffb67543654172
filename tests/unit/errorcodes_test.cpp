#include "voinet/voineterror.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <type_traits>

using namespace tessaro_com::pkm::voInet;

namespace {

const std::map<int, int>& tableOfResults() {
    static const std::map<int, int> kTable{
        {0, 0},    {5, -7},   {6, -8},   {10, 1}, {19, -5},  {23, -10}, {27, -11},
        {28, -60}, {33, -12}, {35, -92}, {42, 7}, {51, -89}, {60, -91},
    };
    return kTable;
}

}  // namespace

TEST(MapCurlErrorCode, EveryNumberUpTo1000_GivesTheTablesResultOrTransferFailed) {
    for (int code = -1000; code <= 1000; ++code) {
        const auto found = tableOfResults().find(code);
        const int expected = found == tableOfResults().end() ? -88 : found->second;
        EXPECT_EQ(mapCurlErrorCode(code), expected) << "curl result " << code;
    }
}

TEST(MapCurlErrorCode, ExtremeNumbers_GiveTransferFailed) {
    EXPECT_EQ(mapCurlErrorCode(INT_MIN), voInetErrorTransferFailed);
    EXPECT_EQ(mapCurlErrorCode(INT_MAX), voInetErrorTransferFailed);
}

TEST(MapCurlErrorCode, HttpErrorThatCurlReportsItself_GivesTransferFailed) {
    EXPECT_EQ(mapCurlErrorCode(22), voInetErrorTransferFailed);
}

TEST(MapCurlErrorCode, CancelAndRefusedLogin_GivePositiveResults) {
    EXPECT_EQ(mapCurlErrorCode(42), voInetErrorCancelled);
    EXPECT_EQ(mapCurlErrorCode(10), voInetErrorLoginIncorrect);
    EXPECT_GT(mapCurlErrorCode(42), 0);
    EXPECT_GT(mapCurlErrorCode(10), 0);
}

TEST(VoInetError, Numbers_AreThoseThatCallersStore) {
    const std::map<voInetError, int> numbers{
        {voInetErrorSuccess, 0},           {voInetErrorLoginIncorrect, 1},
        {voInetErrorProxyAuthRequired, 2}, {voInetErrorRangeNotSatisfiable, 4},
        {voInetErrorRangeIgnored, 6},      {voInetErrorCancelled, 7},
        {voInetErrorPackageReceived, 8},   {voInetErrorCode9, 9},
        {voInetErrorServerBusy, 12},       {voInetErrorNoPackage, 13},
        {voInetErrorNotImplemented, 21},   {voInetErrorShutdown, 22},
        {voInetErrorFailed, -1},           {voInetErrorMaxRetries, -2},
        {voInetErrorInvalidOption, -3},    {voInetErrorInvalidArgument, -4},
        {voInetErrorFileNotFound, -5},     {voInetErrorBadOptions, -6},
        {voInetErrorProxyNotResolved, -7}, {voInetErrorHostNotResolved, -8},
        {voInetErrorWriteFailed, -10},     {voInetErrorOutOfMemory, -11},
        {voInetErrorRangeFailed, -12},     {voInetErrorCodeMinus13, -13},
        {voInetErrorCodeMinus14, -14},     {voInetErrorLocalFileOpen, -16},
        {voInetErrorUploadSetup, -19},     {voInetErrorAccessDenied, -22},
        {voInetErrorCodeMinus26, -26},     {voInetErrorTimeout, -60},
        {voInetErrorTransferFailed, -88},  {voInetErrorPeerVerification, -89},
        {voInetErrorCaCert, -91},          {voInetErrorSslConnect, -92},
        {voInetErrorNotSupported, -93},    {voInetErrorInvalidRequest, -94},
        {voInetErrorGuidExists, -95},      {voInetErrorKeysOutdated, -96},
    };
    EXPECT_EQ(numbers.size(), 38U) << "two members share a number";
    for (const auto& [member, number] : numbers) {
        EXPECT_EQ(static_cast<int>(member), number);
    }
}

TEST(VoInetError, Type_IsASigned32BitNumber) {
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<voInetError>, std::int32_t>));
}
