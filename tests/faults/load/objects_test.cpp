#include "support/leakguard.h"
#include "support/logcapture.h"
#include "support/temporarydirectory.h"
#include "transfers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

// A thousand transfer objects in one process.

namespace tessaro_com::pkm::voInet::load {
namespace {

using testing::IsEmpty;

constexpr std::size_t kObjects = 1000;

std::string repositoryOf(std::size_t number) {
    return "repository-" + std::to_string(number);
}

}  // namespace

TEST(ManyObjects, ThousandAlive_EachDownloadsFromItsOwnRepository) {
    preferMemory();
    const LoopbackServer server;
    const wire::LeakGuard leaks;
    const wire::LogCapture log;
    {
        const wire::TemporaryDirectory directory;
        std::vector<wire::TransferPtr> objects;
        for (std::size_t number = 0; number < kObjects; ++number) {
            objects.push_back(makeObject(voInetProtocolHttp, server.httpHost(),
                                         wire::widened(repositoryOf(number))));
            ASSERT_NE(objects.back(), nullptr);
        }

        for (std::size_t number = 0; number < kObjects; ++number) {
            ASSERT_NO_THROW(downloadWhole(*objects[number], directory.path(std::to_string(number)),
                                          "file.bin",
                                          contentOf("/" + repositoryOf(number) + "/file.bin")))
                << number;
        }

        EXPECT_EQ(directory.entries().size(), kObjects) << "nothing lies beside the files";
        EXPECT_THAT(leaks.leftovers(), IsEmpty()) << "while all objects live";
    }
    EXPECT_THAT(leaks.leftovers(), IsEmpty());
}

TEST(ManyObjects, ThousandAlive_KeepTheirSettingsApart) {
    const wire::LogCapture log;
    std::vector<wire::TransferPtr> objects;
    for (std::size_t number = 0; number < kObjects; ++number) {
        constexpr voInetProtocol kProtocols[] = {voInetProtocolHttp, voInetProtocolFtp,
                                                 voInetProtocolLocal, voInetProtocolUnc};
        objects.push_back(wire::makeTransfer(kProtocols[number % 4]));
        const std::wstring text = L"text-" + std::to_wstring(number);
        for (const voInetOption option :
             {voInetOptionUser, voInetOptionPassword, voInetOptionRelativePath}) {
            ASSERT_EQ(objects.back()->SetOption(option, text), voInetErrorSuccess);
        }
    }

    for (std::size_t number = 0; number < kObjects; ++number) {
        const std::wstring text = L"text-" + std::to_wstring(number);
        ASSERT_EQ(objects[number]->m_strUser, text);
        ASSERT_EQ(objects[number]->m_strPassword, text);
        ASSERT_EQ(objects[number]->m_strRelativePath, text);
    }
}

}  // namespace tessaro_com::pkm::voInet::load
