#include "requeststore.h"

#include "starterror.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>

namespace voinetserver {
namespace {

namespace fs = std::filesystem;

constexpr const char* kEptSuffix = ".bin";
constexpr const char* kArrivingSuffix = ".part";
constexpr mode_t kRequestMode = 0600;

std::string nameOf(unsigned long number) {
    std::array<char, 32> digits{};
    std::snprintf(digits.data(), digits.size(), "%06lu", number);
    return digits.data();
}

unsigned long numberOf(const fs::path& file) {
    const std::string digits = file.stem().string();
    unsigned long number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

unsigned long highestNumber(const fs::path& directory) {
    unsigned long highest = 0;
    for (const auto& entry : fs::directory_iterator(directory)) {
        highest = std::max(highest, numberOf(entry.path()));
    }
    return highest;
}

std::system_error failure(const fs::path& file, const std::string& what) {
    return {errno, std::generic_category(),
            "the request file " + file.filename().string() + " cannot be " + what};
}

}  // namespace

RequestStore::RequestStore(const std::string& directory) : directory_(directory) {
    if (directory.empty()) {
        return;
    }
    try {
        fs::create_directories(directory_);
        lastNumber_ = highestNumber(directory_);
    } catch (const fs::filesystem_error& error) {
        throw StartError("the directory of requests " + directory +
                         " cannot be used: " + error.code().message());
    }
}

ArrivingRequest::ArrivingRequest(RequestStore& store) {
    if (store.directory_.empty()) {
        return;
    }
    const std::string name = nameOf(++store.lastNumber_);
    kept_ = store.directory_ / (name + kEptSuffix);
    arriving_ = store.directory_ / (name + kArrivingSuffix);
    file_ =
        UniqueFd(::open(arriving_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kRequestMode));
    if (!file_.valid()) {
        throw failure(arriving_, "made");
    }
}

ArrivingRequest::~ArrivingRequest() {
    if (file_.valid()) {
        ::unlink(arriving_.c_str());
    }
}

void ArrivingRequest::append(const char* data, std::size_t size) {
    while (file_.valid() && size > 0) {
        const ssize_t count = ::write(file_.get(), data, size);
        if (count < 0 && errno != EINTR) {
            throw failure(arriving_, "written");
        }
        const std::size_t written = count > 0 ? static_cast<std::size_t>(count) : 0;
        data += written;
        size -= written;
    }
}

void ArrivingRequest::keep() {
    if (!file_.valid()) {
        return;
    }
    if (std::rename(arriving_.c_str(), kept_.c_str()) != 0) {
        throw failure(kept_, "made");
    }
    file_ = UniqueFd();
}

}  // namespace voinetserver
