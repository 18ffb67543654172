#include "curldouble.h"
#include "logcapture.h"
#include "networkdouble.h"
#include "nothrownew.h"
#include "temporaryfiles.h"

#include <gtest/gtest.h>

namespace voinet_test {

namespace {

/// Gives every test fresh doubles, and turns it red when it leaves something behind: a handle, a
/// list, a file descriptor, a temporary file.
class CleanUpListener : public testing::EmptyTestEventListener {
  public:
    void OnTestStart(const testing::TestInfo&) override {
        startLogCapture();
        m_descriptors = openDescriptors();
    }

    void OnTestEnd(const testing::TestInfo&) override {
        failNothrowNew(0);
        curlDouble().finish();
        network().finish();
        expectTemporaryFilesGone();
        EXPECT_EQ(openDescriptors(), m_descriptors) << "file descriptors were left open";
    }

  private:
    std::size_t m_descriptors = 0;
};

[[maybe_unused]] const bool kInstalled = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new CleanUpListener);
    return true;
}();

}  // namespace

}  // namespace voinet_test
