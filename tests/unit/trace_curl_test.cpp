#include "kvecomn/astring.h"
#include "kvecomn/telmcomn.h"
#include "support/logcapture.h"
#include "support/temporaryfiles.h"
#include "voinet/callbacks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Stands for a curl handle; only its address is traced.
int g_handle;

std::string handleText() {
    AString text;
    text += static_cast<const void*>(&g_handle);
    return telmcomn_wide_to_ansi(static_cast<const wchar_t*>(text));
}

int trace(int type, std::string data) {
    return trace_curl(&g_handle, static_cast<curl_infotype>(type), data.data(), data.size(),
                      nullptr);
}

std::string traced(const std::string& rest) {
    return debugLine(handleText() + " " + rest, "curl");
}

/// The dump of the bytes, by the rule for one byte.
std::string dumped(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '`') {
            text += "``";
        } else if (value >= 32 && value <= 126) {
            text += byte;
        } else {
            constexpr const char* kDigits = "0123456789abcdef";
            text += std::string("`0x") + kDigits[value >> 4] + kDigits[value & 15];
        }
    }
    return text;
}

std::string allBytes() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

}  // namespace

TEST(TraceCurl, HeaderWithBackquoteAndLineEnd_IsShownEscaped) {
    EXPECT_EQ(trace(CURLINFO_HEADER_OUT, "GET /x`y\r\n"), 0);
    EXPECT_THAT(logLines(), ElementsAre(traced("snd head 10 GET /x``y`0x0d`0x0a")));
}

TEST(TraceCurl, EachKind_HasItsLabelAndShowsItsShare) {
    const std::vector<std::pair<const char*, bool>> kinds{
        {"info", true},      {"rcv head", true},      {"snd head", true},     {"rcv data", false},
        {"snd data", false}, {"rcv SSL data", false}, {"snd SSL data", false}};
    for (std::size_t type = 0; type < kinds.size(); ++type) {
        clearLog();
        EXPECT_EQ(trace(static_cast<int>(type), "0123456789abcdefghij"), 0);
        const auto shown = kinds[type].second ? "0123456789abcdefghij" : "0123456789abcdef";
        EXPECT_THAT(logLines(),
                    ElementsAre(traced(std::string(kinds[type].first) + " 20 " + shown)));
    }
}

TEST(TraceCurl, DataBlockOf1000Bytes_Shows16BytesAndTheFullSize) {
    const auto data = positionDependentBytes(1000);
    trace(CURLINFO_DATA_IN, data);
    EXPECT_THAT(logLines(), ElementsAre(traced("rcv data 1000 " + dumped(data.substr(0, 16)))));
}

TEST(TraceCurl, DataBlocksOf15To17Bytes_ShowAtMost16) {
    for (const std::size_t size : {0U, 1U, 15U, 16U, 17U}) {
        clearLog();
        const std::string data = std::string("abcdefghijklmnopq").substr(0, size);
        trace(CURLINFO_SSL_DATA_OUT, data);
        EXPECT_THAT(logLines(), ElementsAre(traced("snd SSL data " + std::to_string(size) + " " +
                                                   data.substr(0, 16))));
    }
}

TEST(TraceCurl, EveryByteInAHeader_IsShownByTheRule) {
    trace(CURLINFO_HEADER_IN, allBytes());
    EXPECT_THAT(logLines(), ElementsAre(traced("rcv head 256 " + dumped(allBytes()))));
}

TEST(TraceCurl, LongHeader_IsShownWhole) {
    const std::string header(5000, 'h');
    trace(CURLINFO_HEADER_IN, header);
    EXPECT_THAT(logLines(), ElementsAre(traced("rcv head 5000 " + header)));
}

TEST(TraceCurl, UnknownKinds_AreNamedByNumberWithoutData) {
    for (const int type : {7, 9, 1000}) {
        clearLog();
        EXPECT_EQ(trace(type, "secret"), 0);
        EXPECT_THAT(logLines(), ElementsAre(debugLine(
                                    "Unknown trace: " + std::to_string(type) + " 6", "curl")));
    }
}

TEST(TraceCurl, NoBytes_ShowsTheHeadAlone) {
    EXPECT_EQ(trace_curl(&g_handle, CURLINFO_TEXT, nullptr, 0, nullptr), 0);
    EXPECT_THAT(logLines(), ElementsAre(traced("info 0 ")));
    EXPECT_THAT(logLines("info"), IsEmpty());
}
