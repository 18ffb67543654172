#include "gauge.h"

#include "support/descriptor.h"
#include "support/temporarydirectory.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/random.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <memory>

// What the load tests would not see, they could not fail for.

namespace tessaro_com::pkm::voInet::load {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

class LoadGauge : public testing::Test {
  protected:
    Gauge now() const { return gauge(directory.path()); }

    wire::TemporaryDirectory directory;
};

/// The name of a file that the host library would make beside /tmp/Cbmgr...
std::string siblingName() {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<unsigned char, 16> bytes{};
    EXPECT_EQ(::getrandom(bytes.data(), bytes.size(), 0), 16);
    std::string name = "/tmp/.kvecomn-";
    for (const unsigned char byte : bytes) {
        name += {kDigits[byte >> 4U], kDigits[byte & 0xfU]};
    }
    return name;
}

class Touched {
  public:
    explicit Touched(std::string path) : m_path(std::move(path)) { std::ofstream file(m_path); }
    ~Touched() { std::remove(m_path.c_str()); }
    Touched(const Touched&) = delete;
    Touched& operator=(const Touched&) = delete;

  private:
    std::string m_path;
};

}  // namespace

TEST_F(LoadGauge, NothingTaken_NothingShows) {
    const Gauge before = now();

    EXPECT_THAT(growth(before, now()), IsEmpty());
}

TEST_F(LoadGauge, OneDescriptor_Shows) {
    const Gauge before = now();
    const wire::Descriptor kept(::open("/dev/null", O_RDONLY | O_CLOEXEC));

    EXPECT_THAT(growth(before, now()), Contains("1 more descriptors"));
}

TEST_F(LoadGauge, OnePieceOfMemoryOfCxx_Shows) {
    const Gauge before = now();
    const auto kept = std::make_unique<char>('a');

    EXPECT_EQ(now().pieces, before.pieces + 1);
    EXPECT_THAT(growth(before, now()), Contains("1 more pieces of memory"));
}

TEST_F(LoadGauge, OneHandleOfCurl_Shows) {
    startGauging();
    const Gauge before = now();
    const std::unique_ptr<CURL, void (*)(CURL*)> kept(curl_easy_init(), curl_easy_cleanup);

    EXPECT_GT(now().pieces, before.pieces);
}

TEST_F(LoadGauge, MemoryOfC_Shows) {
    constexpr std::size_t kCount = 3000;
    constexpr std::size_t kSize = 24;
    std::array<void*, kCount> kept{};
    const Gauge before = now();
    for (void*& each : kept) {
        each = std::malloc(kSize);
    }
    const Gauge after = now();
    for (void* each : kept) {
        std::free(each);
    }

    EXPECT_GE(after.heapBytes - before.heapBytes, static_cast<long>(kCount * kSize));
    EXPECT_THAT(growth(before, after), Contains(HasSubstr("more bytes of the heap")));
    EXPECT_THAT(growth(before, now()), IsEmpty());
}

TEST_F(LoadGauge, FileBesideTheLocalOne_Shows) {
    const Gauge before = now();
    const Touched kept(directory.path(".kvecomn-0"));

    EXPECT_THAT(growth(before, now()), Contains("1 more files"));
}

TEST_F(LoadGauge, TemporaryCopyOfThisProcess_Shows) {
    const Gauge before = now();
    const Touched kept("/tmp/Cbmgr" + std::to_string(::random()));

    EXPECT_THAT(growth(before, now()), Contains("1 more files"));
}

TEST_F(LoadGauge, FileBesideTheTemporaryCopy_Shows) {
    const Gauge before = now();
    const Touched kept(siblingName());

    EXPECT_THAT(growth(before, now()), Contains("1 more files"));
}

}  // namespace tessaro_com::pkm::voInet::load
