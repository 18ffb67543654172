#include "support/settings.h"

namespace tessaro_com::pkm::voInet::torture {

namespace {

std::vector<int> numbersOf(const TransferItf& t) {
    return {t.m_protocol,
            t.m_nPort,
            t.m_nSslPort,
            t.m_nPortIP,
            t.m_nPortFqdn,
            t.m_nPortNetbios,
            t.m_nProxyPort,
            t.m_nExclusionListSize,
            t.m_nRangeListSize,
            static_cast<int>(t.m_bUseProxy),
            static_cast<int>(t.m_bBypassLocal),
            static_cast<int>(t.m_bUseIEConfig),
            static_cast<int>(t.m_bAllowUserToConfigureProxy),
            static_cast<int>(t.m_bUseLoggedOnUser),
            static_cast<int>(t.m_bUseAuthentication),
            static_cast<int>(t.m_bUseProxyAuthentication),
            static_cast<int>(t.m_bAltUseProxyAuthentication),
            static_cast<int>(t.m_bUseSSL)};
}

std::vector<std::wstring> wideTextsOf(const TransferItf& t) {
    return {t.m_strAccount,
            t.m_strProxy,
            t.m_strProxyUserName,
            t.m_strProxyPassword,
            t.m_strAltProxyUserName,
            t.m_strAltProxyPassword,
            t.m_strProxyUserPwd,
            t.m_strAltProxyUserPwd,
            t.m_strExclusionList,
            t.m_strRangeList,
            t.m_strSite,
            t.m_strHostIP,
            t.m_strHostFqdn,
            t.m_strHostNetBios,
            t.m_strHost,
            t.m_strUser,
            t.m_strPassword,
            t.m_strDomain,
            t.m_strServer,
            t.m_strShare,
            t.m_strRelativePath,
            t.m_strUserAgent,
            t.m_strCARootPath,
            t.m_strUpdateToken};
}

std::vector<std::string> utf8TextsOf(const TransferItf& t) {
    return {t.m_strSite_utf8_rep,
            t.m_strHost_utf8_rep,
            t.m_strHostIP_utf8_rep,
            t.m_strHostFqdn_utf8_rep,
            t.m_strHostNetBios_utf8_rep,
            t.m_strUser_utf8_rep,
            t.m_strPassword_utf8_rep,
            t.m_strAccount_utf8_rep,
            t.m_strProxy_utf8_rep,
            t.m_strProxyUserName_utf8_rep,
            t.m_strProxyPassword_utf8_rep,
            t.m_strAltProxyUserName_utf8_rep,
            t.m_strAltProxyPassword_utf8_rep,
            t.m_strAltProxyUserPwd_utf8_rep,
            t.m_strProxyUserPwd_utf8_rep,
            t.m_strExclusionList_utf8_rep,
            t.m_strRangeList_utf8_rep,
            t.m_strDomain_utf8_rep,
            t.m_strServer_utf8_rep,
            t.m_strShare_utf8_rep,
            t.m_strRelativePath_utf8_rep,
            t.m_strUserAgent_utf8_rep,
            t.m_strCARootPath_utf8_rep};
}

}  // namespace

Settings settingsOf(const TransferItf& transfer) {
    return {numbersOf(transfer), wideTextsOf(transfer), utf8TextsOf(transfer)};
}

CProxyParams fullProxyRecord() {
    // Long enough that no text fits into a string object itself.
    CProxyParams proxy;
    proxy.m_strProxyHost = L"proxy-with-a-long-name.example.org";
    proxy.m_nHttpProxyPort = 8080;
    proxy.m_nFtpProxyPort = 2121;
    proxy.m_bAllowUserToConfigureProxy = true;
    proxy.m_bBypassLocal = true;
    proxy.m_bUseIEConfig = true;
    proxy.m_nRangeListSize = 2;
    proxy.m_strRangeList = L"first-range.example.org;second-range.example.org";
    proxy.m_nExclusionListSize = 2;
    proxy.m_strExclusionList = L"first-exempt.example.org;second-exempt.example.org";
    proxy.m_bFtpProxyAuthentication = true;
    proxy.m_bHttpProxyAuthentication = true;
    proxy.m_strHttpProxyUser = L"user-of-the-http-proxy";
    proxy.m_strHttpProxyPassword = L"password-of-the-http-proxy";
    proxy.m_strFtpProxyUser = L"user-of-the-ftp-proxy";
    proxy.m_strFtpProxyPassword = L"password-of-the-ftp-proxy";
    proxy.m_bFtpAltCredentials = true;
    proxy.m_bHttpAltCredentials = true;
    proxy.m_strHttpAltUser = L"alternate-user-of-the-http-proxy";
    proxy.m_strHttpAltPassword = L"alternate-password-of-the-http-proxy";
    proxy.m_strFtpAltUser = L"alternate-user-of-the-ftp-proxy";
    proxy.m_strFtpAltPassword = L"alternate-password-of-the-ftp-proxy";
    return proxy;
}

}  // namespace tessaro_com::pkm::voInet::torture
