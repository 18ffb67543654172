// Settings without memory: an option is taken over as a whole or not at all.

#include "support/settings.h"
#include "support/torture.h"
#include "support/transfer.h"
#include "voinet/HTTPConnection.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <utility>

using namespace tessaro_com::pkm::voInet;
using namespace tessaro_com::pkm::voInet::torture;

namespace {

// Longer than what a string object holds itself.
const std::wstring kOldText = L"an-old-text-that-needs-memory.example.org:1111";
const std::wstring kNewText = L"a-new-text-that-needs-more-memory-than-the-old.example.org:2222";

const std::wstring kOddHost = L"ftp://[2001:db8::1234:5678:9abc:def0]: 2121 ";
const std::wstring kHostWithoutPort = L"a-long-name-without-a-port";

/// A call of SetOption on an object that another one has set before.
class SettingScene : public Scene {
  public:
    using Set = std::function<voInetError(TransferItf&)>;

    SettingScene(voInetProtocol protocol, const Set& before, Set set, voInetError expected)
        : m_transfer(wire::makeTransfer(protocol)), m_set(std::move(set)), m_expected(expected) {
        before(*m_transfer);
        m_old = settingsOf(*m_transfer);
        const wire::TransferPtr other = wire::makeTransfer(protocol);
        before(*other);
        m_set(*other);
        m_new = settingsOf(*other);
    }

    void run() override { m_result = m_set(*m_transfer); }

    void check(bool isDisturbed) override {
        expectResult(m_result, m_expected, isDisturbed);
        const bool isTaken = m_result == m_expected;
        EXPECT_TRUE(isTaken || m_result == voInetErrorOutOfMemory) << m_result;
        EXPECT_TRUE(settingsOf(*m_transfer) == (isTaken ? m_new : m_old))
            << "half set after " << m_result;
        EXPECT_EQ(m_set(*m_transfer), m_expected);
        EXPECT_TRUE(settingsOf(*m_transfer) == m_new) << "not set when memory was back";
    }

  private:
    wire::TransferPtr m_transfer;
    Set m_set;
    voInetError m_expected;
    Settings m_old;
    Settings m_new;
    voInetError m_result = voInetErrorFailed;
};

MakeScene setting(voInetProtocol protocol, const SettingScene::Set& before,
                  const SettingScene::Set& set, voInetError expected = voInetErrorSuccess) {
    return [=] { return std::make_unique<SettingScene>(protocol, before, set, expected); };
}

voInetError nothingBefore(TransferItf& /*transfer*/) {
    return voInetErrorSuccess;
}

class TextOptionTorture : public testing::TestWithParam<voInetOption> {};

class ProxyRecordTorture : public testing::TestWithParam<voInetProtocol> {};

constexpr std::array kProtocols{voInetProtocolHttp, voInetProtocolFtp, voInetProtocolUnc,
                                voInetProtocolLocal};

}  // namespace

TEST_P(TextOptionTorture, OverNothing_IsTakenOverAsAWholeOrNotAtAll) {
    const voInetOption option = GetParam();
    survivesEveryShortage(setting(voInetProtocolHttp, nothingBefore, [option](TransferItf& t) {
        return t.SetOption(option, kNewText);
    }));
}

TEST_P(TextOptionTorture, OverAnEarlierText_IsTakenOverAsAWholeOrNotAtAll) {
    const voInetOption option = GetParam();
    survivesEveryShortage(setting(
        voInetProtocolHttp, [option](TransferItf& t) { return t.SetOption(option, kOldText); },
        [option](TransferItf& t) { return t.SetOption(option, kNewText); }));
}

INSTANTIATE_TEST_SUITE_P(AllOptions, TextOptionTorture,
                         testing::Values(voInetOptionHostFqdn, voInetOptionHostNetBios,
                                         voInetOptionHostIP, voInetOptionSite, voInetOptionUser,
                                         voInetOptionPassword, voInetOptionAccount,
                                         voInetOptionDomain, voInetOptionServer, voInetOptionShare,
                                         voInetOptionRelativePath, voInetOptionUserAgent,
                                         voInetOptionCARootPath, voInetOptionUpdateToken),
                         [](const auto& each) { return std::to_string(each.param); });

TEST(SettingsTorture, HostWithSchemeAndOddPort_IsTakenOverAsAWholeOrNotAtAll) {
    survivesEveryShortage(setting(
        voInetProtocolFtp, [](TransferItf& t) { return t.SetOption(voInetOptionHostIP, kOldText); },
        [](TransferItf& t) { return t.SetOption(voInetOptionHostIP, kOddHost); }));
}

TEST(SettingsTorture, HostWithoutPort_ChangesNothing) {
    survivesEveryShortage(setting(
        voInetProtocolHttp,
        [](TransferItf& t) { return t.SetOption(voInetOptionHostFqdn, kOldText); },
        [](TransferItf& t) { return t.SetOption(voInetOptionHostFqdn, kHostWithoutPort); }));
}

TEST(SettingsTorture, UnknownTextOption_ChangesNothing) {
    survivesEveryShortage(setting(
        voInetProtocolHttp, nothingBefore,
        [](TransferItf& t) { return t.SetOption(voInetOptionUseSSL, kNewText); },
        voInetErrorInvalidOption));
}

TEST(SettingsTorture, Numbers_AreTakenOver) {
    for (const voInetOption option :
         {voInetOptionPortIP, voInetOptionPortFqdn, voInetOptionPortNetbios, voInetOptionSslPort}) {
        survivesEveryShortage(setting(voInetProtocolHttp, nothingBefore, [option](TransferItf& t) {
            return t.SetOption(option, 4711);
        }));
        survivesEveryShortage(setting(voInetProtocolHttp, nothingBefore, [option](TransferItf& t) {
            return t.SetOption(option, 4711L);
        }));
    }
}

TEST(SettingsTorture, UnknownNumberAndFlagOptions_AreRefusedAllTheSame) {
    survivesEveryShortage(setting(
        voInetProtocolHttp, nothingBefore,
        [](TransferItf& t) { return t.SetOption(voInetOptionSite, 4711L); },
        voInetErrorInvalidOption));
    survivesEveryShortage(setting(
        voInetProtocolHttp, nothingBefore,
        [](TransferItf& t) { return t.SetOption(voInetOptionSite, true); },
        voInetErrorInvalidOption));
}

TEST_P(ProxyRecordTorture, OverNothing_IsTakenOverAsAWholeOrNotAtAll) {
    const CProxyParams record = fullProxyRecord();
    survivesEveryShortage(setting(GetParam(), nothingBefore, [&record](TransferItf& t) {
        return t.SetOption(voInetOptionSite, &record);
    }));
}

TEST_P(ProxyRecordTorture, OverAnEarlierRecord_IsTakenOverAsAWholeOrNotAtAll) {
    CProxyParams earlier = fullProxyRecord();
    earlier.m_strProxyHost += L".before";
    earlier.m_strHttpProxyUser += L"-before";
    earlier.m_strFtpProxyUser += L"-before";
    earlier.m_strExclusionList += L".before";
    earlier.m_nExclusionListSize = 7;
    earlier.m_bUseIEConfig = false;
    CProxyParams record = fullProxyRecord();
    record.m_strHttpProxyPassword.clear();  // the earlier ones live on
    record.m_strFtpProxyPassword.clear();
    survivesEveryShortage(setting(
        GetParam(), [&earlier](TransferItf& t) { return t.SetOption(voInetOptionSite, &earlier); },
        [&record](TransferItf& t) { return t.SetOption(voInetOptionSite, &record); }));
}

INSTANTIATE_TEST_SUITE_P(AllProtocols, ProxyRecordTorture, testing::ValuesIn(kProtocols),
                         [](const auto& each) { return std::to_string(each.param); });

TEST(SettingsTorture, Dump_AnswersTrueAndThrowsNothing) {
    const DetailedLog log;
    CHttpConnection connection;
    const CProxyParams record = fullProxyRecord();
    ASSERT_EQ(connection.SetOption(voInetOptionSite, &record), voInetErrorSuccess);
    survivesEveryShortage(sceneOf([&connection] { return connection.dumpObject(); },
                                  [](bool answer, bool /*isDisturbed*/) { EXPECT_TRUE(answer); }));
}
