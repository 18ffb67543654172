// What curl's callbacks do with a transfer's files: blocks of odd sizes, repetitions, prefix checks
// and uploads, compared with a model of the local file.

#include "kvecomn/telmcomn.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "support/scratch.h"
#include "voinet/INetUtils.h"
#include "voinet/callbacks.h"
#include "voinet/cbmgr.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace voinet_fuzz {

namespace {

namespace fs = std::filesystem;
using namespace tessaro_com::pkm::voInet;

constexpr std::size_t kPrefixSize = 1024;

using Content = std::optional<std::string>;

/// The files of a download, as they have to be.
class DownloadModel {
  public:
    DownloadModel(Content local, long start, bool prefixCheck)
        : m_local(std::move(local)), m_prefixCheck(prefixCheck) {
        m_start = start < 1 ? 0 : static_cast<std::size_t>(start);
        makeCopy();
    }

    std::size_t write(const std::string& bytes) {
        if (m_prefixCheck) {
            m_received += bytes.substr(0, kPrefixSize - m_received.size());
            return bytes.size();
        }
        if (!m_temporary) {
            return 0;
        }
        // Beyond the end zeros fill up, once there is something to write.
        if (!bytes.empty()) {
            m_temporary->resize(std::max(m_temporary->size(), m_position + bytes.size()));
            m_temporary->replace(m_position, bytes.size(), bytes);
            m_position += bytes.size();
        }
        return bytes.size();
    }

    void flush() {
        m_received.clear();
        makeCopy();
    }

    void finish() {
        if (m_temporary && !m_prefixCheck) {
            m_local = m_temporary;
        }
        m_position = m_start;
        if (m_start == 0) {
            m_temporary = "";
        }
        readLocalPrefix();
    }

    bool isPrefixMatched() const {
        std::string received = m_received;
        received.resize(kPrefixSize);
        return received == m_localPrefix;
    }

    const Content& local() const { return m_local; }

    /// What a server with the same file sends next.
    std::string upcoming(std::size_t size) const {
        const std::size_t from = m_prefixCheck ? m_start + m_received.size() : m_position;
        return positionDependentBytes(from + size).substr(from);
    }

  private:
    void makeCopy() {
        m_temporary = m_start == 0 ? "" : m_local;
        m_position = m_start;
        readLocalPrefix();
    }

    /// Of the copy, at the start position; a whole file has none, and what is missing is zeros.
    void readLocalPrefix() {
        if (m_start != 0 && m_prefixCheck && m_temporary) {
            m_localPrefix =
                m_temporary->substr(std::min(m_start, m_temporary->size()), kPrefixSize);
        }
        m_localPrefix.resize(kPrefixSize);
    }

    Content m_local;
    bool m_prefixCheck;
    std::size_t m_start = 0;
    Content m_temporary;
    std::size_t m_position = 0;
    std::string m_received;
    std::string m_localPrefix;
};

/// Asks to stop, or throws, as the input says.
class Sink : public CNetSessionSink {
  public:
    enum class Mood { goesOn, stops, throws };

    Mood mood = Mood::goesOn;
    int calls = 0;

    void OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                            const wchar_t* siteText1, const wchar_t* siteText2,
                            const wchar_t* remoteUrl, bool* goOn) override {
        ++calls;
        require(bytesDone != nullptr && bytesTotal != nullptr, "there are figures");
        require(*status == 3 || *status == 6, "the status is one of a network transfer");
        require(std::wstring(siteText1) == L"site" && std::wstring(siteText2) == L"host" &&
                    std::wstring(remoteUrl) == L"http://h/f",
                "the texts are the transfer's");
        require(*goOn, "a transfer goes on unless the sink says no");
        *goOn = mood != Mood::stops;
        if (mood == Mood::throws) {
            throw std::runtime_error("a sink that fails");
        }
    }
};

double figure(Input& input) {
    switch (input.byte() % 6) {
        case 0:
            return std::numeric_limits<double>::quiet_NaN();
        case 1:
            return -1.0;
        case 2:
            return 1e300;
        default:
            return static_cast<double>(input.number(8));
    }
}

void reportProgress(CallbackManager& manager, Input& input, bool isReported) {
    Sink sink;
    sink.mood = static_cast<Sink::Mood>(input.byte() % 3);
    manager.InstallProgressSink(&sink);
    const double done = figure(input);
    const double total = figure(input);
    const int answer = progressCallback(&manager, total, done, total, done);
    require(sink.calls == (isReported ? 1 : 0), "progress is reported once or not at all");
    require((answer != 0) == (isReported && sink.mood != Sink::Mood::goesOn),
            "a sink stops a transfer, and so does one that throws");
    require(manager.UnInstallProgressSink() == &sink, "the sink comes back");
    require(manager.UnInstallProgressSink() == nullptr, "once");
    require(progressCallback(&manager, total, done, total, done) == 0, "nobody stops it");
}

CallbackManager makeManager(CallbackManager::TransferType type, const std::string& local,
                            long start, bool prefixCheck) {
    return {type,       telmcomn_ansi_to_wide(local), L"site", L"host", L"http://h/f", start,
            prefixCheck};
}

std::string blockOf(const DownloadModel& model, Input& input) {
    const std::size_t size = input.number(2) % 3000U;
    if (size % 2 == 0) {
        return model.upcoming(size);
    }
    std::string block = input.take(size / 16);
    // Most of a block is made up, so that large ones need no large inputs.
    block += positionDependentBytes(size - std::min(size, block.size()));
    return block;
}

void writeBlock(CallbackManager& manager, DownloadModel& model, Input& input) {
    std::string block = blockOf(model, input);
    const std::size_t expected = model.write(block);
    const unsigned long taken =
        writeCallback(block.data(), 1, static_cast<int>(block.size()), &manager);
    require(taken == expected, "all of a block is taken, or nothing without a file");
}

void download(const std::string& local, const Content& content, Input& input) {
    const bool isSilent = input.flag();
    const bool prefixCheck = input.flag();
    const long start = static_cast<long>(input.number(2) % 5000U) - 100;
    const auto type =
        isSilent ? CallbackManager::TransferDownloadSilent : CallbackManager::TransferDownload;
    DownloadModel model(content, start, prefixCheck);
    {
        CallbackManager manager = makeManager(type, local, start, prefixCheck);
        require(manager.GetStartPosition() == start, "the start position is kept");
        require(manager.GetEndPosition() == (prefixCheck ? start + 1023 : -1), "the end follows");
        constexpr int kMaxSteps = 32;
        for (int i = 0; i < kMaxSteps && !input.empty(); ++i) {
            switch (input.byte() % 6) {
                case 0:
                    require(manager.Flush(), "a download can be repeated");
                    model.flush();
                    break;
                case 1:
                    require(manager.FinishTransfer(), "a download can be finished");
                    model.finish();
                    break;
                case 2:
                    reportProgress(manager, input, !isSilent && !prefixCheck);
                    break;
                default:
                    writeBlock(manager, model, input);
                    break;
            }
            require(manager.IsPrefixMatched() == model.isPrefixMatched(), "the prefix decides");
            require(readFile(local) == model.local(), "the local file changes at the end only");
        }
    }
    require(readFile(local) == model.local(), "the local file stays");
}

void upload(const std::string& local, const Content& content, Input& input) {
    CallbackManager manager = makeManager(CallbackManager::TransferUpload, local, 0, false);
    std::string sent;
    while (sent.size() <= content.value_or("").size() && !input.empty()) {
        std::vector<char> buffer(input.byte() * std::size_t{16} + 1);
        const unsigned long count =
            readCallback(buffer.data(), 1, static_cast<int>(buffer.size()), &manager);
        require(count <= buffer.size(), "a buffer is not overrun");
        sent.append(buffer.data(), count);
        require(count == buffer.size() || sent == content.value_or(""), "short only at the end");
        require(writeCallback(buffer.data(), 1, 7, &manager) == 7, "an answer is dropped");
        if (count == 0) {
            break;
        }
    }
    reportProgress(manager, input, true);
    require(content.value_or("").compare(0, sent.size(), sent) == 0, "the file's bytes, in order");
    require(!manager.Flush() && !manager.FinishTransfer(), "there is nothing to put in place");
    require(readFile(local) == content, "the file that is sent stays");
}

/// The two functions that make directories make the same, and answer the other way round.
void makeDirectories(const std::string& name) {
    std::string relative = name.substr(0, 200);
    std::replace(relative.begin(), relative.end(), '.', '_');
    const std::string one = scratchDirectory() + "/one/";
    const std::string other = scratchDirectory() + "/two/";
    CallbackManager manager =
        makeManager(CallbackManager::TransferUpload, scratchDirectory() + "/none", 0, false);
    const bool made = manager.MakeRecursiveDir((one + relative).c_str());
    const bool failed = MakeLocalRecursiveDirectory((other + relative).c_str());
    require(made == !failed, "one says what was made, the other what was not");
    // As the functions get the name: up to a zero byte.
    const std::string path = upToZero(relative);
    const std::string parent = path.substr(0, path.rfind('/') + 1);
    require(fs::is_directory(one + parent) == fs::is_directory(other + parent), "both make it");
    require(!made || fs::is_directory(one + parent), "what was made is there");
    fs::remove_all(one);
    fs::remove_all(other);
}

}  // namespace

void tryInput(const std::string& bytes) {
    const std::string local = scratchDirectory() + "/local";
    Input input(bytes);
    const unsigned kind = input.byte();
    const std::size_t size = input.number(2) % 5000U;
    const Content content = size == 0 ? Content() : Content(positionDependentBytes(size - 1));
    const std::size_t descriptors = openDescriptors();
    writeFile(local, content);
    switch (kind % 4) {
        case 0:
            upload(local, content, input);
            break;
        case 1:
            makeDirectories(input.rest());
            break;
        default:
            download(local, content, input);
            break;
    }
    require(hasNoMoreDescriptorsThan(descriptors), "every file is closed");
}

}  // namespace voinet_fuzz
