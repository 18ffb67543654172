#include "servertest.h"

#include <algorithm>
#include <fstream>
#include <vector>

namespace voinettest {

void ServerTest::expectLocalText(std::string_view text) const {
    std::ifstream file(localFile(), std::ios::binary);
    ASSERT_TRUE(file) << localFile() << " cannot be read";
    std::vector<char> block(std::size_t{1} << 20U);
    std::size_t read = 0;
    do {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        const std::string_view part(block.data(), static_cast<std::size_t>(file.gcount()));
        // Not ASSERT_EQ, which would print both.
        ASSERT_TRUE(part == text.substr(std::min(read, text.size()), part.size()))
            << "the local file differs behind byte " << read;
        read += part.size();
    } while (file);
    EXPECT_EQ(read, text.size());
}

}  // namespace voinettest
