#include "answerqueue.h"

#include "starterror.h"
#include "uniquefd.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace voinetserver {
namespace {

namespace fs = std::filesystem;

std::shared_ptr<const Content> openAnswer(const fs::path& file) {
    UniqueFd opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!opened.valid() || ::fstat(opened.get(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "the answer " + file.filename().string() + " cannot be read");
    }
    return std::make_shared<FileContent>(std::move(opened),
                                         static_cast<std::uint64_t>(status.st_size));
}

bool isAnswer(const fs::directory_entry& entry) {
    std::error_code error;
    return entry.path().filename().native().front() != '.' && entry.is_regular_file(error);
}

}  // namespace

AnswerQueue::AnswerQueue(const std::string& directory) : directory_(directory) {
    std::error_code error;
    if (!directory.empty() && !fs::is_directory(directory, error)) {
        throw StartError("the directory of answers " + directory +
                         " cannot be used: " + (error ? error.message() : "it is not a directory"));
    }
}

std::shared_ptr<const Content> AnswerQueue::next() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto name = nextName();
    if (!name) {
        return nullptr;
    }
    auto answer = openAnswer(directory_ / *name);
    handedOut_.insert(*name);
    return answer;
}

std::optional<std::string> AnswerQueue::nextName() const {
    std::optional<std::string> lowest;
    if (directory_.empty()) {
        return lowest;
    }
    for (const auto& entry : fs::directory_iterator(directory_)) {
        const std::string name = entry.path().filename().string();
        if (isAnswer(entry) && handedOut_.count(name) == 0 && (!lowest || name < *lowest)) {
            lowest = name;
        }
    }
    return lowest;
}

}  // namespace voinetserver
