#include "voinet/INetUtils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;

namespace {

std::vector<unsigned>& seeds() {
    static std::vector<unsigned> all;
    return all;
}

}  // namespace

/// Writes down the seeds of random(). What the generator gives is of no interest here.
extern "C" void srandom(unsigned seed) noexcept {
    seeds().push_back(seed);
}

// The only case of this program: there is one first call in a process.
TEST(CreateTempFileName, FirstCallOfTheProcess_AndNoLaterOne_SeedsTheGeneratorWithTheTime) {
    const auto earliest = static_cast<unsigned>(time(nullptr));
    std::string name;
    CreateTempFileName(&name);
    CreateTempFileName(&name);
    const auto latest = static_cast<unsigned>(time(nullptr));

    ASSERT_EQ(seeds().size(), 1U);
    EXPECT_GE(seeds().front(), earliest);
    EXPECT_LE(seeds().front(), latest);
}
