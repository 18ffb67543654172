#ifndef VOINET_TESTS_FAULTS_LOAD_TRANSFERS_H
#define VOINET_TESTS_FAULTS_LOAD_TRANSFERS_H

#include "loopbackserver.h"
#include "support/transfer.h"

#include <cstddef>
#include <string>

namespace tessaro_com::pkm::voInet::load {

/// Has local files made in memory where there is a place for that: each new one is written through
/// to the disk otherwise. The library's temporary files are in /tmp all the same. Before the first
/// TemporaryDirectory.
void preferMemory();

/// A transfer object that knows a server under one form of its name only, so that a result comes
/// back as the attempt gave it.
wire::TransferPtr makeObject(voInetProtocol protocol, const std::wstring& hostAndPort,
                             const std::wstring& repository = {});

/// Logs on and downloads one file whole. Throws std::runtime_error when anything is not as it
/// should be: the results, any byte of the file.
void downloadWhole(TransferItf& transfer, const std::string& localFile, const std::string& name,
                   const std::string& content);

/// The content of a file; throws when it cannot be read.
std::string contentOfFile(const std::string& path);

/// Transfers of one kind in a row, by one host that makes a new object now and then. Each checks
/// its results and every byte, and throws std::runtime_error when something is wrong.
class Series {
  public:
    virtual ~Series() = default;
    /// `number` counts up from 0 and decides which file, and how the transfer ends.
    virtual void run(std::size_t number) = 0;
};

/// Whole, resumed, redirected, cancelled, cut, and missing files over HTTP or FTP.
class DownloadSeries final : public Series {
  public:
    DownloadSeries(voInetProtocol protocol, std::wstring host, std::string localFile);
    void run(std::size_t number) override;

  private:
    voInetProtocol m_protocol;
    std::wstring m_host;
    std::string m_localFile;
    wire::TransferPtr m_transfer;
};

/// Whole, stopped and missing files of a folder.
class CopySeries final : public Series {
  public:
    /// Makes the source files in `folder`.
    CopySeries(std::string folder, std::string localFile);
    void run(std::size_t number) override;

  private:
    std::string m_folder;
    std::string m_localFile;
    wire::TransferPtr m_transfer;
};

/// Packages, a server that is busy and one that does not know the path.
class ExchangeSeries final : public Series {
  public:
    ExchangeSeries(const std::wstring& host, std::string requestFile, std::string responseFile);
    void run(std::size_t number) override;

  private:
    std::wstring m_host;
    std::string m_requestFile;
    std::string m_responseFile;
    wire::TransferPtr m_transfer;
};

}  // namespace tessaro_com::pkm::voInet::load

#endif  // VOINET_TESTS_FAULTS_LOAD_TRANSFERS_H
