#ifndef VOINET_TESTS_UNIT_SUPPORT_SCRIPTEDCONNECTION_H
#define VOINET_TESTS_UNIT_SUPPORT_SCRIPTEDCONNECTION_H

#include "voinet/cnetconnection.h"

#include <functional>
#include <string>
#include <vector>

namespace voinet_test {

/// A connection whose protocol operations write down what they are called with and answer what the
/// test says.
class ScriptedConnection : public tessaro_com::pkm::voInet::CNetConnection {
  public:
    using Method = tessaro_com::pkm::voInet::voInetConnMethod;
    using Result = tessaro_com::pkm::voInet::voInetError;
    using Sink = tessaro_com::pkm::voInet::CNetSessionSink;

    /// Answers the call with this name: "logon", "download", "upload", "response".
    std::function<Result(const std::string& operation)> answer = [](const std::string&) {
        return tessaro_com::pkm::voInet::voInetErrorSuccess;
    };
    /// "logon 2 at fqdn:82", "log out" and so on, in order.
    std::vector<std::string> calls;
    /// Everything that the latest transfer was handed.
    std::vector<std::wstring> texts;
    std::vector<const void*> pointers;
    bool useTimeout = false;
    unsigned int timeout = 0;

    /// Gives each kind whose bit is set (1: IP, 2: FQDN, 4: NetBIOS) a host and a port of its own.
    void configure(unsigned kinds) {
        configure(kinds & 1U, m_strHostIP, m_strHostIP_utf8_rep, m_nPortIP, "ip", 81);
        configure(kinds & 2U, m_strHostFqdn, m_strHostFqdn_utf8_rep, m_nPortFqdn, "fqdn", 82);
        configure(kinds & 4U, m_strHostNetBios, m_strHostNetBios_utf8_rep, m_nPortNetbios, "nb",
                  83);
    }

    bool CheckOptions() const override { return true; }

    Result LogOut() override {
        calls.emplace_back("log out");
        return tessaro_com::pkm::voInet::voInetErrorSuccess;
    }

    Result LogonWithConnSpec(const Method& method, bool flag, unsigned int seconds) override {
        useTimeout = flag;
        timeout = seconds;
        return record("logon", method);
    }

    Result DownloadFileWithConnSpec(const Method& method, const std::wstring& localFile,
                                    const std::wstring& remoteFile, Sink* sink, long* resumeOffset,
                                    bool& resume, const bool& useCache) override {
        texts = {localFile, remoteFile};
        pointers = {sink, resumeOffset, &resume, &useCache};
        return record("download", method);
    }

    Result UploadFileWithConnSpec(const Method& method, const std::wstring& source,
                                  const std::wstring& destination, Sink* sink) override {
        texts = {source, destination};
        pointers = {sink};
        return record("upload", method);
    }

    Result UploadFileResponseWithConnSpec(const Method& method, const std::wstring& requestFile,
                                          const std::wstring& serverPath,
                                          const std::wstring& responseFile, Sink* sink) override {
        texts = {requestFile, serverPath, responseFile};
        pointers = {sink};
        return record("response", method);
    }

  private:
    static void configure(bool configured, std::wstring& wide, std::string& narrow, int& port,
                          const std::string& host, int number) {
        narrow = configured ? host : "";
        wide.assign(narrow.begin(), narrow.end());
        port = configured ? number : 0;
    }

    Result record(const std::string& operation, const Method& method) {
        calls.push_back(operation + " " + std::to_string(method.kind) + " at " +
                        m_strHost_utf8_rep + ":" + std::to_string(m_nPort));
        return answer(operation);
    }
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_SCRIPTEDCONNECTION_H
