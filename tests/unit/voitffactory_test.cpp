#include "voinet/voitffactory.h"

#include "support/logcapture.h"
#include "support/nothrownew.h"
#include "voinet/FTPConnection.h"
#include "voinet/HTTPConnection.h"
#include "voinet/lnxLocalConnection.h"
#include "voinet/lnxuncconnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;

namespace {

/// Hands an object back to its factory.
struct Destroyer {
    void operator()(TransferItf* transfer) const {
        EXPECT_EQ(VoInetItfFactory().DestroyInterface(transfer), 0);
    }
};
using Owned = std::unique_ptr<TransferItf, Destroyer>;

Owned make(int protocol) {
    return Owned(VoInetItfFactory().CreateInterface(static_cast<voInetProtocol>(protocol)));
}

/// Tells of its destruction.
class Witness : public CUncConnection {
  public:
    explicit Witness(bool& destroyed) : m_destroyed(destroyed) {}
    ~Witness() override { m_destroyed = true; }

  private:
    bool& m_destroyed;
};

}  // namespace

TEST(Factory, ProtocolHttp_MakesAnHttpConnection) {
    const auto transfer = make(0);
    ASSERT_NE(dynamic_cast<CHttpConnection*>(transfer.get()), nullptr);
    EXPECT_EQ(transfer->GetProtocol(), voInetProtocolHttp);
}

TEST(Factory, ProtocolFtp_MakesAnFtpConnectionOnPort21AndIsLogged) {
    {
        const auto transfer = make(1);
        ASSERT_NE(dynamic_cast<CFtpConnection*>(transfer.get()), nullptr);
        EXPECT_EQ(transfer->GetProtocol(), voInetProtocolFtp);
        EXPECT_EQ(transfer->m_nPort, 21);
    }
    EXPECT_THAT(logLines(), testing::ElementsAre(infoLine("FTP Session initialized"),
                                                 infoLine("FTP Session closed")));
}

TEST(Factory, ProtocolUnc_MakesAUncConnectionThatReportsNone) {
    const auto transfer = make(2);
    ASSERT_NE(dynamic_cast<CUncConnection*>(transfer.get()), nullptr);
    EXPECT_EQ(transfer->GetProtocol(), voInetProtocolNone);
}

TEST(Factory, ProtocolLocal_MakesALocalConnection) {
    const auto transfer = make(3);
    ASSERT_NE(dynamic_cast<CLocalConnection*>(transfer.get()), nullptr);
    EXPECT_EQ(transfer->GetProtocol(), voInetProtocolLocal);
}

TEST(Factory, UnknownProtocols_GiveNullAndAllocateNothing) {
    const auto before = nothrowNewCalls();
    for (const int protocol : {4, -1, 5, 1000, -2147483647}) {
        EXPECT_EQ(make(protocol), nullptr) << protocol;
    }
    EXPECT_EQ(nothrowNewCalls(), before);
}

TEST(Factory, NoMemory_GivesNull) {
    failNothrowNew(sizeof(TransferItf));
    for (const int protocol : {0, 1, 2, 3}) {
        EXPECT_EQ(make(protocol), nullptr) << protocol;
    }
}

TEST(Factory, DestroyNull_AnswersZero) {
    EXPECT_EQ(VoInetItfFactory().DestroyInterface(nullptr), 0);
    EXPECT_EQ(VoInetCreator().DestroyInterface(nullptr), 0);
}

TEST(Factory, Destroy_RunsTheObjectsOwnDestructor) {
    bool destroyed = false;
    EXPECT_EQ(VoInetItfFactory().DestroyInterface(new Witness(destroyed)), 0);
    EXPECT_TRUE(destroyed);
}

TEST(Factory, Initialize_AlwaysGivesTheSameCreator) {
    const auto* creator = VoInetItfFactory::initialize();
    VoInetItfFactory first;
    VoInetItfFactory second;
    ASSERT_NE(creator, nullptr);
    EXPECT_EQ(VoInetItfFactory::initialize(), creator);
}

TEST(Factory, TwoFactories_DestroyEachOthersObjects) {
    VoInetItfFactory first;
    VoInetItfFactory second;
    auto* transfer = first.CreateInterface(voInetProtocolLocal);
    ASSERT_NE(transfer, nullptr);
    EXPECT_EQ(second.DestroyInterface(transfer), 0);
}

TEST(Factory, CreatedObjects_AreIndependent) {
    const auto first = make(3);
    const auto second = make(3);
    first->SetOption(voInetOptionSite, std::wstring(L"one"));
    EXPECT_EQ(second->m_strSite, L"");
}

TEST(Creator, CopiesAndAssignments_MakeObjectsLikeTheOriginal) {
    VoInetCreator original;
    VoInetCreator copy(original);
    copy = original;
    auto* transfer = copy.CreateInterface(voInetProtocolUnc);
    EXPECT_NE(transfer, nullptr);
    EXPECT_EQ(original.DestroyInterface(transfer), 0);
}
