// A download with nothing but libcurl, to compare memory with: bare_download URL LOCAL-FILE
#include <curl/curl.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: bare_download URL LOCAL-FILE\n");
        return 2;
    }
    std::FILE* file = std::fopen(argv[2], "wb");
    CURL* curl = curl_easy_init();
    if (file == nullptr || curl == nullptr) {
        return 1;
    }
    curl_easy_setopt(curl, CURLOPT_URL, argv[1]);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, file);
    const CURLcode result = curl_easy_perform(curl);
    curl_easy_cleanup(curl);
    return std::fclose(file) == 0 && result == CURLE_OK ? 0 : 1;
}
