// Many transfers in a row by one process: nothing may be left of any.
#include "gauge.h"
#include "kvecomn/hostlog.h"
#include "support/temporarydirectory.h"
#include "transfers.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::load {

namespace {

/// After so many transfers everything that is taken once, for the whole process, has been taken.
constexpr std::size_t kFirst = 100;

struct Work {
    const char* name;
    std::size_t count;
    std::function<std::unique_ptr<Series>()> makeSeries;
};

void printRow(const Work& work, double seconds, const Gauge& before, const Gauge& after) {
    std::printf(
        "| %-8s | %7zu | %7.1f | %3ld, %3ld | %2ld, %2ld | %5ld, %5ld | %8.1f, %8.1f "
        "| %6.1f, %6.1f |\n",
        work.name, work.count, seconds, before.descriptors, after.descriptors, before.files,
        after.files, before.pieces, after.pieces, static_cast<double>(before.heapBytes) / 1024,
        static_cast<double>(after.heapBytes) / 1024,
        static_cast<double>(before.residentBytes) / 1048576,
        static_cast<double>(after.residentBytes) / 1048576);
    std::fflush(stdout);
}

/// True when nothing has grown. Every hundred transfers it is looked after, so that what grows is
/// told before the machine is full.
bool run(const Work& work, const std::string& directory) {
    const auto start = std::chrono::steady_clock::now();
    const auto series = work.makeSeries();
    Gauge before;
    Gauge after;
    std::vector<std::string> found;
    std::size_t number = 0;
    while (number < work.count && found.empty()) {
        series->run(number);
        ++number;
        if (number % kFirst == 0) {
            after = gauge(directory);
            before = number == kFirst ? after : before;
            found = growth(before, after);
        }
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    printRow(work, elapsed.count(), before, after);
    for (const std::string& each : found) {
        std::fprintf(stderr, "%s, after %zu transfers: %s\n", work.name, number, each.c_str());
    }
    return found.empty();
}

int runAll(std::size_t http, std::size_t ftp, std::size_t copies, std::size_t exchanges) {
    const LoopbackServer server;
    const wire::TemporaryDirectory folder;
    const wire::TemporaryDirectory sources;
    const std::string local = folder.path("local");
    const Work all[] = {
        {"HTTP", http,
         [&] {
             return std::make_unique<DownloadSeries>(voInetProtocolHttp, server.httpHost(), local);
         }},
        {"FTP", ftp,
         [&] {
             return std::make_unique<DownloadSeries>(voInetProtocolFtp, server.ftpHost(), local);
         }},
        {"copy", copies, [&] { return std::make_unique<CopySeries>(sources.path(), local); }},
        {"exchange", exchanges,
         [&] {
             return std::make_unique<ExchangeSeries>(server.httpHost(), sources.path("request"),
                                                     local);
         }},
    };
    std::printf(
        "| transfers | number | seconds | descriptors | files | pieces of memory "
        "| heap, KiB | resident, MiB |\n|---|---|---|---|---|---|---|---|\n");
    bool isEven = true;
    for (const Work& work : all) {
        isEven = run(work, folder.path()) && isEven;
    }
    return isEven ? 0 : 1;
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::load

int main(int argc, char** argv) {
    namespace load = tessaro_com::pkm::voInet::load;
    std::size_t http = 0;
    std::size_t ftp = 0;
    std::size_t copies = 0;
    std::size_t exchanges = 0;
    CLI::App app(
        "Makes transfers in a row and compares what the process has taken after the first "
        "hundred and at the end.");
    const auto add = [&app](const char* name, std::size_t& count) {
        // Whole lives of objects, so that the two moments are alike.
        app.add_option(name, count)->required()->check([](const std::string& text) {
            const bool isRight = text.size() >= 3 && text.size() <= 9 &&
                                 text.find_first_not_of("0123456789") == std::string::npos &&
                                 text.compare(text.size() - 2, 2, "00") == 0 && text != "100";
            return isRight ? std::string() : std::string("not a multiple of 100, from 200 on");
        });
    };
    add("--http", http);
    add("--ftp", ftp);
    add("--copies", copies);
    add("--exchanges", exchanges);
    CLI11_PARSE(app, argc, argv);
    try {
        load::startGauging();
        load::preferMemory();
        // A line for each object would be a hundred thousand lines.
        hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
        return load::runAll(http, ftp, copies, exchanges);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
