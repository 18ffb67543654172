#include "support/workplace.h"

#include <filesystem>

namespace tessaro_com::pkm::voInet::torture {

Workplace::~Workplace() {
    for (const std::string& name : entries()) {
        std::filesystem::remove_all(path(name));
    }
}

const wire::TemporaryDirectory& Workplace::directory() {
    static const wire::TemporaryDirectory kDirectory;
    return kDirectory;
}

}  // namespace tessaro_com::pkm::voInet::torture
