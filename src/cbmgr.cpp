#include "voinet/cbmgr.h"

#include "boundary.h"
#include "directories.h"
#include "kvecomn/telfile.h"
#include "saturate.h"
#include "sinkstatus.h"
#include "voinet/INetUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>

namespace tessaro_com::pkm::voInet {

namespace {

/// Makes the file, so that no other process takes the name: processes that are started within the
/// same second draw the same names. False when somebody else was faster.
bool claim(const std::string& name) {
    const int descriptor =
        open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
        return errno != EEXIST;  // what cannot be made shows when it is opened
    }
    close(descriptor);
    return true;
}

/// Last byte of the range to ask for.
long endPosition(long start, bool prefixCheck, long prefixSize) {
    constexpr long kOpenEnd = -1;
    if (!prefixCheck) {
        return kOpenEnd;
    }
    const long beforeEnd = prefixSize - 1;
    return start + std::min(beforeEnd, std::numeric_limits<long>::max() - std::max(start, 0L));
}

using Prefix = std::array<char, 1024>;

/// Reads what a regular file holds at `start`; zeros stand for what it does not hold, and for a
/// file that is none.
void readPrefix(const std::string& path, long start, Prefix& prefix) {
    prefix.fill(0);
    struct stat status {};
    if (start < 1 || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    TelFile* const file =
        telCreateFileAW(path, telGenericRead, telShareNone, telOpenExisting, telAttributeNormal);
    if (telSetFilePointer(file, start, telFileBegin) == start) {
        telReadFile(file, prefix.data(), prefix.size());
    }
    telCloseHandle(file);
}

}  // namespace

void CallbackManager::HostFileCloser::operator()(TelFile* file) const noexcept {
    telCloseHandle(file);
}

CallbackManager::CallbackManager(const TransferType& type, const std::wstring& localPath,
                                 const std::wstring& siteText1, const std::wstring& siteText2,
                                 const std::wstring& remoteUrl, const long& startPosition,
                                 const bool& prefixCheck)
    : m_bPrefixCheck(prefixCheck),
      m_nStartPosition(startPosition),
      m_nEndPosition(endPosition(startPosition, prefixCheck, kPrefixSize)),
      m_strLocalPath(localPath),
      m_strSiteText1(siteText1),
      m_strSiteText2(siteText2),
      m_strRemoteUrl(remoteUrl),
      m_strLocalPath_utf8_rep(unicode_to_utf8(localPath)),
      m_strSiteText1_utf8_rep(unicode_to_utf8(siteText1)),
      m_strSiteText2_utf8_rep(unicode_to_utf8(siteText2)),
      m_strRemoteUrl_utf8_rep(unicode_to_utf8(remoteUrl)),
      m_transferType(type) {
    if (IsUpload()) {
        m_file.reset(telCreateFileAW(m_strLocalPath_utf8_rep, telGenericRead, telShareNone,
                                     telOpenExisting, telAttributeNormal));
        return;
    }
    if (m_bPrefixCheck) {
        // Nothing is written: a check needs no copy, only the bytes that it compares.
        readPrefix(m_strLocalPath_utf8_rep, m_nStartPosition, m_localPrefix);
        return;
    }
    ChooseTemporaryName();
    MakeTemporaryCopy();
}

CallbackManager::~CallbackManager() {
    UnInstallProgressSink();
    m_file.reset();
    if (!m_strTempPath.empty()) {
        std::remove(m_strTempPath.c_str());
    }
}

void CallbackManager::InstallProgressSink(CNetSessionSink* sink) {
    m_pSink = sink;
}

CNetSessionSink* CallbackManager::UnInstallProgressSink() {
    CNetSessionSink* sink = m_pSink;
    m_pSink = nullptr;
    return sink;
}

unsigned long CallbackManager::WriteData(void* data, unsigned long size) {
    if (IsUpload()) {
        return size;
    }
    if (!m_bPrefixCheck) {
        return static_cast<unsigned long>(telWriteFile(m_file.get(), data, size));
    }
    // Kept up to the prefix's size; what lies beyond counts as taken, so that curl goes on.
    const auto kept =
        static_cast<std::uint32_t>(std::min<unsigned long>(size, kPrefixSize - m_nPrefixCount));
    std::copy_n(static_cast<const char*>(data), kept, m_receivedPrefix.data() + m_nPrefixCount);
    m_nPrefixCount += kept;
    return size;
}

unsigned long CallbackManager::ReadData(void* buffer, unsigned long size) {
    if (!IsUpload()) {
        return size;
    }
    return static_cast<unsigned long>(telReadFile(m_file.get(), buffer, size));
}

int CallbackManager::TransferProgress(double dltotal, double dlnow, double ultotal, double ulnow) {
    if (m_pSink == nullptr || m_bPrefixCheck) {
        return 0;
    }
    switch (m_transferType) {
        case TransferDownload:
            return NotifySink(dlnow, dltotal, sinkDownloading);
        case TransferUpload:
            return NotifySink(ulnow, ultotal, sinkUploading);
        default:
            return 0;
    }
}

int CallbackManager::NotifySink(double done, double total, int status) {
    auto bytesDone = saturate<unsigned long>(done);
    auto bytesTotal = saturate<long>(total);
    bool goOn = true;
    m_pSink->OnTransferProgress(&bytesDone, &bytesTotal, &status, m_strSiteText1.c_str(),
                                m_strSiteText2.c_str(), m_strRemoteUrl.c_str(), &goOn);
    return goOn ? 0 : 1;
}

bool CallbackManager::IsPrefixMatched() const {
    return m_receivedPrefix == m_localPrefix;
}

long CallbackManager::GetStartPosition() const {
    return m_nStartPosition;
}

long CallbackManager::GetEndPosition() const {
    return m_nEndPosition;
}

const char* CallbackManager::GetRemoteUrl() const {
    return m_strRemoteUrl_utf8_rep.c_str();
}

bool CallbackManager::Flush() {
    if (IsUpload()) {
        return false;
    }
    if (m_bPrefixCheck) {
        m_nPrefixCount = 0;
        m_receivedPrefix.fill(0);
        readPrefix(m_strLocalPath_utf8_rep, m_nStartPosition, m_localPrefix);
        return true;
    }
    return withoutExceptionsOr(false, [this] {
        m_file.reset();
        std::remove(m_strTempPath.c_str());
        if (!claim(m_strTempPath)) {
            ChooseTemporaryName();
        }
        MakeTemporaryCopy();
        return true;
    });
}

bool CallbackManager::FinishTransfer() {
    if (IsUpload()) {
        return false;
    }
    // The whole path, not its directory: what stands behind the last "/" is not made.
    MakeRecursiveDir(m_strLocalPath_utf8_rep.c_str());
    if (m_bPrefixCheck) {
        readPrefix(m_strLocalPath_utf8_rep, m_nStartPosition, m_localPrefix);
        return true;
    }
    // Some file systems report only now that they have lost data; what is left of it must not take
    // the place of the local file.
    if (telCloseHandle(m_file.release())) {
        telCopyFile(m_strTempPath, m_strLocalPath_utf8_rep);
    }
    OpenTemporaryFile();
    return true;
}

bool CallbackManager::MakeRecursiveDir(const char* path) {
    return withoutExceptionsOr(false, [path] {
        return path == nullptr || makeDirectoriesOf(path) != LastDirectory::failed;
    });
}

void CallbackManager::ChooseTemporaryName() {
    do {
        CreateTempFileName(&m_strTempPath);
    } while (m_strTempPath == m_strLocalPath_utf8_rep || !claim(m_strTempPath));
}

void CallbackManager::MakeTemporaryCopy() {
    // From the start on the temporary file is empty, whatever the local one holds.
    if (m_nStartPosition >= 1 && !telCopyFile(m_strLocalPath_utf8_rep, m_strTempPath)) {
        // There is nothing to resume: the claimed, empty file must not pass for the local one.
        std::remove(m_strTempPath.c_str());
    }
    OpenTemporaryFile();
}

void CallbackManager::OpenTemporaryFile() {
    const bool fromStart = m_nStartPosition < 1;
    m_file.reset(telCreateFileAW(m_strTempPath, telGenericRead | telGenericWrite, telShareNone,
                                 fromStart ? telCreateAlways : telOpenExisting,
                                 telAttributeNormal));
    if (!fromStart &&
        telSetFilePointer(m_file.get(), m_nStartPosition, telFileBegin) != m_nStartPosition) {
        // Nothing can be taken: at any other place it would spoil the file.
        m_file.reset();
    }
}

}  // namespace tessaro_com::pkm::voInet
