#include "portfile.h"

#include "replacefile.h"
#include "starterror.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace voinetserver {
namespace {

std::string linesOf(const std::vector<int>& ports) {
    std::string lines;
    for (const int port : ports) {
        lines += std::to_string(port) + '\n';
    }
    return lines;
}

}  // namespace

PortFile::PortFile(std::string file, const std::vector<int>& ports) : file_(std::move(file)) {
    if (!file_.empty() && !replaceFile(file_, linesOf(ports))) {
        throw StartError("the port file " + file_ +
                         " cannot be written: " + std::generic_category().message(errno));
    }
}

PortFile::~PortFile() {
    if (!file_.empty()) {
        ::unlink(file_.c_str());
    }
}

}  // namespace voinetserver
