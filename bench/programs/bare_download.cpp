// Downloads with nothing but libcurl, a fresh handle for each, to compare with:
//   bare_download URL LOCAL-FILE [COUNT] [same|numbered]
#include "localfiles.h"

#include <curl/curl.h>

#include <cstdio>

namespace {

bool download(const char* url, const std::string& localFile) {
    std::FILE* file = std::fopen(localFile.c_str(), "wb");
    CURL* curl = curl_easy_init();
    if (file == nullptr || curl == nullptr) {
        return false;
    }
    curl_easy_setopt(curl, CURLOPT_URL, url);
    curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, file);
    const CURLcode result = curl_easy_perform(curl);
    curl_easy_cleanup(curl);
    return std::fclose(file) == 0 && result == CURLE_OK;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int kFirstOption = 3;
    if (argc < kFirstOption) {
        std::fprintf(stderr, "usage: bare_download URL LOCAL-FILE [COUNT] [same|numbered]\n");
        return 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const LocalFiles files(argv[2], argv + kFirstOption, argv + argc);
    for (long number = 0; number < files.count(); ++number) {
        if (!download(argv[1], files.name(number))) {
            return 1;
        }
    }
    curl_global_cleanup();
    return 0;
}
