#ifndef VOINET_TESTS_FUZZ_SUPPORT_SCRATCH_H
#define VOINET_TESTS_FUZZ_SUPPORT_SCRATCH_H

#include <cstddef>
#include <optional>
#include <string>

namespace voinet_fuzz {

/// The process's directory for files; removed when the process ends by itself.
const std::string& scratchDirectory();

/// Null for a file that does not exist.
std::optional<std::string> readFile(const std::string& path);

/// Removes the file for null.
void writeFile(const std::string& path, const std::optional<std::string>& content);

/// `size` bytes that tell their position: no two blocks are alike.
std::string positionDependentBytes(std::size_t size);

/// Number of descriptors that this process has open.
std::size_t openDescriptors();

/// Whether what was opened since then is closed again.
bool hasNoMoreDescriptorsThan(std::size_t before);

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_SCRATCH_H
