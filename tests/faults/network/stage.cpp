#include "stage.h"

#include "support/body.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tessaro_com::pkm::voInet::faults {

namespace {

// Bodies that have nothing in common with the server's file.
constexpr std::uint64_t kOldBody = 1'000'000;
constexpr std::uint64_t kWrongBody = 2'000'000;

std::wstring withPort(const std::wstring& host, const Endpoint& endpoint) {
    return host + L":" + std::to_wstring(endpoint.port());
}

}  // namespace

const wire::TemporaryDirectory& Workplace::directory() {
    static const wire::TemporaryDirectory kInstance;
    return kInstance;
}

void Workplace::clear() {
    for (const auto& name : directory().entries()) {
        std::filesystem::remove_all(directory().path(name));
    }
}

std::optional<std::string> contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::optional<std::string> localContent(const Scenario& scenario, const std::string& file) {
    const std::size_t size = localSize(scenario);
    switch (scenario.start) {
        case missing:
            return std::nullopt;
        case old:
            return wire::makeBody(size, kOldBody);
        case wrongPrefix:
            return wire::makeBody(size, kWrongBody);
        case longer:
            return file + wire::makeBody(size - file.size(), kOldBody);
        default:
            return file.substr(0, size);
    }
}

std::optional<std::size_t> stopOf(const Scenario& scenario) {
    switch (scenario.sink) {
        case stopAtOnce:
            return 0;
        case stopInside:
            return std::max<std::size_t>(1, scenario.fileSize() / 2);
        case stopAtEnd:
            return scenario.fileSize();
        default:
            return std::nullopt;
    }
}

std::string described(const std::optional<std::string>& content,
                      const std::optional<std::string>& expected) {
    if (!content) {
        return "no file";
    }
    std::string text = std::to_string(content->size()) + " bytes";
    if (expected && *content != *expected) {
        const auto common =
            static_cast<std::ptrdiff_t>(std::min(content->size(), expected->size()));
        const auto place =
            std::mismatch(content->begin(), content->begin() + common, expected->begin()).first;
        text += " that differ from byte " + std::to_string(place - content->begin()) + " on";
    }
    return text;
}

wire::TransferSettings settingsFor(const std::array<EndpointPtr, 3>& forms) {
    wire::TransferSettings settings;
    if (forms[0]) {
        settings.hostIp = withPort(forms[0]->host(), *forms[0]);
    }
    if (forms[1]) {
        const bool hasName = forms[1]->host() != L"127.0.0.1";
        settings.hostFqdn = withPort(hasName ? forms[1]->host() : L"localhost", *forms[1]);
    }
    if (forms[2]) {
        settings.hostNetBios = withPort(forms[2]->host(), *forms[2]);
    }
    return settings;
}

}  // namespace tessaro_com::pkm::voInet::faults
